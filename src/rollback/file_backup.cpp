// File sets: the part of the backup object that saves the files of a mask, with their attributes and times, and brings
// them back. One item for each file, one string item for each folder name, one set item for each folder walked.
// Folders come back by name only; their own attributes and times are not part of a set.

#include "base/data_folders.h"
#include "base/file_time.h"
#include "base/folder_content.h"
#include "base/guid.h"
#include "base/paths.h"
#include "base/text.h"
#include "retry/folder_walk.h"
#include "rollback/backup.h"
#include "rollback/backup_store.h"
#include "server/arguments.h"

#include <algorithm>

namespace {

/// The names of the files or of the folders that a mask finds. All are found before the first is saved. What cannot be
/// saved fails before anything is: a file that is a link would come back as a file. Folders that are links are left
/// out.
std::vector<std::string> ListEntries(const std::string& Mask, bool Folders) {
  const std::string Folder = WithBackslash(FolderPart(Mask));
  std::vector<std::string> Names;
  const std::vector<TUnnamed> Unnamed = ForEachEntry(Mask, [&](const WIN32_FIND_DATAA& Entry) {
    if (IsFolder(Entry) != Folders || (Folders && IsLink(Entry))) return;
    if (IsLink(Entry))
      FailureStep(ERROR_CANT_RESOLVE_FILENAME, FormatMessageText(MsgLinkNotSaved, Folder + Entry.cFileName));
    Names.emplace_back(Entry.cFileName);
  });
  for (const TUnnamed& Entry : Unnamed)
    if (Entry.Folder == Folders)
      FailureStep(ERROR_NO_UNICODE_TRANSLATION, FormatWideMessage(MsgEntryNotSaved, ToWide(Folder) + Entry.Name));
  return Names;
}

/// The folders that a saving walk of this depth found on its way to a file, held, so that no link takes their place
/// while the file comes back. One that is a link by now would lead to another place: the user can remove it.
std::vector<THeldFolder> HoldFolders(const std::string& Path, size_t Depth) {
  std::vector<std::string> Names;
  for (std::string Folder = FolderPart(Path); Names.size() < Depth; Folder = FolderPart(Folder))
    Names.insert(Names.begin(), Folder);
  std::vector<THeldFolder> Held;
  for (const std::string& Name : Names) {
    TRetryCall(Unnumbered)
        .Until(
            [&] {
              return TOutcome{!IsLink(ToWide(Name)), ERROR_CANT_RESOLVE_FILENAME};
            },
            MsgLinkInTheWay, Path);
    Held.emplace_back(Name);
    if (!Held.back().IsFolder() && !IsMissing(Name))
      FailureStep(ERROR_CANT_RESOLVE_FILENAME, FormatMessageText(MsgLinkInTheWay, Path));
  }
  return Held;
}

/// Whether a file that cannot be replaced now, because somebody runs or reads it, is what the item would make of it.
/// Its times are set, as far as that is possible.
bool IsAlreadyAsSaved(TStoredItem& Item, const TSingleFileItem& Header, const TFileTimes& Times) {
  constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const auto Open = [&](DWORD Access) {
    return TFileHandle(CreateFileA(Header.Path.c_str(), Access, ShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  };
  // A module that is loaded can be opened for deletion, but not for writing, and is not deleted.
  const bool InUse = !Open(FILE_WRITE_DATA | DELETE);
  const TFileHandle Existing = InUse ? Open(GENERIC_READ) : TFileHandle();
  if (!Item.CheckRest(Existing.Get()) || GetFileAttributesA(Header.Path.c_str()) != Header.Attributes) return false;
  const TFileHandle ForTimes = Open(FILE_WRITE_ATTRIBUTES);
  if (ForTimes) SetFileTime(ForTimes.Get(), &Times.Creation, &Times.LastAccess, &Times.LastWrite);
  return true;
}

}  // namespace

HRESULT TUBackup::BackupFiles(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                              VARIANT_BOOL UpperDirName, GUID* DataID) {
  return Give(DataID, [&] {
    return SaveMask(FileNameMask,
                    {BooleanArgument(RecurseSubDir), BooleanArgument(DirNames), BooleanArgument(UpperDirName)});
  });
}

HRESULT TUBackup::BackupFilesLogged(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                                    VARIANT_BOOL UpperDirName, GUID* DataID) {
  return Give(DataID, [&] {
    const TFileSetFlags Flags{BooleanArgument(RecurseSubDir), BooleanArgument(DirNames), BooleanArgument(UpperDirName)};
    return Routine("BackupFilesLogged", {FileNameMask, Flags.RecurseSubDir, Flags.DirNames, Flags.UpperDirName},
                   [&] { return SaveLogged(BackupCode::Files, [&] { return SaveMask(FileNameMask, Flags); }); });
  });
}

GUID TUBackup::SaveMask(BSTR FileNameMask, const TFileSetFlags& Flags) const {
  return SaveFiles(MaskArgument(FileNameMask), Flags);
}

GUID TUBackup::SaveFiles(const std::string& Mask, const TFileSetFlags& Flags, bool Subfolder) const {
  return Routine("BackupFiles", {Mask, Flags.RecurseSubDir, Flags.DirNames, Flags.UpperDirName}, [&] {
    RequireFolderInMask(Mask);
    RequireRoot(Mask);
    TFileSetItem Set;
    const std::string Folder = FolderPart(Mask);
    const THeldFolder Held(Folder);
    if (Subfolder && !Held.IsFolder()) return SaveItem(Set, Folder);  // it was one when it was found
    if (!Subfolder) RequireOutsideOwnFolders(Mask, Flags.RecurseSubDir != VARIANT_FALSE);
    for (const std::string& Name : ListEntries(Mask, false))
      Set.Files.push_back(BytesOf(SaveFile(WithBackslash(Folder) + Name)));
    // A folder that is not there must not come back.
    if (Flags.UpperDirName && !IsMissing(Folder)) Set.Folders.push_back(BytesOf(SaveString(ToWide(Folder))));
    if (Flags.RecurseSubDir) SaveSubfolders(Mask, Flags, Set);
    return SaveItem(Set, Folder);
  });
}

void TUBackup::SaveSubfolders(const std::string& Mask, const TFileSetFlags& Flags, TFileSetItem& Set) const {
  const std::string Folder = WithBackslash(FolderPart(Mask)), Pattern = NamePart(Mask);
  for (const std::string& Name : ListEntries(Folder + "*.*", true)) {
    const std::string Subfolder = Folder + Name;
    if (Flags.DirNames) Set.Folders.push_back(BytesOf(SaveString(ToWide(Subfolder))));
    const TFileSetFlags Below{Flags.RecurseSubDir, Flags.DirNames, VARIANT_FALSE};
    Set.Subsets.push_back(BytesOf(SaveFiles(Subfolder + "\\" + Pattern, Below, true)));
  }
}

GUID TUBackup::SaveFile(const std::string& Path) const {
  return Routine("BackupFile", {Path}, [&] {
    TSingleFileItem Header;
    Header.Path = Path;
    Header.Attributes = RetryGetFileAttributes(Path);
    TOpenFile Source = RetryCreateFile(Path, GENERIC_READ, 0, OPEN_EXISTING, OpenFlagsOf(Header.Attributes));
    const TFileTimes Times = RetryGetFileTime(Source);
    Header.Creation = TicksOf(Times.Creation);
    Header.LastAccess = TicksOf(Times.LastAccess);
    Header.LastWrite = TicksOf(Times.LastWrite);
    TNewItem Item(Header, Path);
    Item.Append(Source);
    RetryCloseHandle(Source);
    return Item.Finish();
  });
}

HRESULT TUBackup::RestoreFiles(GUID DataID) {
  return SafeCall([&] { LoadFiles(DataID); });
}

void TUBackup::LoadFiles(const GUID& DataID, std::vector<GUID> Ancestors) const {
  Routine("RestoreFiles", {DataID}, [&] {
    const bool Contained = std::find(Ancestors.begin(), Ancestors.end(), DataID) != Ancestors.end();
    TFileSetItem Set;
    TStoredItem Item(DataID);
    if (Contained || !Item.ReadFields(Set) || Item.Remaining() != 0) FailWithBox(Use<IUDialog>(), MsgInternalError6);
    // The set has been read; closed before its parts are opened, so that a deep tree does not use up the handles.
    Item.Close();
    Ancestors.push_back(DataID);
    const size_t Depth = Ancestors.size() - 1;
    for (const TGuidBytes& Folder : Set.Folders) {
      const std::string Name = LoadString(GuidOf(Folder));
      const std::vector<THeldFolder> Held = HoldFolders(Name, Depth);
      if (!IsInCodePage(Name)) FailWithBox(Use<IUDialog>(), MsgInternalError6);
      if (!IsRoot(Name)) RetryCreateDirectory(Name);
    }
    for (const TGuidBytes& File : Set.Files) LoadFile(GuidOf(File), Depth);
    for (const TGuidBytes& Subset : Set.Subsets) LoadFiles(GuidOf(Subset), Ancestors);
  });
}

void TUBackup::LoadFile(const GUID& DataID, size_t Depth) const {
  Routine("RestoreFile", {DataID}, [&](TRoutine& Lines) {
    TSingleFileItem Header;
    TStoredItem Item(DataID);
    Lines.EndsWith({DataID});
    if (!Item.ReadFields(Header) || !IsInCodePage(Header.Path)) FailWithBox(Use<IUDialog>(), MsgInternalError4);
    const std::string& Path = Header.Path;
    const TFileTimes Times{FileTimeOf(Header.Creation), FileTimeOf(Header.LastAccess), FileTimeOf(Header.LastWrite)};
    const std::vector<THeldFolder> Held = HoldFolders(Path, Depth);
    if (!FileExistsByFind(Path)) {
      RetryForceDirectories(FolderPart(Path));
    } else if (IsAlreadyAsSaved(Item, Header, Times)) {
      return Lines.Line(L"Kept", FormatWideMessage(MsgAlreadyAsSaved, ToWide(Path)));
    } else {
      RetryDeleteFile(Path);
    }
    TOpenFile File = RetryCreateFile(Path, GENERIC_WRITE, 0, CREATE_NEW, OpenFlagsOf(Header.Attributes));
    Item.CopyRest(File);
    Item.Close();
    RetrySetFileTime(File, Times);
    RetryFlushFileBuffers(File);
    FlushToDisk(File);
    RetryCloseHandle(File);
  });
}
