// File sets: the part of the backup object that saves the files of a mask, with their attributes and times, and brings
// them back. One item for each file, one string item for each folder name, one set item for each folder walked.
// Folders come back by name only; their own attributes and times are not part of a set.

#include "base/paths.h"
#include "rollback/backup.h"
#include "server/arguments.h"

#include <algorithm>

namespace {

uint64_t NumberOf(const FILETIME& Time) {
  return static_cast<uint64_t>(Time.dwHighDateTime) << 32 | Time.dwLowDateTime;
}

/// The names of the files or of the folders that a mask finds. All are found before the first is saved: saving makes
/// items, which a search in the store's own folder would go on to find for ever.
std::vector<std::string> ListEntries(const std::string& Mask, bool Folders) {
  std::vector<std::string> Names;
  ForEachEntry(Mask, [&](const WIN32_FIND_DATAA& Entry) {
    if (IsFolder(Entry) == Folders) Names.push_back(Entry.cFileName);
  });
  return Names;
}

FILETIME TimeOf(uint64_t Number) { return {static_cast<DWORD>(Number), static_cast<DWORD>(Number >> 32)}; }

}  // namespace

HRESULT TUBackup::BackupFiles(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                              VARIANT_BOOL UpperDirName, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall([&] {
    *DataID =
        SaveFiles(FileNameArgument(FileNameMask), {Normal(RecurseSubDir), Normal(DirNames), Normal(UpperDirName)});
  });
}

HRESULT TUBackup::BackupFilesLogged(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                                    VARIANT_BOOL UpperDirName, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall([&] {
    const TFileSetFlags Flags{Normal(RecurseSubDir), Normal(DirNames), Normal(UpperDirName)};
    TLogScope Log(DebugLog.Get(), BackupLogName,
                  LogText("BackupFilesLogged", FileNameMask, Flags.RecurseSubDir, Flags.DirNames, Flags.UpperDirName));
    const GUID NewId = SaveFiles(FileNameArgument(FileNameMask), Flags);
    Record(BackupCode::Files, NewId);
    *DataID = NewId;
    Log.End(LogText("BackupFilesLogged", NewId));
  });
}

GUID TUBackup::SaveFiles(const std::string& Mask, const TFileSetFlags& Flags) {
  TLogScope Log(DebugLog.Get(), BackupLogName,
                LogText("BackupFiles", Mask, Flags.RecurseSubDir, Flags.DirNames, Flags.UpperDirName));
  RequireFolder(Mask);
  TFileSetItem Set;
  const std::string Folder = FolderPart(Mask);
  for (const std::string& Name : ListEntries(Mask, false))
    Set.Files.push_back(BytesOf(SaveFile(WithBackslash(Folder) + Name)));
  if (Flags.UpperDirName) Set.Folders.push_back(BytesOf(SaveString(ToWide(Folder))));
  if (Flags.RecurseSubDir) SaveSubfolders(Mask, Flags, Set);
  TNewItem Item;
  Item.Write(EncodeItem(Set));
  const GUID DataID = Item.Finish();
  Log.End(LogText("BackupFiles", DataID));
  return DataID;
}

void TUBackup::SaveSubfolders(const std::string& Mask, const TFileSetFlags& Flags, TFileSetItem& Set) {
  const std::string Folder = WithBackslash(FolderPart(Mask)), Pattern = NamePart(Mask);
  for (const std::string& Name : ListEntries(Folder + "*.*", true)) {
    const std::string Subfolder = Folder + Name;
    if (Flags.DirNames) Set.Folders.push_back(BytesOf(SaveString(ToWide(Subfolder))));
    const TFileSetFlags Below{Flags.RecurseSubDir, Flags.DirNames, VARIANT_FALSE};
    Set.Subsets.push_back(BytesOf(SaveFiles(Subfolder + "\\" + Pattern, Below)));
  }
}

GUID TUBackup::SaveFile(const std::string& Path) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("BackupFile", Path));
  TSingleFileItem Header;
  Header.Path = Path;
  Header.Attributes = RetryGetFileAttributes(Path);
  TFileHandle Source = RetryCreateFile(Path, GENERIC_READ, 0, OPEN_EXISTING, Header.Attributes);
  const TFileTimes Times = RetryGetFileTime(Path, Source.Get());
  Header.Creation = NumberOf(Times.Creation);
  Header.LastAccess = NumberOf(Times.LastAccess);
  Header.LastWrite = NumberOf(Times.LastWrite);
  TNewItem Item;
  Item.Write(EncodeItem(Header));
  Item.AppendFile(Path, Source.Get());
  RetryCloseHandle(Path, Source);
  const GUID DataID = Item.Finish();
  Log.End(LogText("BackupFile", DataID));
  return DataID;
}

HRESULT TUBackup::RestoreFiles(GUID DataID) {
  return SafeCall([&] {
    std::vector<GUID> Ancestors;
    LoadFiles(DataID, Ancestors);
  });
}

/// `Ancestors` are the sets that are being restored around this one: a damaged set that contains itself would never
/// end.
void TUBackup::LoadFiles(const GUID& DataID, std::vector<GUID>& Ancestors) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("RestoreFiles", DataID));
  const bool Contained = std::find(Ancestors.begin(), Ancestors.end(), DataID) != Ancestors.end();
  TFileSetItem Set;
  TStoredItem Item(DataID);
  if (Contained || !Item.HasKind(FileSetKind) || !Item.ReadFields(Set) || Item.Remaining() != 0)
    FailWithBox(*Dialog, MsgInternalError6);
  // The set has been read; closed before its parts are opened, so that a deep tree does not use up the handles.
  Item.Close();
  Ancestors.push_back(DataID);
  for (const TGuidBytes& Folder : Set.Folders) RetryCreateDirectory(ToAnsi(LoadString(GuidOf(Folder))));
  for (const TGuidBytes& File : Set.Files) LoadFile(GuidOf(File));
  for (const TGuidBytes& Subset : Set.Subsets) LoadFiles(GuidOf(Subset), Ancestors);
  Ancestors.pop_back();
  Log.End(LogText("RestoreFiles"));
}

void TUBackup::LoadFile(const GUID& DataID) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("RestoreFile", DataID));
  TSingleFileItem Header;
  TStoredItem Item(DataID);
  if (!Item.HasKind(SingleFileKind) || !Item.ReadFields(Header) || !Header.Plausible())
    FailWithBox(*Dialog, MsgInternalError4);
  const std::string& Path = Header.Path;
  if (FileExistsByFind(Path))
    RetryDeleteFile(Path);
  else
    RetryForceDirectories(FolderPart(Path));
  TFileHandle File = RetryCreateFile(Path, GENERIC_WRITE, 0, CREATE_NEW, Header.Attributes);
  Item.CopyRest(Path, File.Get());
  Item.Close();
  RetrySetFileTime(Path, File.Get(), {TimeOf(Header.Creation), TimeOf(Header.LastAccess), TimeOf(Header.LastWrite)});
  RetryFlushFileBuffers(Path, File.Get());
  RetryCloseHandle(Path, File);
  Log.End(LogText("RestoreFile", DataID));
}
