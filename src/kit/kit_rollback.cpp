#include "kit/kit_rollback.h"

#include "base/failure.h"
#include "base/folder_content.h"
#include "base/guid.h"
#include "base/paths.h"
#include "base/registry_place.h"
#include "base/registry_roots.h"
#include "base/text.h"
#include "formats/crc32.h"
#include "kit/asked_step.h"
#include "kit/file_in_use.h"
#include "kit/held_way.h"
#include "kit/kit_messages.h"
#include "kit/names.h"
#include "kit/plain_file.h"
#include "kit/registry_value.h"
#include "server/routine.h"

#include <cstring>

namespace {

/// Whether there is a plain file of this name.
bool IsFile(const std::wstring& Name) {
  const DWORD Attributes = GetFileAttributesW(Name.c_str());
  return Attributes != INVALID_FILE_ATTRIBUTES &&
         !(Attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
}

/// One entry on its way back.
class TUndoing {
 public:
  TUndoing(TServices& Services, const TKitChanges& Changes) : Changes(Changes), Pieces(Services, Changes) {}

  /// Whether all that is named can be meant: full names, predefined roots.
  bool IsSound() const {
    for (const TKitChange& Change : Changes)
      if (!std::visit([](const auto& Made) { return IsSound(Made); }, Change)) return false;
    return true;
  }

  /// The last change first.
  void Run() {
    uint64_t Content = 0;
    for (const TKitChange& Change : Changes)
      if (const auto* const Replaced = std::get_if<TFileReplaced>(&Change)) Content += Replaced->Size;
    for (size_t At = Changes.size(); At-- > 0;) {
      if (const auto* const Replaced = std::get_if<TFileReplaced>(&Changes[At])) Content -= Replaced->Size;
      std::visit([&](const auto& Made) { Undo(Made, Content); }, Changes[At]);
    }
  }

 private:
  static bool IsFullName(const std::string& Name) {
    return Name.find('\0') == Name.npos && RootSize(LossyAnsi(FromUtf8(Name))) > 0;
  }
  static bool IsSound(const TFolderMade& Made) { return IsFullName(Made.Name); }
  static bool IsSound(const TFileMade& Made) { return IsFullName(Made.Name) && !Made.Ending.empty(); }
  static bool IsSound(const TFileReplaced& Made) { return IsFullName(Made.Name) && !Made.Ending.empty(); }
  static bool IsSound(const TKeyMade& Made) { return IsRegistryRoot(Made.Root) && !Made.Name.empty(); }
  static bool IsSound(const TValueMade& Made) { return IsRegistryRoot(Made.Root); }
  static bool IsSound(const TPieceSaved&) { return true; }

  static void Undo(const TFolderMade& Made, uint64_t) {
    const std::wstring Name = FromUtf8(Made.Name);
    const auto Remove = [&] {
      if (IsLink(Name) || RemoveDirectoryW(Name.c_str())) return true;
      const DWORD Code = GetLastError();
      // It holds something; it is gone; it is no folder any more.
      return Code == ERROR_DIR_NOT_EMPTY || Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND ||
             Code == ERROR_DIRECTORY;
    };
    RepeatAsking(Remove, MsgCannotDeleteFolder, LossyAnsi(Name));
  }

  static void Undo(const TKeyMade& Made, uint64_t) {
    const TKeyPlace Place{Made.Root, LossyAnsi(FromUtf8(Made.Name))};
    const std::wstring Name = FromUtf8(Made.Name);
    AnswerAsking(
        [&] {
          bool Empty = false;
          const LSTATUS Status = LookAtKey(Place.RootHandle(), Name, Empty);
          return Status == ERROR_SUCCESS && Empty ? RegDeleteKeyW(Place.RootHandle(), Name.c_str()) : Status;
        },
        MsgCannotDeleteKey, Place.Text());
  }

  static void Undo(const TValueMade& Made, uint64_t) {
    const TKeyPlace Place{Made.Root, LossyAnsi(FromUtf8(Made.Key))};
    const std::wstring Key = FromUtf8(Made.Key), Name = FromUtf8(Made.Name);
    AnswerAsking(
        [&] {
          TRegistryData Stored;
          const LSTATUS Status = ReadValue(Place.RootHandle(), Key, Name, Stored);
          const bool AsMade = Status == ERROR_SUCCESS && Stored == TRegistryData{Made.Type, Made.Data};
          return AsMade ? RegDeleteKeyValueW(Place.RootHandle(), Key.c_str(), Name.c_str()) : Status;
        },
        MsgCannotDeleteValue, LossyAnsi(Name), Place.Text());
  }

  static void Undo(const TFileMade& Made, uint64_t) {
    const std::wstring Name = FromUtf8(Made.Name), Other = Name + FromUtf8(Made.Ending);
    const THeldWay Way(Name, Made.Depth);
    if (!Way.IsPlain()) return;  // what is there now is somebody else's
    if (IsFile(Other)) DeleteFileAsking(Other);
    if (IsFile(Name) && IsAsMade(Name, Made)) DeleteFileAsking(Name);
  }

  static bool IsAsMade(const std::wstring& Name, const TFileMade& Made) {
    const TReadFile File(Name);
    if (File.Traits().Size != Made.Size) return false;
    uint32_t Crc = 0;
    File.ReadAll([&](const char* Bytes, size_t Size) { Crc = Crc32(Bytes, Size, Crc); });
    return Crc == Made.Crc;
  }

  void Undo(const TFileReplaced& Made, uint64_t Content) {
    const std::wstring Name = FromUtf8(Made.Name), Ending = FromUtf8(Made.Ending);
    const THeldWay Way = PlainWay(Name, Made.Depth);
    if (IsFile(Name + Ending)) DeleteFileAsking(Name + Ending);
    if (IsFile(Name) && IsAsSaved(Name, Made, Content)) return;
    MakeFolders(MissingFolders(FolderOf(Name)));
    TNewFile File(Name, Ending, Made.Attributes);
    Pieces.Read(Content, Made.Size, [&](const char* Bytes, size_t Size) {
      File.Append(Bytes, Size);
      return true;
    });
    File.SetTimes({Made.Attributes, Made.Creation, Made.LastAccess, Made.LastWrite, Made.Size});
    File.Flush();
    File.TakeName(true);
  }

  /// A link on the way would lead to another place: the user can remove it.
  static THeldWay PlainWay(const std::wstring& Name, size_t Depth) {
    for (;;) {
      THeldWay Way(Name, Depth);
      if (Way.IsPlain()) return Way;
      AskOrFail(ERROR_CANT_RESOLVE_FILENAME, FormatMessageText(MsgLinkInTheWay, LossyAnsi(Name)));
    }
  }

  /// So that a file in use that was never replaced holds up nothing.
  bool IsAsSaved(const std::wstring& Name, const TFileReplaced& Made, uint64_t Content) {
    const TFileTraits Traits = TReadFile(Name).Traits();
    if (Traits.Size != Made.Size || Traits.LastWrite != Made.LastWrite || Traits.Attributes != Made.Attributes)
      return false;
    bool Same = true;
    TReadFile(Name).ReadAll([&](const char* Bytes, size_t Size) {
      Pieces.Read(Content, Same ? Size : 0, [&](const char* Saved, size_t Count) {
        Same = std::memcmp(Bytes, Saved, Count) == 0;
        Bytes += Count;
        return Same;
      });
      Content += Size;
    });
    return Same;
  }

  static void Undo(const TPieceSaved&, uint64_t) {}

  const TKitChanges& Changes;
  TPieceReader Pieces;
};

}  // namespace

HRESULT TKitRollback::Rollback(long Code, GUID DataID) {
  return SafeCall([&] {
    const TRollbackRuns Runs;
    RunRoutine({nullptr, Class().Name}, "Rollback", {Code, DataID}, [&] {
      if (Code != ChangesCode) return;
      TServices Services;
      const TKitChanges Changes = LoadChanges(Services, DataID);
      TUndoing Undoing(Services, Changes);
      if (!Undoing.IsSound()) Refuse(MsgKitDamagedItem, ToWide(GuidText(DataID)));
      Undoing.Run();
    });
  });
}

COCLASS(KitChanges, TKitRollback);
