#include "changes/file_operations.h"

#include "base/file_version.h"
#include "base/paths.h"
#include "changes/copy_mode.h"
#include "server/arguments.h"
#include "server/environment.h"

#include <optional>
#include <vector>

namespace {

constexpr wchar_t LogName[] = L"UFile";

namespace FileCode {
constexpr long Overwritten = 1, Deleted = 2, Created = 3;
}

uint64_t TicksOf(const FILETIME& Time) { return static_cast<uint64_t>(Time.dwHighDateTime) << 32 | Time.dwLowDateTime; }

/// What a comparison and its question need to know of one file.
struct TFileFacts {
  VS_FIXEDFILEINFO Version{};
  FILETIME LastWrite{};
  DWORD Size = 0;
};

TFileFacts VersionFacts(const std::string& Name) {
  TFileFacts Facts;
  Facts.Version = GetFileVersionFixedInfo(Name);
  return Facts;
}

FILETIME LastWriteOf(const std::string& Name) {
  TFileHandle File = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
  const TFileTimes Times = RetryGetFileTime(Name, File.Get());
  RetryCloseHandle(Name, File);
  return Times.LastWrite;
}

TFileFacts TimeFacts(const std::string& Name) {
  TFileFacts Facts;
  const DWORD Attributes = RetryGetFileAttributes(Name);
  TFileHandle File = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING, Attributes);
  Facts.LastWrite = RetryGetFileTime(Name, File.Get()).LastWrite;
  Facts.Size = RetryGetFileSize(Name, File.Get());
  RetryCloseHandle(Name, File);
  return Facts;
}

/// What tells one file of a machine from another; all zero when it cannot be read.
BY_HANDLE_FILE_INFORMATION IdentityOf(const std::string& Name) {
  BY_HANDLE_FILE_INFORMATION Identity{};
  const TFileHandle File(CreateFileA(Name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                     OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (File) GetFileInformationByHandle(File.Get(), &Identity);
  return Identity;
}

/// Clearing the way would delete the source. A plain test before the change; it shows and logs nothing.
void RequireDifferentFiles(const std::string& Source, const std::string& Dest) {
  const auto Left = IdentityOf(Source), Right = IdentityOf(Dest);
  const bool Known = Left.nFileIndexLow != 0 || Left.nFileIndexHigh != 0;
  if (Known && Left.dwVolumeSerialNumber == Right.dwVolumeSerialNumber && Left.nFileIndexHigh == Right.nFileIndexHigh &&
      Left.nFileIndexLow == Right.nFileIndexLow)
    throw EFailure(E_INVALIDARG, ToWide("Cannot copy '" + Source + "' onto itself."));
}

}  // namespace

void TUFile::Initialize() {
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Dialog = ActiveOrNew<IUDialog>(CLSID_UDialog);
  Backup = ActiveOrNew<IUBackup>(CLSID_UBackup);
  TransactionLog = ActiveOrNew<IUTransactionLog>(CLSID_UTransactionLog);
}

void TUFile::Record(long Code, const GUID& DataID) { CheckCall(TransactionLog->Put(CLSID_UFile, Code, DataID)); }

// ---- Deleting

HRESULT TUFile::DeleteFiles(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir,
                            VARIANT_BOOL DeleteUpperDir) {
  return SafeCall([&] { DeleteMatching(FileNameMask, {RecurseSubDir, DeleteEmptyDir, DeleteUpperDir}); });
}

HRESULT TUFile::DeleteFilesLogged(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir,
                                  VARIANT_BOOL DeleteUpperDir) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName,
                  LogText("DeleteFilesLogged", FileNameMask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir));
    RequireFolder(FileNameArgument(FileNameMask));
    GUID DataID{};
    CheckCall(Backup->BackupFiles(FileNameMask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir, &DataID));
    Record(FileCode::Deleted, DataID);
    DeleteMatching(FileNameMask, {RecurseSubDir, DeleteEmptyDir, DeleteUpperDir});
    Log.End(LogText("DeleteFilesLogged", DataID));
  });
}

void TUFile::DeleteMatching(BSTR FileNameMask, const TDeleteFlags& Flags) {
  TLogScope Log(DebugLog.Get(), LogName,
                LogText("DeleteFiles", FileNameMask, Flags.RecurseSubDir, Flags.DeleteEmptyDir, Flags.DeleteUpperDir));
  const std::string Mask = FileNameArgument(FileNameMask);
  RequireFolder(Mask);
  DeleteSomeFiles(Mask, Flags);
  if (Flags.DeleteUpperDir) DeleteEmptyDirectory(FolderPart(Mask));
  Log.End(LogText("DeleteFiles"));
}

void TUFile::DeleteSomeFiles(const std::string& Mask, const TDeleteFlags& Flags) {
  TLogScope Log(DebugLog.Get(), LogName, LogText("DeleteSomeFiles", Mask, Flags.RecurseSubDir, Flags.DeleteEmptyDir));
  const std::string Folder = WithBackslash(FolderPart(Mask));
  ForEachEntry(Mask, [&](const WIN32_FIND_DATAA& Entry) {
    if (!IsFolder(Entry)) RetryDeleteFile(Folder + Entry.cFileName);
  });
  if (Flags.RecurseSubDir) DeleteInSubfolders(Mask, Flags);
  Log.End(LogText("DeleteSomeFiles"));
}

void TUFile::DeleteInSubfolders(const std::string& Mask, const TDeleteFlags& Flags) {
  const std::string Folder = WithBackslash(FolderPart(Mask)), Pattern = NamePart(Mask);
  std::vector<std::string> Subfolders;
  ForEachEntry(Folder + "*.*", [&](const WIN32_FIND_DATAA& Entry) {
    if (IsFolder(Entry)) Subfolders.push_back(Folder + Entry.cFileName);
  });
  for (const std::string& Subfolder : Subfolders) {
    DeleteSomeFiles(Subfolder + "\\" + Pattern, Flags);
    if (Flags.DeleteEmptyDir) DeleteEmptyDirectory(Subfolder);
  }
}

void TUFile::DeleteEmptyDirectory(const std::string& Folder) {
  TLogScope Log(DebugLog.Get(), LogName, LogText("DeleteEmptyDirectory", Folder));
  int Entries = 0;
  ForEachEntry(Folder + "\\*.*", [&](const WIN32_FIND_DATAA&) { ++Entries; });
  // A folder that does not exist counts none either; its removal then fails, and the user hears of it.
  if (Entries == 0) RetryDeleteDirectory(Folder);
  Log.End(LogText("DeleteEmptyDirectory"));
}

// ---- Copying

HRESULT TUFile::CopyFile(BSTR SourceFileName, BSTR DestFileName, long CopyMode) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("CopyFile", SourceFileName, DestFileName));
    CopySomeFile(FileNameArgument(SourceFileName), FileNameArgument(DestFileName), CopyMode, false);
    Log.End(LogText("CopyFile"));
  });
}

HRESULT TUFile::CopyFileLogged(BSTR SourceFileName, BSTR DestFileName, long CopyMode) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("CopyFileLogged", SourceFileName, DestFileName));
    CopySomeFile(FileNameArgument(SourceFileName), FileNameArgument(DestFileName), CopyMode, true);
    Log.End(LogText("CopyFileLogged"));
  });
}

void TUFile::CopySomeFile(const std::string& Source, const std::string& Dest, long CopyMode, bool Logged) {
  TLogScope Log(DebugLog.Get(), LogName, LogText("CopySomeFile", Source, Dest, Logged));
  GUID DataID{};
  const bool Exists = FileExistsByFind(Dest);
  if (!Exists || DecideOverwrite(Source, Dest, CopyMode)) {
    if (Exists) RequireDifferentFiles(Source, Dest);
    // Where nothing else has looked at the source yet, it is opened before the destination goes: a missing or locked
    // source must not cost the destination.
    std::optional<TSource> Open;
    if (Exists && CopyRuleOf(CopyMode).Compare == TCopyRule::Always) Open = OpenSource(Source);
    DataID = Exists ? ClearExisting(Dest, Logged) : PrepareNew(Dest, Logged);
    if (!Open) Open = OpenSource(Source);
    CopyContent(Source, *Open, Dest);
  }
  Log.End(LogText("CopySomeFile", DataID));
}

bool TUFile::DecideOverwrite(const std::string& Source, const std::string& Dest, long CopyMode) {
  const TCopyRule Rule = CopyRuleOf(CopyMode);
  if (Rule.Compare == TCopyRule::Always) return true;
  if (Rule.Compare == TCopyRule::Never) return false;

  if (Rule.Compare == TCopyRule::ByVersion) {
    TFileFacts New = VersionFacts(Source), Old = VersionFacts(Dest);
    // Read in every case: a file that somebody holds open shows here, before anything is changed.
    New.LastWrite = LastWriteOf(Source);
    Old.LastWrite = LastWriteOf(Dest);
    if (ProductVersion(New.Version) > ProductVersion(Old.Version)) return true;
    return Rule.AsksOtherwise && Ask(FormatMessageText(MsgOverwriteByVersion, Dest, FormatFileVersion(Old.Version),
                                                       DateTimeText(Old.LastWrite), Source,
                                                       FormatFileVersion(New.Version), DateTimeText(New.LastWrite)));
  }
  const TFileFacts New = TimeFacts(Source), Old = TimeFacts(Dest);
  if (static_cast<int64_t>(TicksOf(New.LastWrite)) > static_cast<int64_t>(TicksOf(Old.LastWrite))) return true;
  return Rule.AsksOtherwise &&
         Ask(FormatMessageText(MsgOverwriteBySize, Dest, std::to_string(Old.Size), DateTimeText(Old.LastWrite), Source,
                               std::to_string(New.Size), DateTimeText(New.LastWrite)));
}

bool TUFile::Ask(const std::string& Question) {
  long Answer = 0;
  CheckCall(Dialog->ShowMsgBox(MakeBstr(ToWide(Question)).Get(), MakeBstr(ToWide(LoadMessage(MsgConfirmation))).Get(),
                               MB_YESNO | MB_ICONQUESTION, &Answer));
  return Answer == IDYES;
}

GUID TUFile::ClearExisting(const std::string& Dest, bool Logged) {
  GUID DataID{};
  if (Logged) {
    CheckCall(Backup->BackupFiles(MakeBstr(ToWide(Dest)).Get(), VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE, &DataID));
    Record(FileCode::Overwritten, DataID);
  }
  RetryDeleteFile(Dest);
  return DataID;
}

GUID TUFile::PrepareNew(const std::string& Dest, bool Logged) {
  GUID DataID{};
  if (Logged) {
    CheckCall(Backup->BackupString(MakeBstr(ToWide(Dest)).Get(), &DataID));
    Record(FileCode::Created, DataID);
    RetryForceDirectories(FolderPart(Dest));
  }
  return DataID;
}

TUFile::TSource TUFile::OpenSource(const std::string& Name) {
  TSource Source{};
  Source.Attributes = RetryGetFileAttributes(Name);
  Source.Handle = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING, Source.Attributes);
  Source.Times = RetryGetFileTime(Name, Source.Handle.Get());
  return Source;
}

void TUFile::CopyContent(const std::string& SourceName, TSource& Source, const std::string& Dest) {
  TFileHandle File = RetryCreateFile(Dest, GENERIC_WRITE, 0, CREATE_NEW, Source.Attributes);
  RetryReadAndAppendFile(SourceName, Dest, Source.Handle.Get(), File.Get());
  RetryCloseHandle(SourceName, Source.Handle);
  RetrySetFileTime(Dest, File.Get(), Source.Times);
  RetryFlushFileBuffers(Dest, File.Get());
  RetryCloseHandle(Dest, File);
}

// ---- Undoing

HRESULT TUFile::Rollback(long Code, GUID DataID) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("Rollback", Code, DataID));
    if (Code == FileCode::Overwritten || Code == FileCode::Deleted) {
      CheckCall(Backup->RestoreFiles(DataID));
    } else if (Code == FileCode::Created) {
      // Folders that the copy created stay: something else may use them by now.
      TBstr Name;
      CheckCall(Backup->RestoreString(DataID, Name.Out()));
      const std::string File = ToAnsi(ViewOf(Name.Get()));
      if (FileExistsByFind(File)) RetryDeleteFile(File);
    }
    Log.End(LogText("Rollback"));
  });
}

TAutoObjectBase* CreateUFile(TVersionedAutoObjectFactory& Factory) { return new TUFile(Factory); }
