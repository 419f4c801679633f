#include "changes/file_operations.h"

#include "base/data_folders.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "base/file_time.h"
#include "base/file_version.h"
#include "base/folder_content.h"
#include "base/paths.h"
#include "base/text.h"
#include "formats/copy_mode.h"
#include "formats/entry_codes.h"
#include "retry/engine.h"
#include "rollback/saved_files.h"
#include "server/arguments.h"
#include "server/service_calls.h"

namespace {

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

TFileFacts CopyFactsOf(const std::string& Name) {
  const DWORD Attributes = RetryGetFileAttributes(Name);
  TOpenFile File = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING, OpenFlagsOf(Attributes));
  const TFileFacts Facts{RetryGetFileTime(File).LastWrite, RetryGetFileSize(File)};
  RetryCloseHandle(File);
  return Facts;
}

/// The begin of a final path that one volume has in common; of a share it has the server and the share, too, under
/// which it is known.
std::wstring_view VolumeOf(std::wstring_view Path) {
  size_t End = 0;
  for (int Left = Path.starts_with(L"\\Device\\Mup\\") ? 4 : 2; Left > 0 && End != Path.npos; --Left)
    End = Path.find(L'\\', End + 1);
  return Path.substr(0, End);
}

/// Whether two names stand for one file. Under the same name clearing the way would delete the source, and that is
/// refused; under two (hard links), only the one name goes. A plain test before the change; it shows and logs nothing.
bool AreNamesOfOneFile(const std::string& Source, HANDLE OpenSource, const std::string& Dest) {
  const TFileHandle Right(OpenToAsk(Dest));
  const BY_HANDLE_FILE_INFORMATION Facts = FactsOf(OpenSource);
  if (!AreOneFile(Facts, FactsOf(Right.Get()))) return false;
  const std::wstring Here = FinalPath(OpenSource), There = FinalPath(Right.Get());
  const bool HardLinks = Facts.nNumberOfLinks > 1 && !Here.empty() && VolumeOf(Here) == VolumeOf(There) &&
                         CompareStringOrdinal(Here.c_str(), -1, There.c_str(), -1, TRUE) != CSTR_EQUAL;
  if (!HardLinks) Refuse(MsgCopyOntoItself, ToWide(Source));
  return true;
}

bool IsFile(const std::string& Name) {
  const DWORD Attributes = GetFileAttributesA(Name.c_str());
  return Attributes != INVALID_FILE_ATTRIBUTES && !(Attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::string DeletionMask(BSTR FileNameMask) {
  std::string Mask = MaskArgument(FileNameMask);
  RequireFolderInMask(Mask);
  return Mask;
}

/// The name of a file in a copy; a logged one is undone by whoever rolls back, in another folder.
std::string CopyName(BSTR FileName, TForm Form) {
  std::string Name = FileNameArgument(FileName);
  if (Form == TForm::Logged) RequireRoot(Name);
  return Name;
}

}  // namespace

// ---- Deleting

HRESULT TUFile::DeleteFiles(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir,
                            VARIANT_BOOL DeleteUpperDir) {
  TDeletion Deletion{{RecurseSubDir, DeleteEmptyDir, DeleteUpperDir}};
  return Method("DeleteFiles", {FileNameMask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir},
                [&] { DeleteMatching(DeletionMask(FileNameMask), Deletion); });
}

HRESULT TUFile::DeleteFilesLogged(BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir,
                                  VARIANT_BOOL DeleteUpperDir) {
  TDeletion Deletion{{RecurseSubDir, DeleteEmptyDir, DeleteUpperDir}};
  return Method("DeleteFilesLogged", {FileNameMask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir},
                [&](TRoutine& Lines) {
                  const std::string Mask = DeletionMask(FileNameMask);
                  const auto Save = [&] {
                    const GUID DataID = Store().SaveFiles(Mask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir);
                    Deletion.Saved = SavedNames(DataID);
                    return DataID;
                  };
                  const GUID DataID = MakeChange(TForm::Logged, FileCode::Deleted, Save, [&] {
                    Routine("DeleteFiles", {Mask, RecurseSubDir, DeleteEmptyDir, DeleteUpperDir},
                            [&] { DeleteMatching(Mask, Deletion); });
                  });
                  Lines.EndsWith({DataID});
                });
}

void TUFile::TDeletion::Leave(const std::string& Folder, const std::vector<TUnnamed>& Unnamed, bool Folders) {
  for (const TUnnamed& Entry : Unnamed)
    if (Entry.Folder == Folders) Left.push_back(ToWide(Folder) + Entry.Name);
}

void TUFile::DeleteMatching(const std::string& Mask, TDeletion& Deletion) const {
  RequireOutsideOwnFolders(Mask, Deletion.Flags.RecurseSubDir != VARIANT_FALSE);
  DeleteSomeFiles(Mask, Deletion, false);
  if (Deletion.Flags.DeleteUpperDir) DeleteEmptyDirectory(FolderPart(Mask));
  if (!Deletion.Left.empty())
    FailureStep(ERROR_NO_UNICODE_TRANSLATION,
                FormatWideMessage(MsgEntriesNotNamed, Deletion.Left.front(), std::to_wstring(Deletion.Left.size())));
}

void TUFile::DeleteSomeFiles(const std::string& Mask, TDeletion& Deletion, bool Subfolder) const {
  Routine("DeleteSomeFiles", {Mask, Deletion.Flags.RecurseSubDir, Deletion.Flags.DeleteEmptyDir}, [&](TRoutine& Lines) {
    const std::string Folder = WithBackslash(FolderPart(Mask));
    const THeldFolder Held(FolderPart(Mask));
    if (Subfolder && !Held.IsFolder()) return;  // it was one when it was found
    const std::vector<TUnnamed> Unnamed = ForEachEntry(Mask, [&](const WIN32_FIND_DATAA& Entry) {
      const std::string Name = Folder + Entry.cFileName;
      if (IsFolder(Entry)) return;
      if (Deletion.MayDelete(Name))
        RetryDeleteFile(Name);
      else
        Lines.Line(L"Kept", FormatWideMessage(MsgNotSavedNotDeleted, ToWide(Name)));
    });
    Deletion.Leave(Folder, Unnamed, false);
    if (Deletion.Flags.RecurseSubDir) DeleteInSubfolders(Mask, Deletion);
  });
}

void TUFile::DeleteInSubfolders(const std::string& Mask, TDeletion& Deletion) const {
  const std::string Folder = WithBackslash(FolderPart(Mask)), Pattern = NamePart(Mask);
  std::vector<std::string> Subfolders;
  const std::vector<TUnnamed> Unnamed = ForEachEntry(Folder + "*.*", [&](const WIN32_FIND_DATAA& Entry) {
    if (IsFolder(Entry) && !IsLink(Entry)) Subfolders.push_back(Folder + Entry.cFileName);
  });
  Deletion.Leave(Folder, Unnamed, true);
  for (const std::string& Subfolder : Subfolders) {
    DeleteSomeFiles(Subfolder + "\\" + Pattern, Deletion, true);
    if (Deletion.Flags.DeleteEmptyDir && Deletion.MayDelete(Subfolder)) DeleteEmptyDirectory(Subfolder);
  }
}

void TUFile::DeleteEmptyDirectory(const std::string& Folder) const {
  Routine("DeleteEmptyDirectory", {Folder}, [&] {
    size_t Entries = 0;
    Entries += ForEachEntry(Folder + "\\*.*", [&](const WIN32_FIND_DATAA&) { ++Entries; }).size();
    // A folder that does not exist counts none either; its removal then fails, and the user hears of it.
    if (Entries == 0 && !IsLink(ToWide(Folder))) RetryDeleteDirectory(Folder);
  });
}

// ---- Copying

HRESULT TUFile::CopyFile(BSTR SourceFileName, BSTR DestFileName, long CopyMode) {
  return Method("CopyFile", {SourceFileName, DestFileName}, [&] {
    constexpr TForm Form = TForm::Plain;
    CopySomeFile(CopyName(SourceFileName, Form), CopyName(DestFileName, Form), CopyMode, Form);
  });
}

HRESULT TUFile::CopyFileLogged(BSTR SourceFileName, BSTR DestFileName, long CopyMode) {
  return Method("CopyFileLogged", {SourceFileName, DestFileName}, [&] {
    constexpr TForm Form = TForm::Logged;
    CopySomeFile(CopyName(SourceFileName, Form), CopyName(DestFileName, Form), CopyMode, Form);
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
  // Where nothing else has looked at the source yet, it is opened before the destination goes: a missing or locked
  // source must not cost the destination.
  std::optional<TSource> Open;
  if (CopyRuleOf(CopyMode).Compare == TCopyRule::Always) Open = OpenSource(Source);
  const bool OneFile = AreNamesOfOneFile(Source, Open ? Open->File.Get() : TFileHandle(OpenToAsk(Source)).Get(), Dest);
  if (OneFile) Open.reset();  // another name of the destination, open, would be in the way of its deletion
  const auto Save = [&] {
    const GUID DataID = Store().SaveFile(Dest);
    // A folder of this name is no file to be saved, and not deleted.
    if (!HasSavedFile(DataID) && IsFile(Dest))
      FailureStep(ERROR_FILE_NOT_FOUND, FormatMessageText(MsgNotSavedNotDeleted, Dest));
    return DataID;
  };
  return MakeChange(Form, FileCode::Overwritten, Save, [&] {
    const DWORD Attributes = OneFile ? RetryGetFileAttributes(Source) : 0;
    RetryDeleteFile(Dest);
    if (OneFile) RetrySetFileAttributes(Source, Attributes);  // the deletion cleared them, for both names
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
  const TFileFacts New = CopyFactsOf(Source), Old = CopyFactsOf(Dest);
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
  Source.File = RetryCreateFile(Name, GENERIC_READ, 0, OPEN_EXISTING, OpenFlagsOf(Source.Attributes));
  Source.Times = RetryGetFileTime(Source.File);
  return Source;
}

void TUFile::CopyContent(TSource& Source, const std::string& Dest) {
  TOpenFile File = RetryCreateFile(Dest, GENERIC_WRITE, 0, CREATE_NEW, OpenFlagsOf(Source.Attributes));
  RetryReadAndAppendFile(Source.File, File);
  RetryCloseHandle(Source.File);
  RetrySetFileTime(File, Source.Times);
  RetryFlushFileBuffers(File);
  FlushToDisk(File);
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
