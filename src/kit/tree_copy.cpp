#include "kit/tree_copy.h"

#include "base/data_folders.h"
#include "base/error_code.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "base/file_time.h"
#include "base/file_version.h"
#include "base/folder_content.h"
#include "base/text.h"
#include "formats/copy_mode.h"
#include "formats/crc32.h"
#include "kit/asked_step.h"
#include "kit/change_items.h"
#include "kit/held_way.h"
#include "kit/kit_messages.h"
#include "kit/names.h"
#include "kit/plain_file.h"
#include "server/routine.h"
#include "server/service_calls.h"

#include <memory>
#include <optional>
#include <set>
#include <utility>

namespace {

[[noreturn]] void Fail(DWORD Code, const std::wstring& Text) {
  throw EFailure(MakeErrorHResult(static_cast<int32_t>(Code)), Text);
}

/// One file that is copied.
struct TPlannedFile {
  std::wstring Source, Dest;
  size_t Depth = 0;
  bool Replaces = false;
  uint64_t Size = 0;  ///< of a file that is made, which must be what was recorded
  uint32_t Crc = 0;
};

/// What becomes of a destination that exists.
class TOverwriting {
 public:
  explicit TOverwriting(long Mode) : Rule(CopyRuleOf(static_cast<int32_t>(Mode))) {}

  bool MayReplace(const std::wstring& Source, const std::wstring& Dest) const {
    if (Rule.Compare == TCopyRule::Always) return true;
    if (Rule.Compare == TCopyRule::Never) return false;
    const std::string New = LossyAnsi(Source), Old = LossyAnsi(Dest);  // exact: the names were looked at
    return Rule.Compare == TCopyRule::ByVersion ? ByVersion(New, Old) : ByTime(New, Old);
  }

 private:
  static TFileTraits TraitsOf(const std::string& Name) { return TReadFile(ToWide(Name)).Traits(); }
  static std::string TimeText(const TFileTraits& Traits) { return DateTimeText(FileTimeOf(Traits.LastWrite)); }

  bool ByVersion(const std::string& New, const std::string& Old) const {
    const VS_FIXEDFILEINFO NewInfo = GetFileVersionFixedInfo(New), OldInfo = GetFileVersionFixedInfo(Old);
    if (ProductVersion(NewInfo) > ProductVersion(OldInfo)) return true;
    return Rule.AsksOtherwise &&
           Ask(FormatMessageText(MsgOverwriteByVersion, Old, FormatFileVersion(OldInfo), TimeText(TraitsOf(Old)), New,
                                 FormatFileVersion(NewInfo), TimeText(TraitsOf(New))));
  }
  bool ByTime(const std::string& New, const std::string& Old) const {
    const TFileTraits NewTraits = TraitsOf(New), OldTraits = TraitsOf(Old);
    if (static_cast<int64_t>(NewTraits.LastWrite) > static_cast<int64_t>(OldTraits.LastWrite)) return true;
    return Rule.AsksOtherwise &&
           Ask(FormatMessageText(MsgOverwriteBySize, Old, std::to_string(OldTraits.Size), TimeText(OldTraits), New,
                                 std::to_string(NewTraits.Size), TimeText(NewTraits)));
  }
  static bool Ask(const std::string& Question) {
    return DialogShowMsgBox(Question, MsgConfirmation, MB_YESNO | MB_ICONQUESTION) == IDYES;
  }

  const TCopyRule Rule;
};

/// The copy, from the first look to the last file.
class TCopying {
 public:
  TCopying(TServices& Services, const TTreeCopy& Copy)
      : Services(Services), Copy(Copy), Overwriting(Copy.Mode), Saved(Services) {}

  std::wstring Run() {
    Walk(Copy.Source, Copy.Dest, L"", 0);
    RequireOtherFiles();
    TKitChanges Changes;
    for (const std::wstring& Folder : Folders) Changes.push_back(TFolderMade{Utf8Of(Folder)});
    Changes.insert(Changes.end(), FileChanges.begin(), FileChanges.end());
    Saved.Finish(Changes);
    RecordChanges(Services, Changes);
    MakeFolders(Folders);
    for (const TPlannedFile& File : Files) CopyOne(File);
    FinishWritten();
    return std::move(Told);
  }

 private:
  // ---- Looking

  /// A folder that is not there any more is no empty one: files that nobody copied must not go unnoticed.
  static std::vector<TFolderEntry> List(const std::wstring& Mask) {
    for (;;) {
      std::vector<TFolderEntry> Found;
      const DWORD Code = ListFolder(Mask, Found);
      if (Code == ERROR_SUCCESS || Code == ERROR_FILE_NOT_FOUND) return Found;
      AskOrFail(Code, FormatMessageText(MsgCannotStartSearch, LossyAnsi(Mask)));
    }
  }

  bool TakesAll() const { return Copy.Mask.empty() || Copy.Mask == L"*" || Copy.Mask == L"*.*"; }

  void Walk(const std::wstring& Source, const std::wstring& Dest, const std::wstring& Prefix, size_t Depth) {
    const auto Everything = List(Under(Source, L"*"));
    const auto Matching = TakesAll() ? Everything : List(Under(Source, Copy.Mask));
    if (AreOneFile(FactsOfFolder(Source), FactsOfFolder(Dest))) Refuse(MsgCopyOntoItself, Source);
    if (Depth > 0 && IsLink(Dest)) Fail(ERROR_CANT_RESOLVE_FILENAME, FormatWideMessage(MsgLinkInTheWay, Dest));
    bool Wanted = TakesAll();
    for (const TFolderEntry& Entry : Matching) Wanted = Wanted || !IsFolder(Entry);
    if (Wanted) WantFolder(Dest);
    for (const TFolderEntry& Entry : Matching)
      if (!IsFolder(Entry))
        PlanFile(Under(Source, Exact(Entry.Name)), Under(Dest, Entry.Name), Prefix + Entry.Name, Depth);
    for (const TFolderEntry& Entry : Everything)
      if (IsFolder(Entry) && !IsLink(Entry))
        Walk(Under(Source, Exact(Entry.Name)), Under(Dest, Entry.Name), Prefix + Entry.Name + L"\\", Depth + 1);
  }

  static BY_HANDLE_FILE_INFORMATION FactsOfFolder(const std::wstring& Folder) {
    return FactsOf(TFileHandle(OpenToAsk(LossyAnsi(Folder))).Get());
  }

  /// No file is the source of one copy and the destination of another, as between a folder and one in it.
  void RequireOtherFiles() const {
    const auto Folded = [](std::wstring Name) {
      CharUpperBuffW(Name.data(), static_cast<DWORD>(Name.size()));
      return Name;
    };
    std::set<std::wstring> Sources;
    for (const TPlannedFile& File : Files) Sources.insert(Folded(File.Source));
    for (const TPlannedFile& File : Files)
      if (Sources.contains(Folded(File.Dest))) Refuse(MsgCopyOntoItself, File.Dest);
  }

  static const std::wstring& Exact(const std::wstring& Name) {
    if (!ExactAnsi(Name)) Fail(ERROR_NO_UNICODE_TRANSLATION, FormatWideMessage(MsgNotInCodePage, Name));
    return Name;
  }

  void WantFolder(const std::wstring& Folder) {
    RequireOutsideOwnFolders(LossyAnsi(Under(Folder, L"*")), false);
    const std::vector<std::wstring> Missing = MissingFolders(Folder);
    const std::wstring Existing = Missing.empty() ? Folder : FolderOf(Missing.front());
    const DWORD Attributes = AttributesOf(Existing);
    if (Attributes == INVALID_FILE_ATTRIBUTES || !(Attributes & FILE_ATTRIBUTE_DIRECTORY))
      Fail(ERROR_ALREADY_EXISTS, FormatWideMessage(MsgCannotCreateFolder, Existing));
    for (const std::wstring& Name : Missing)
      if (Known.insert(Name).second) Folders.push_back(Name);
  }

  void PlanFile(const std::wstring& Source, const std::wstring& Dest, const std::wstring& Name, size_t Depth) {
    const DWORD Attributes = AttributesOf(Dest);
    const bool Exists = Attributes != INVALID_FILE_ATTRIBUTES;
    if (Exists && (Attributes & FILE_ATTRIBUTE_DIRECTORY))
      Fail(ERROR_ALREADY_EXISTS, FormatWideMessage(MsgCannotCreate, Dest));
    if (Exists && (Attributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsLink(Dest))
      Fail(ERROR_CANT_RESOLVE_FILENAME, FormatWideMessage(MsgLinkNotSaved, Dest));
    if (Exists && !Overwriting.MayReplace(Source, Dest)) {
      Told += L"skipped " + Name + L"\r\n";
      return;
    }
    Told += L"copied " + Name + L"\r\n";
    Files.push_back({Source, Dest, Depth, Exists});
    if (Exists)
      PlanReplacement(Files.back());
    else
      PlanNew(Files.back());
  }

  void PlanNew(TPlannedFile& File) {
    const TReadFile Source(File.Source);
    Source.ReadAll([&](const char* Bytes, size_t Size) {
      File.Crc = Crc32(Bytes, Size, File.Crc);
      File.Size += Size;
    });
    FileChanges.push_back(
        TFileMade{Utf8Of(File.Dest), Utf8Of(Ending), static_cast<uint32_t>(File.Depth), File.Size, File.Crc});
  }

  void PlanReplacement(const TPlannedFile& File) {
    const TReadFile Old(File.Dest);
    const TFileTraits Traits = Old.Traits();
    uint64_t Read = 0;
    Old.ReadAll([&](const char* Bytes, size_t Size) {
      Saved.Append(Bytes, Size);
      Read += Size;
    });
    FileChanges.push_back(TFileReplaced{Utf8Of(File.Dest), Utf8Of(Ending), static_cast<uint32_t>(File.Depth),
                                        Traits.Attributes, Traits.Creation, Traits.LastAccess, Traits.LastWrite, Read});
  }

  // ---- Copying

  void CopyOne(const TPlannedFile& File) {
    if (FolderOf(File.Dest) != HeldFolder) {
      FinishWritten();
      Way.emplace(File.Dest, File.Depth);
      HeldFolder = FolderOf(File.Dest);
    }
    if (!Way->IsPlain()) Fail(ERROR_CANT_RESOLVE_FILENAME, FormatWideMessage(MsgLinkInTheWay, File.Dest));
    const TReadFile Source(File.Source);
    const TFileTraits Traits = Source.Traits();
    Written.push_back({std::make_unique<TNewFile>(File.Dest, Ending, Traits.Attributes), File.Replaces});
    TNewFile& Dest = *Written.back().File;
    uint64_t Size = 0;
    uint32_t Crc = 0;
    Source.ReadAll([&](const char* Bytes, size_t Count) {
      Dest.Append(Bytes, Count);
      Crc = Crc32(Bytes, Count, Crc);
      Size += Count;
    });
    if (!File.Replaces && (Size != File.Size || Crc != File.Crc))
      Fail(ERROR_FILE_INVALID, FormatWideMessage(MsgKitSourceChanged, File.Source));
    Dest.SetTimes(Traits);
    if (Written.size() == MostWritten) FinishWritten();
  }

  /// Brought to the disk one after the other, they take less time than each by itself.
  void FinishWritten() {
    for (const TWritten& Each : Written) Each.File->Flush();
    for (const TWritten& Each : Written) Each.File->TakeName(Each.Replaces);
    Written.clear();
  }

  /// What no other copy has.
  static std::wstring NewEnding() {
    GUID Id{};
    CheckSystemCall(CoCreateGuid(&Id));
    return L"." + std::to_wstring(Id.Data1) + L".part";
  }

  TServices& Services;
  const TTreeCopy& Copy;
  const TOverwriting Overwriting;
  const std::wstring Ending = NewEnding();
  std::vector<std::wstring> Folders;  ///< that are made
  std::set<std::wstring> Known;
  std::vector<TPlannedFile> Files;
  TKitChanges FileChanges;
  TPieceWriter Saved;
  std::wstring Told;
  static constexpr size_t MostWritten = 64;
  struct TWritten {
    std::unique_ptr<TNewFile> File;
    bool Replaces;
  };
  std::vector<TWritten> Written;  ///< and not under their names yet; all in the held folder
  std::wstring HeldFolder;
  std::optional<THeldWay> Way;
};

}  // namespace

std::wstring CopyTreeRecorded(TServices& Services, const TTreeCopy& Copy) { return TCopying(Services, Copy).Run(); }
