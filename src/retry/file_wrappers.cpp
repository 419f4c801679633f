#include "retry/file_wrappers.h"

#include "base/file_content.h"
#include "base/file_time.h"
#include "base/paths.h"
#include "base/waiting.h"
#include "retry/engine.h"

#include <vector>

DWORD RetryGetFileAttributes(const std::string& FileName) {
  DWORD Attr = 0;
  TRetryCall Call(Standard, "RetryGetFileAttributes", FileName);
  Call.Until([&] { return ByLastError((Attr = GetFileAttributesA(FileName.c_str())) != INVALID_FILE_ATTRIBUTES); },
             MsgCannotGetAttributes, FileName);
  Call.End(Attr);
  return Attr;
}

void RetrySetFileAttributes(const std::string& FileName, DWORD Attr) {
  TRetryCall(Standard, "RetrySetFileAttributes", FileName, Attr)
      .Run([&] { return ByLastError(SetFileAttributesA(FileName.c_str(), Attr)); }, MsgCannotSetAttributes, FileName);
}

TFileTimes RetryGetFileTime(const TOpenFile& File) {
  TFileTimes Times;
  TRetryCall Call(Standard, "RetryGetFileTime", File.Name);
  Call.Until([&] { return ByLastError(GetFileTime(File.Get(), &Times.Creation, &Times.LastAccess, &Times.LastWrite)); },
             MsgCannotGetTimes, File.Name);
  Call.End(DateTimeText(Times.Creation), DateTimeText(Times.LastAccess), DateTimeText(Times.LastWrite));
  return Times;
}

void RetrySetFileTime(const TOpenFile& File, const TFileTimes& Times) {
  TRetryCall(Standard, "RetrySetFileTime", File.Name, DateTimeText(Times.Creation), DateTimeText(Times.LastAccess),
             DateTimeText(Times.LastWrite))
      .Run([&] { return ByLastError(SetFileTime(File.Get(), &Times.Creation, &Times.LastAccess, &Times.LastWrite)); },
           MsgCannotSetTimes, File.Name);
}

void RetryCreateDirectory(const std::string& Folder) {
  TRetryCall(Standard, "RetryCreateDirectory", Folder)
      .Run(
          [&] {
            return ByLastError(CreateDirectoryA(Folder.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS);
          },
          MsgCannotCreateFolder, Folder);
}

void RetryDeleteDirectory(const std::string& Folder) {
  TRetryCall(Standard, "RetryDeleteDirectory", Folder)
      .Run([&] { return ByLastError(RemoveDirectoryA(Folder.c_str())); }, MsgCannotDeleteFolder, Folder);
}

void RetryForceDirectories(const std::string& Folder) {
  constexpr size_t ShortestFolder = 3;
  TRetryCall Call(Standard, "RetryForceDirectories", Folder);
  const bool Trailing = !Folder.empty() && WithBackslash(Folder) == Folder;
  const std::string Wanted = Trailing ? Folder.substr(0, Folder.size() - 1) : Folder;
  const std::string Parent = FolderPrefix(Wanted);
  if (Wanted.size() < ShortestFolder || Parent == Wanted || IsRoot(Wanted))
    return;  // the walk's end writes no End line
  RetryForceDirectories(Parent);
  RetryCreateDirectory(Wanted);
  Call.End();
}

TSearch RetryFindFirstFile(const std::string& Mask, WIN32_FIND_DATAA& FindData, bool& NotFound) {
  TSearch Search{Mask};
  TRetryCall(QuietCall).Until(
      [&] {
        Search.Handle.Reset(FindFirstFileA(Mask.c_str(), &FindData));
        const DWORD Code = Search ? ERROR_SUCCESS : GetLastError();
        NotFound = Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND;
        return TOutcome{Search || NotFound, static_cast<long>(Code)};
      },
      MsgCannotStartSearch, Mask);
  return Search;
}

void RetryFindNextFile(const TSearch& Search, WIN32_FIND_DATAA& FindData, bool& NoMoreFiles) {
  TRetryCall(QuietCall).Until(
      [&] {
        const bool Found = FindNextFileA(Search.Get(), &FindData) != FALSE;
        NoMoreFiles = !Found && GetLastError() == ERROR_NO_MORE_FILES;
        return ByLastError(Found || NoMoreFiles);
      },
      MsgCannotContinueSearch, Search.Name);
}

void RetryFindClose(TSearch& Search) {
  TRetryCall(QuietCall).Until([&] { return Released(Search.Handle, ByLastError(FindClose(Search.Get()))); },
                              MsgCannotFinishSearch, Search.Name);
}

TOpenFile RetryCreateFile(const std::string& FileName, DWORD Access, DWORD Share, DWORD Disposition, DWORD Flags) {
  TOpenFile File{FileName};
  const TMessage Message = Disposition == CREATE_NEW      ? MsgCannotCreate
                           : Disposition == OPEN_EXISTING ? MsgCannotOpen
                                                          : MsgCannotOpenOrCreate;
  TRetryCall(Patient, "RetryCreateFile", FileName, Access, Share, Disposition, Flags)
      .Run(
          [&] {
            File.Handle.Reset(CreateFileA(FileName.c_str(), Access, Share, nullptr, Disposition, Flags, nullptr));
            return ByLastError(static_cast<bool>(File));
          },
          Message, FileName);
  return File;
}

DWORD RetryReadFile(const TOpenFile& File, void* Buffer, bool Lines, DWORD ToRead) {
  DWORD BytesRead = 0;
  TRetryCall(Lines ? Standard : QuietCall, "RetryReadFile", File.Name, ToRead)
      .Run([&] { return ByLastError(ReadFile(File.Get(), Buffer, ToRead, &BytesRead, nullptr)); }, MsgCannotRead,
           File.Name);
  return BytesRead;
}

DWORD RetryWriteFile(const TOpenFile& File, const void* Buffer, bool Lines, DWORD ToWrite) {
  DWORD BytesWritten = 0;
  TRetryCall(Lines ? QuietCall : Unnumbered)
      .Until([&] { return ByLastError(WriteFile(File.Get(), Buffer, ToWrite, &BytesWritten, nullptr)); },
             MsgCannotWrite, File.Name);
  return BytesWritten;
}

void RetryCloseHandle(TOpenFile& File) {
  TRetryCall(QuietCall).Until([&] { return Released(File.Handle, ByLastError(CloseHandle(File.Get()))); },
                              MsgCannotClose, File.Name);
}

DWORD RetryGetFileSize(const TOpenFile& File) {
  constexpr DWORD SizeBefore = 0;  // the line has room for what the caller took the size to be, which none does
  DWORD Size = SizeBefore;
  TRetryCall Call(Standard, "RetryGetFileSize", File.Name, SizeBefore);
  Call.Until([&] { return ByLastError((Size = GetFileSize(File.Get(), nullptr)) != INVALID_FILE_SIZE); },
             MsgCannotGetFileSize, File.Name);
  Call.End(Size);
  return Size;
}

void RetryReadAndAppendFile(const TOpenFile& Source, const TOpenFile& Dest) {
  constexpr DWORD BlockSize = 32768;
  TRetryCall Call(Standard, "RetryReadAndAppendFile", Source.Name, Dest.Name);
  std::vector<char> Buffer(BlockSize);
  DWORD BytesRead = 0;
  do {
    BytesRead = RetryReadFile(Source, Buffer.data(), false, BlockSize);
    if (BytesRead > 0) RetryWriteFile(Dest, Buffer.data(), false, BytesRead);
  } while (BytesRead == BlockSize);
  Call.End();
}

void RetrySetFilePointer(const TOpenFile& File, LONG Distance, DWORD Method) {
  TRetryCall(Standard, "RetrySetFilePointer", File.Name, Distance, Method)
      .Run(
          [&] {
            return ByLastError(SetFilePointer(File.Get(), Distance, nullptr, Method) != INVALID_SET_FILE_POINTER);
          },
          MsgCannotSetPointer, File.Name);
}

void RetryDeleteFile(const std::string& FileName) {
  constexpr DWORD GoneCheckMilliseconds = 1;
  bool Deleted = false;
  BY_HANDLE_FILE_INFORMATION Before{};
  const auto FactsNow = [&] { return FactsOf(TFileHandle(OpenToAsk(FileName, FILE_FLAG_OPEN_REPARSE_POINT)).Get()); };
  TRetryCall Call(Patient, "RetryDeleteFile", FileName);
  Call.Until(
      [&] {
        if (!FileExistsByFind(FileName)) return TOutcome{true};
        Before = FactsNow();
        RetrySetFileAttributes(FileName, FILE_ATTRIBUTE_NORMAL);
        const TOutcome Outcome = ByLastError(DeleteFileA(FileName.c_str()));
        if (!Outcome.Ok && Before.dwFileAttributes) SetFileAttributesA(FileName.c_str(), Before.dwFileAttributes);
        Deleted = Deleted || Outcome.Ok;
        return Outcome;
      },
      MsgCannotDelete, FileName);
  // A file that somebody still has open goes when he closes it; until then its name cannot be used again, and Windows
  // opens the file for nobody. What can be opened is a new file, or, where Wine opens it after all, the same one; a new
  // one may have got the old one's number there.
  const auto IsNew = [&](const BY_HANDLE_FILE_INFORMATION& Now) {
    const bool Same = AreOneFile(Before, Now) && Before.nFileSizeLow == Now.nFileSizeLow &&
                      CompareFileTime(&Before.ftLastWriteTime, &Now.ftLastWriteTime) == 0;
    return Now.dwFileAttributes && !Same;
  };
  while (Deleted && FileExistsByFind(FileName) && !IsNew(FactsNow())) {
    Call.Line(L"RetryDeleteWait", L"RetryDeleteWait");
    PauseAnsweringMessages(GoneCheckMilliseconds);
  }
  Call.End();
}

void RetryMoveFile(const std::string& OldName, const std::string& NewName) {
  TRetryCall(Patient, "RetryMoveFile", OldName, NewName)
      .Run([&] { return ByLastError(MoveFileA(OldName.c_str(), NewName.c_str())); }, MsgCannotMove, OldName, NewName);
}

void RetrySetEndOfFile(const TOpenFile& File) {
  TRetryCall(Standard, "RetrySetEndOfFile", File.Name)
      .Run([&] { return ByLastError(SetEndOfFile(File.Get())); }, MsgCannotTruncate, File.Name);
}

void FlushToDisk(const TOpenFile& File) { FlushFileBuffers(File.Get()); }

bool FileExistsByFind(const std::string& FileName) {
  WIN32_FIND_DATAA Entry;
  NextCallId();
  TSearch Search{FileName, TFindHandle(FindFirstFileA(FileName.c_str(), &Entry))};
  if (!Search) {
    if (GetLastError() == ERROR_FILE_NOT_FOUND) return false;
    // The search failed for a reason of its own. Callers take "no" as leave to create the file, and to delete it when
    // they undo that, so a file that is there must not be missed.
    const DWORD Attributes = GetFileAttributesA(FileName.c_str());
    return Attributes != INVALID_FILE_ATTRIBUTES && !(Attributes & FILE_ATTRIBUTE_DIRECTORY);
  }
  RetryFindClose(Search);
  return true;
}

bool IsMissing(const std::string& Name) {
  if (GetFileAttributesA(Name.c_str()) != INVALID_FILE_ATTRIBUTES) return false;
  const DWORD Code = GetLastError();
  return Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND;
}
