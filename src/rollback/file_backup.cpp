// File sets: the part of the backup object that saves the files of a mask, with their attributes and times, and brings
// them back. One item for each file, one string item for each folder name, one set item for each folder walked.
// Folders come back by name only; their own attributes and times are not part of a set.

#include "base/file_time.h"
#include "base/guid.h"
#include "base/paths.h"
#include "base/text.h"
#include "rollback/backup.h"
#include "rollback/backup_store.h"
#include "server/arguments.h"

#include <algorithm>

namespace {

/// The names of the files or of the folders that a mask finds. All are found before the first is saved: saving makes
/// items, which a search in the store's own folder would go on to find for ever.
std::vector<std::string> ListEntries(const std::string& Mask, bool Folders) {
  std::vector<std::string> Names;
  ForEachEntry(Mask, [&](const WIN32_FIND_DATAA& Entry) {
    if (IsFolder(Entry) == Folders) Names.emplace_back(Entry.cFileName);
  });
  return Names;
}

}  // namespace

HRESULT TUBackup::BackupFiles(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                              VARIANT_BOOL UpperDirName, GUID* DataID) {
  return Give(DataID, [&] {
    return SaveFiles(FileNameArgument(FileNameMask),
                     {BooleanArgument(RecurseSubDir), BooleanArgument(DirNames), BooleanArgument(UpperDirName)});
  });
}

HRESULT TUBackup::BackupFilesLogged(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                                    VARIANT_BOOL UpperDirName, GUID* DataID) {
  return Give(DataID, [&] {
    const TFileSetFlags Flags{BooleanArgument(RecurseSubDir), BooleanArgument(DirNames), BooleanArgument(UpperDirName)};
    return Routine("BackupFilesLogged", {FileNameMask, Flags.RecurseSubDir, Flags.DirNames, Flags.UpperDirName}, [&] {
      return SaveLogged(BackupCode::Files, [&] { return SaveFiles(FileNameArgument(FileNameMask), Flags); });
    });
  });
}

GUID TUBackup::SaveFiles(const std::string& Mask, const TFileSetFlags& Flags) const {
  return Routine("BackupFiles", {Mask, Flags.RecurseSubDir, Flags.DirNames, Flags.UpperDirName}, [&] {
    RequireFolderInMask(Mask);
    TFileSetItem Set;
    const std::string Folder = FolderPart(Mask);
    for (const std::string& Name : ListEntries(Mask, false))
      Set.Files.push_back(BytesOf(SaveFile(WithBackslash(Folder) + Name)));
    if (Flags.UpperDirName) Set.Folders.push_back(BytesOf(SaveString(ToWide(Folder))));
    if (Flags.RecurseSubDir) SaveSubfolders(Mask, Flags, Set);
    return SaveItem(Set);
  });
}

void TUBackup::SaveSubfolders(const std::string& Mask, const TFileSetFlags& Flags, TFileSetItem& Set) const {
  const std::string Folder = WithBackslash(FolderPart(Mask)), Pattern = NamePart(Mask);
  for (const std::string& Name : ListEntries(Folder + "*.*", true)) {
    const std::string Subfolder = Folder + Name;
    if (Flags.DirNames) Set.Folders.push_back(BytesOf(SaveString(ToWide(Subfolder))));
    const TFileSetFlags Below{Flags.RecurseSubDir, Flags.DirNames, VARIANT_FALSE};
    Set.Subsets.push_back(BytesOf(SaveFiles(Subfolder + "\\" + Pattern, Below)));
  }
}

GUID TUBackup::SaveFile(const std::string& Path) const {
  return Routine("BackupFile", {Path}, [&] {
    TSingleFileItem Header;
    Header.Path = Path;
    Header.Attributes = RetryGetFileAttributes(Path);
    TOpenFile Source = RetryCreateFile(Path, GENERIC_READ, 0, OPEN_EXISTING, Header.Attributes);
    const TFileTimes Times = RetryGetFileTime(Source);
    Header.Creation = TicksOf(Times.Creation);
    Header.LastAccess = TicksOf(Times.LastAccess);
    Header.LastWrite = TicksOf(Times.LastWrite);
    TNewItem Item(Header);
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
    for (const TGuidBytes& Folder : Set.Folders) RetryCreateDirectory(ToAnsi(LoadString(GuidOf(Folder))));
    for (const TGuidBytes& File : Set.Files) LoadFile(GuidOf(File));
    for (const TGuidBytes& Subset : Set.Subsets) LoadFiles(GuidOf(Subset), Ancestors);
  });
}

void TUBackup::LoadFile(const GUID& DataID) const {
  Routine("RestoreFile", {DataID}, [&] {
    TSingleFileItem Header;
    TStoredItem Item(DataID);
    if (!Item.ReadFields(Header)) FailWithBox(Use<IUDialog>(), MsgInternalError4);
    const std::string& Path = Header.Path;
    if (FileExistsByFind(Path))
      RetryDeleteFile(Path);
    else
      RetryForceDirectories(FolderPart(Path));
    TOpenFile File = RetryCreateFile(Path, GENERIC_WRITE, 0, CREATE_NEW, Header.Attributes);
    Item.CopyRest(File);
    Item.Close();
    RetrySetFileTime(File, {FileTimeOf(Header.Creation), FileTimeOf(Header.LastAccess), FileTimeOf(Header.LastWrite)});
    RetryFlushFileBuffers(File);
    RetryCloseHandle(File);
    return DataID;
  });
}
