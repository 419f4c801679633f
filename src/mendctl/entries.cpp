#include "mendctl/entries.h"

#include <algorithm>
#include <array>

namespace {

struct TClass {
  const char* Name;
  const char* Id;
};
constexpr TClass Classes[] = {
#define CLASS(Name, Id) {#Name, Id},
#include "server/class_ids.inc"
#undef CLASS
};

struct TRow {
  const char* Class;
  int32_t Code;
  TLayout Layout;
  const char* Done;
  const char* Undo;
};
constexpr TRow Rows[] = {
    {"UTransactionLog", CheckPointCode, TLayout::CheckPoint, "check point", ""},
    {"UFile", FileCode::Overwritten, TLayout::FileSet, "file overwritten", "bring back"},
    {"UFile", FileCode::Deleted, TLayout::FileSet, "files deleted", "bring back"},
    {"UFile", FileCode::Created, TLayout::FileName, "file created", "delete"},
    {"URegistry", RegistryCode::KeyDeleted, TLayout::Key, "registry key deleted", "bring back"},
    {"URegistry", RegistryCode::ValueDeleted, TLayout::Value, "registry value deleted", "bring back"},
    {"URegistry", RegistryCode::BinarySet, TLayout::Value, "registry value written", "write back"},
    {"URegistry", RegistryCode::DwordSet, TLayout::Value, "registry value written", "write back"},
    {"URegistry", RegistryCode::StringSet, TLayout::Value, "registry value written", "write back"},
    {"UCom", ComCode::ServerRegistered, TLayout::FileName, "COM server registered", "unregister"},
    {"UCom", ComCode::ServerUnregistered, TLayout::FileName, "COM server unregistered", "register"},
    {"UCom", ComCode::LibraryRegistered, TLayout::FileName, "type library registered", "unregister"},
    {"UCom", ComCode::LibraryUnregistered, TLayout::FileName, "type library unregistered", "register"},
    {"UBackup", BackupCode::RegistryValue, TLayout::Value, "registry value saved", "write back"},
    {"UBackup", BackupCode::RegistryKey, TLayout::Key, "registry key saved", "bring back"},
    {"UBackup", BackupCode::Files, TLayout::FileSet, "files saved", "bring back"},
    {"UBackup", BackupCode::KeyRights, TLayout::Rights, "access rights of a key saved", "give back"},
};

/// Reads one item from its file.
class TFileSource final : public TByteSource {
 public:
  explicit TFileSource(const TReadableFile& File) : File(File) {}
  uint64_t Remaining() const override { return File.Size() - At; }
  void Read(void* Buffer, uint32_t Size) override {
    if (File.ReadAt(At, Buffer, Size) != Size) throw ECannotRead{"", At, "the file has become shorter"};
    At += Size;
  }
  uint64_t Place() const { return At; }

 private:
  const TReadableFile& File;
  uint64_t At = 0;
};

}  // namespace

std::string IdOfClass(const std::string& Name) {
  const auto* Found = std::find_if(std::begin(Classes), std::end(Classes), [&](auto& Row) { return Row.Name == Name; });
  return Found == std::end(Classes) ? "" : Found->Id;
}

std::string ClassOfId(const std::string& Id) {
  const auto* Found = std::find_if(std::begin(Classes), std::end(Classes), [&](auto& Row) { return Row.Id == Id; });
  return Found == std::end(Classes) ? "" : Found->Name;
}

TMeaning MeaningOf(const TLogRecord& Record, const TMachine& Machine) {
  const std::string Id = GuidText(Record.Id), Class = ClassOfId(Id);
  for (const TRow& Row : Rows)
    if (Row.Class == Class && Row.Code == Record.Code) return {Class, Row.Done, Row.Undo, Row.Layout};
  const std::string Code = " with code " + std::to_string(Record.Code);
  if (Id == UpdaterClassId) return {"the updater program", "change of the updater's own" + Code, "hand over"};
  if (!Class.empty()) return {Class, "entry of " + Class + Code, "nothing to undo", TLayout::Nothing};
  const std::string ProgId = Machine.ProgIdOf(Id);
  const std::string Name = ProgId.empty() ? Id : ProgId;
  return {Name, "change by " + Name + Code, "hand over"};
}

bool IsCheckPoint(const TLogRecord& Entry) {
  static const std::string LogClass = IdOfClass("UTransactionLog");
  return Entry.Code == CheckPointCode && GuidText(Entry.Id) == LogClass;
}

// ---- Items

/// One walk over an item and those that it is made of. Sets and keys that contain themselves, and those that are nested
/// deeper than any path, are faults and not followed.
struct TItemReaderOf::TWalk {
  const TStateFolder& State;
  const bool Leaves = true;
  TSaved Saved;
  size_t Depth = 0;

  void Fault(const TGuidBytes& DataID, uint64_t Offset, const std::string& What, bool Missing = false) {
    Saved.Faults.push_back({DataID, Offset, What, Missing});
  }

  /// Opens an item once and hands its file and source to `Use`, behind a kind that fits.
  void Open(const TGuidBytes& DataID, TItemKind Kind, const auto& Use) {
    constexpr size_t Deepest = 512;
    if (!Saved.Items.insert(DataID).second) return Fault(DataID, 0, "it is part of itself, or of two others");
    if (Depth >= Deepest) return Fault(DataID, 0, "it lies deeper than any folder or key can");
    ++Depth;
    try {
      const TReadableFile File(State.ItemPath(DataID));
      if (Depth == 1) Saved.LastWrite = File.LastWrite();
      TFileSource Source(File);
      TItemReader Reader(Source);
      uint32_t Found = 0;
      Reader(Found);
      if (!Reader.Good())
        Fault(DataID, 0, "it is shorter than an item's kind");
      else if (Found != Kind)
        Fault(DataID, 0, "its kind is " + std::to_string(Found) + " instead of " + std::to_string(Kind));
      else
        Use(File, Source, Reader);
    } catch (const ECannotRead& Failure) {
      const bool Missing = !std::filesystem::exists(State.ItemPath(DataID));
      Fault(DataID, Failure.Offset, Missing ? "it is missing" : Failure.Why, Missing);
    }
    --Depth;
  }

  /// The fields of an item that ends with them.
  template <class TItem>
  std::optional<TItem> Fields(const TGuidBytes& DataID, TFileSource& Source, TItemReader& Reader, bool Ends = true) {
    TItem Item;
    Item.Fields(Reader);
    if (!Reader.Good())
      Fault(DataID, Source.Place(), "a count or length does not fit the rest of the file");
    else if (!Item.Plausible())
      Fault(DataID, Source.Place(), "its fields cannot have been saved from anything");
    else if (Ends && Source.Remaining() > 0)
      Fault(DataID, Source.Place(), "something follows its last field");
    else
      return Item;
    return std::nullopt;
  }

  void Text(const TGuidBytes& DataID, const auto& Take) {
    Open(DataID, StringKind,
         [&](const TReadableFile& File, TFileSource& Source, TItemReader&) { Take(File.Text(Source.Place())); });
  }

  void File(const TGuidBytes& DataID) {
    Open(DataID, SingleFileKind, [&](const TReadableFile&, TFileSource& Source, TItemReader& Reader) {
      if (auto Item = Fields<TSingleFileItem>(DataID, Source, Reader, false))
        Saved.Files.push_back({*Item, DataID, Source.Remaining(), Source.Place()});
    });
  }

  void FileSet(const TGuidBytes& DataID) {
    Open(DataID, FileSetKind, [&](const TReadableFile&, TFileSource& Source, TItemReader& Reader) {
      const auto Set = Fields<TFileSetItem>(DataID, Source, Reader);
      if (!Set) return;
      if (Leaves) {
        for (const TGuidBytes& Folder : Set->Folders)
          Text(Folder, [&](std::string Path) { Saved.Folders.push_back(std::move(Path)); });
        for (const TGuidBytes& Each : Set->Files) File(Each);
      } else {
        Saved.Items.insert(Set->Folders.begin(), Set->Folders.end());
        Saved.Items.insert(Set->Files.begin(), Set->Files.end());
      }
      for (const TGuidBytes& Subset : Set->Subsets) FileSet(Subset);
    });
  }

  void Value(const TGuidBytes& DataID) {
    Open(DataID, RegistryValueKind, [&](const TReadableFile&, TFileSource& Source, TItemReader& Reader) {
      if (auto Item = Fields<TRegistryValueItem>(DataID, Source, Reader)) Saved.Values.push_back(std::move(*Item));
    });
  }

  void Key(const TGuidBytes& DataID) {
    Open(DataID, RegistryKeyKind, [&](const TReadableFile&, TFileSource& Source, TItemReader& Reader) {
      const auto Item = Fields<TRegistryKeyItem>(DataID, Source, Reader);
      if (!Item) return;
      Saved.Keys.push_back(*Item);
      if (Leaves)
        for (const TGuidBytes& Each : Item->Values) Value(Each);
      else
        Saved.Items.insert(Item->Values.begin(), Item->Values.end());
      for (const TGuidBytes& Each : Item->Subkeys) Key(Each);
    });
  }

  void Rights(const TGuidBytes& DataID) {
    Open(DataID, KeyRightsKind, [&](const TReadableFile&, TFileSource& Source, TItemReader& Reader) {
      if (auto Item = Fields<TKeyRightsItem>(DataID, Source, Reader)) Saved.Rights.push_back(std::move(*Item));
    });
  }
};

TSaved TItemReaderOf::Read(TLayout Layout, const TGuidBytes& DataID, bool Leaves) const {
  TWalk Walk{State, Leaves, {}};
  switch (Layout) {
    case TLayout::FileSet:
      Walk.FileSet(DataID);
      break;
    case TLayout::File:
      Walk.File(DataID);
      break;
    case TLayout::FileName:
      Walk.Text(DataID, [&](std::string Text) { Walk.Saved.Text = std::move(Text); });
      break;
    case TLayout::Value:
      Walk.Value(DataID);
      break;
    case TLayout::Key:
      Walk.Key(DataID);
      break;
    case TLayout::Rights:
      Walk.Rights(DataID);
      break;
    case TLayout::Unknown:
    case TLayout::Nothing:
    case TLayout::CheckPoint:
      break;
  }
  return std::move(Walk.Saved);
}

std::vector<TEntry> EntriesOf(const TRecordFile& Log, bool All, const TMachine& Machine) {
  std::vector<TEntry> Entries;
  for (size_t Number = Log.Records.size(); Number > 0; --Number) {
    const TLogRecord& Record = Log.Records[Number - 1];
    Entries.push_back({Number, Record, MeaningOf(Record, Machine)});
    if (!All && IsCheckPoint(Record)) break;
  }
  return Entries;
}

namespace {

/// The layout of an item whose reader is not known; the tag 3 is read as a key when it is one to the last byte.
TLayout LayoutOfItem(const TStateFolder& State, const TGuidBytes& DataID) {
  uint8_t Tag[ItemTagSize] = {};
  const TReadableFile File(State.ItemPath(DataID));
  if (File.ReadAt(0, Tag, sizeof Tag) < sizeof Tag) return TLayout::Nothing;
  switch (Tag[0]) {
    case FileSetKind:
      return TLayout::FileSet;
    case RegistryKeyKind:
      return TLayout::Key;
    default:
      return TLayout::Nothing;
  }
}

}  // namespace

TReached ReachedItems(const TStateFolder& State, const TMachine& Machine) {
  TReached Reached;
  const TItemReaderOf Reader(State);
  const auto Follow = [&](TLayout Layout, const TGuidBytes& DataID) {
    if (!Reached.Items.insert(DataID).second) return;
    const TSaved Saved = Reader.Read(Layout, DataID, false);
    Reached.Items.insert(Saved.Items.begin(), Saved.Items.end());
    Reached.WholeStore = Reached.WholeStore && (Saved.Faults.empty() || Layout == TLayout::Key);
  };
  // Of foreign classes and groups it is not known what their items are, nor whether they are items at all.
  const auto FollowUnknown = [&](const TGuidBytes& DataID) {
    if (!TMachine::LookAt(State.ItemPath(DataID))) return;
    Follow(LayoutOfItem(State, DataID), DataID);
  };
  const auto FollowAll = [&](const TRecordFile& File) {
    for (const TLogRecord& Record : File.Records) {
      const TLayout Layout = MeaningOf(Record, Machine).Layout;
      Layout == TLayout::Unknown || Layout == TLayout::Nothing ? FollowUnknown(Record.DataID)
                                                               : Follow(Layout, Record.DataID);
    }
  };
  FollowAll(State.TransactionLog());
  for (const std::filesystem::path& Path : State.SetAside()) {
    const TReadableFile File(Path);
    FollowAll(RecordsOf(
        File.Size(), [&](uint64_t Offset, void* To, size_t Count) { return File.ReadAt(Offset, To, Count); }, false));
  }
  for (const THistoryGroup& Group : State.Groups())
    for (const TLogRecord& Record : Group.File.Records) FollowUnknown(Record.DataID);
  return Reached;
}

// ---- Words

std::string KeyText(uint32_t Root, const std::string& Name) {
  constexpr std::array Roots = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER",     "HKEY_LOCAL_MACHINE",
                                "HKEY_USERS",        "HKEY_PERFORMANCE_DATA", "HKEY_CURRENT_CONFIG"};
  const size_t Index = Root - 0x80000000u;
  const std::string Text = Index < Roots.size() ? Roots[Index] : std::to_string(Root);
  return Name.empty() ? Text : Text + "\\" + Name;
}

std::string SubjectOf(const TSaved& Saved, const TMachine& Machine) {
  const auto Tell = [&](const std::string& First, size_t Count) {
    return Machine.ToUtf8(First) + (Count > 1 ? " and " + std::to_string(Count - 1) + " more" : "");
  };
  if (Saved.Text) return Machine.ToUtf8(*Saved.Text);
  if (!Saved.Files.empty()) return Tell(Saved.Files.front().Path, Saved.Files.size());
  if (!Saved.Keys.empty())
    return Tell(KeyText(Saved.Keys.front().RootKey, Saved.Keys.front().KeyName), Saved.Keys.size());
  if (!Saved.Values.empty()) {
    const TRegistryValueItem& Value = Saved.Values.front();
    return Tell(KeyText(Value.RootKey, Value.KeyName) + ", " + (Value.Name.empty() ? "default value" : Value.Name), 1);
  }
  if (!Saved.Rights.empty()) return Tell(KeyText(Saved.Rights.front().RootKey, Saved.Rights.front().KeyName), 1);
  if (!Saved.Folders.empty()) return Tell(Saved.Folders.front(), Saved.Folders.size());
  return {};
}
