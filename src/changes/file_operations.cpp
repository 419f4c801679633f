#include "changes/file_operations.h"

#include "base/failure.h"
#include "base/file_time.h"
#include "base/file_version.h"
#include "base/paths.h"
#include "base/text.h"
#include "changes/copy_mode.h"
#include "server/arguments.h"
#include "server/service_calls.h"

#include <optional>
#include <vector>

namespace {

namespace FileCode {
constexpr long Overwritten = 1, Deleted = 2, Created = 3;
}

/// What a comparison by time and its question need to know of one file.
struct TFileFacts {
  FILETIME LastWrite;
  DWORD Size;
};

FILETIME LastWriteOf(const std::string& Name) {
  TOpenFile File = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING);
  const TFileTimes Times = RetryGetFileTime(File);
  RetryCloseHandle(File);
  return Times.LastWrite;
}

TFileFacts FactsOf(const std::string& Name) {
  const DWORD Attributes = RetryGetFileAttributes(Name);
  TOpenFile File = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING, Attributes);
  const TFileFacts Facts{RetryGetFileTime(File).LastWrite, RetryGetFileSize(File)};
  RetryCloseHandle(File);
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
    Refuse(MsgCopyOntoItself, ToWide(Source));
}

std::string MaskArgument(BSTR FileNameMask) {
  std::string Mask = FileNameArgument(FileNameMask);
  RequireFolderInMask(Mask);
  return Mask;
}

}  // namespace

// ---- Deleting

HRESULT TUFile::DeleteFiles(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir,
                            VARIANT_BOOL DeleteUpperDir) {
  const TDeleteFlags Flags{RecurseSubDir, DeleteEmptyDir, DeleteUpperDir};
  return Method("DeleteFiles", {FileNameMask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir},
                [&] { DeleteMatching(MaskArgument(FileNameMask), Flags); });
}

HRESULT TUFile::DeleteFilesLogged(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir,
                                  VARIANT_BOOL DeleteUpperDir) {
  const TDeleteFlags Flags{RecurseSubDir, DeleteEmptyDir, DeleteUpperDir};
  return Method("DeleteFilesLogged", {FileNameMask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir},
                [&](TRoutine& Lines) {
                  const std::string Mask = MaskArgument(FileNameMask);
                  const GUID DataID = MakeChange(
                      TForm::Logged, FileCode::Deleted,
                      [&] { return Store().SaveFiles(Mask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir); },
                      [&] {
                        Routine("DeleteFiles", {Mask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir},
                                [&] { DeleteMatching(Mask, Flags); });
                      });
                  Lines.EndsWith({DataID});
                });
}

void TUFile::DeleteMatching(const std::string& Mask, const TDeleteFlags& Flags) const {
  DeleteSomeFiles(Mask, Flags);
  if (Flags.DeleteUpperDir) DeleteEmptyDirectory(FolderPart(Mask));
}

void TUFile::DeleteSomeFiles(const std::string& Mask, const TDeleteFlags& Flags) const {
  Routine("DeleteSomeFiles", {Mask, Flags.RecurseSubDir, Flags.DeleteEmptyDir}, [&] {
    const std::string Folder = WithBackslash(FolderPart(Mask));
    ForEachEntry(Mask, [&](const WIN32_FIND_DATAA& Entry) {
      if (!IsFolder(Entry)) RetryDeleteFile(Folder + Entry.cFileName);
    });
    if (Flags.RecurseSubDir) DeleteInSubfolders(Mask, Flags);
  });
}

void TUFile::DeleteInSubfolders(const std::string& Mask, const TDeleteFlags& Flags) const {
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

void TUFile::DeleteEmptyDirectory(const std::string& Folder) const {
  Routine("DeleteEmptyDirectory", {Folder}, [&] {
    int Entries = 0;
    ForEachEntry(Folder + "\\*.*", [&](const WIN32_FIND_DATAA&) { ++Entries; });
    // A folder that does not exist counts none either; its removal then fails, and the user hears of it.
    if (Entries == 0) RetryDeleteDirectory(Folder);
  });
}

// ---- Copying

HRESULT TUFile::CopyFile(BSTR SourceFileName, BSTR DestFileName, long CopyMode) {
  return Method("CopyFile", {SourceFileName, DestFileName}, [&] {
    CopySomeFile(FileNameArgument(SourceFileName), FileNameArgument(DestFileName), CopyMode, TForm::Plain);
  });
}

HRESULT TUFile::CopyFileLogged(BSTR SourceFileName, BSTR DestFileName, long CopyMode) {
  return Method("CopyFileLogged", {SourceFileName, DestFileName}, [&] {
    CopySomeFile(FileNameArgument(SourceFileName), FileNameArgument(DestFileName), CopyMode, TForm::Logged);
  });
}

void TUFile::CopySomeFile(const std::string& Source, const std::string& Dest, long CopyMode, TForm Form) const {
  Routine("CopySomeFile", {Source, Dest, Form == TForm::Logged}, [&] {
    const bool Exists = FileExistsByFind(Dest);
    if (!Exists) return CopyToNew(Source, Dest, Form);
    if (!DecideOverwrite(Source, Dest, CopyMode)) return GUID{};
    return CopyOver(Source, Dest, CopyMode, Form);
  });
}

GUID TUFile::CopyOver(const std::string& Source, const std::string& Dest, long CopyMode, TForm Form) const {
  RequireDifferentFiles(Source, Dest);
  // Where nothing else has looked at the source yet, it is opened before the destination goes: a missing or locked
  // source must not cost the destination.
  std::optional<TSource> Open;
  if (CopyRuleOf(CopyMode).Compare == TCopyRule::Always) Open = OpenSource(Source);
  return MakeChange(
      Form, FileCode::Overwritten, [&] { return Store().SaveFile(Dest); },
      [&] {
        RetryDeleteFile(Dest);
        if (!Open) Open = OpenSource(Source);
        CopyContent(*Open, Dest);
      });
}

GUID TUFile::CopyToNew(const std::string& Source, const std::string& Dest, TForm Form) const {
  return MakeChange(
      Form, FileCode::Created, [&] { return Store().SaveString(Dest); },
      [&] {
        if (Form == TForm::Logged) RetryForceDirectories(FolderPart(Dest));
        TSource Open = OpenSource(Source);
        CopyContent(Open, Dest);
      });
}

bool TUFile::DecideOverwrite(const std::string& Source, const std::string& Dest, long CopyMode) const {
  const TCopyRule Rule = CopyRuleOf(CopyMode);
  if (Rule.Compare == TCopyRule::Always) return true;
  if (Rule.Compare == TCopyRule::Never) return false;

  if (Rule.Compare == TCopyRule::ByVersion) {
    const VS_FIXEDFILEINFO New = GetFileVersionFixedInfo(Source), Old = GetFileVersionFixedInfo(Dest);
    // Read in every case: a file that somebody holds open shows here, before anything is changed.
    const FILETIME NewTime = LastWriteOf(Source), OldTime = LastWriteOf(Dest);
    if (ProductVersion(New) > ProductVersion(Old)) return true;
    return Rule.AsksOtherwise &&
           Ask(FormatMessageText(MsgOverwriteByVersion, Dest, FormatFileVersion(Old), DateTimeText(OldTime), Source,
                                 FormatFileVersion(New), DateTimeText(NewTime)));
  }
  const TFileFacts New = FactsOf(Source), Old = FactsOf(Dest);
  if (static_cast<int64_t>(TicksOf(New.LastWrite)) > static_cast<int64_t>(TicksOf(Old.LastWrite))) return true;
  return Rule.AsksOtherwise &&
         Ask(FormatMessageText(MsgOverwriteBySize, Dest, std::to_string(Old.Size), DateTimeText(Old.LastWrite), Source,
                               std::to_string(New.Size), DateTimeText(New.LastWrite)));
}

bool TUFile::Ask(const std::string& Question) const {
  return ShowMsgBox(Use<IUDialog>(), Question, MsgConfirmation, MB_YESNO | MB_ICONQUESTION) == IDYES;
}

TUFile::TSource TUFile::OpenSource(const std::string& Name) {
  TSource Source{};
  Source.Attributes = RetryGetFileAttributes(Name);
  Source.File = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING, Source.Attributes);
  Source.Times = RetryGetFileTime(Source.File);
  return Source;
}

void TUFile::CopyContent(TSource& Source, const std::string& Dest) {
  TOpenFile File = RetryCreateFile(Dest, GENERIC_WRITE, 0, CREATE_NEW, Source.Attributes);
  RetryReadAndAppendFile(Source.File, File);
  RetryCloseHandle(Source.File);
  RetrySetFileTime(File, Source.Times);
  RetryFlushFileBuffers(File);
  RetryCloseHandle(File);
}

// ---- Undoing

void TUFile::Undo(long Code, const GUID& DataID) {
  if (Code == FileCode::Overwritten || Code == FileCode::Deleted) {
    Store().LoadFiles(DataID);
  } else if (Code == FileCode::Created) {
    // Folders that the copy created stay: something else may use them by now.
    const std::string FileName = Store().LoadFileName(DataID);
    if (FileExistsByFind(FileName)) RetryDeleteFile(FileName);
  }
}

COCLASS(UFile, TUFile);
