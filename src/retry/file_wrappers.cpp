#include "retry/file_wrappers.h"

#include "base/paths.h"
#include "server/environment.h"

#include <optional>
#include <vector>

namespace {

std::wstring TimesText(const TFileTimes& Times) {
  return LogText(DateTimeText(Times.Creation), DateTimeText(Times.LastAccess), DateTimeText(Times.LastWrite));
}

}  // namespace

DWORD RetryGetFileAttributes(const std::string& FileName) {
  DWORD Attr = 0;
  TRetryCall Call(Standard, LogText("RetryGetFileAttributes", FileName));
  Call.Until([&] { return ByLastError((Attr = GetFileAttributesA(FileName.c_str())) != INVALID_FILE_ATTRIBUTES); },
             MsgCannotGetAttributes, FileName);
  Call.End(LogText("RetryGetFileAttributes", Attr));
  return Attr;
}

void RetrySetFileAttributes(const std::string& FileName, DWORD Attr) {
  TRetryCall Call(Standard, LogText("RetrySetFileAttributes", FileName, Attr));
  Call.Until([&] { return ByLastError(SetFileAttributesA(FileName.c_str(), Attr)); }, MsgCannotSetAttributes, FileName);
  Call.End(L"RetrySetFileAttributes");
}

TFileTimes RetryGetFileTime(const std::string& FileName, HANDLE Handle) {
  TFileTimes Times;
  TRetryCall Call(Standard, LogText("RetryGetFileTime", FileName));
  Call.Until([&] { return ByLastError(GetFileTime(Handle, &Times.Creation, &Times.LastAccess, &Times.LastWrite)); },
             MsgCannotGetTimes, FileName);
  Call.End(LogText("RetryGetFileTime", TimesText(Times)));
  return Times;
}

void RetrySetFileTime(const std::string& FileName, HANDLE Handle, const TFileTimes& Times) {
  TRetryCall Call(Standard, LogText("RetrySetFileTime", FileName, TimesText(Times)));
  Call.Until([&] { return ByLastError(SetFileTime(Handle, &Times.Creation, &Times.LastAccess, &Times.LastWrite)); },
             MsgCannotSetTimes, FileName);
  Call.End(L"RetrySetFileTime");
}

void RetryCreateDirectory(const std::string& Dir) {
  TRetryCall Call(Standard, LogText("RetryCreateDirectory", Dir));
  Call.Until(
      [&] { return ByLastError(CreateDirectoryA(Dir.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS); },
      MsgCannotCreateFolder, Dir);
  Call.End(L"RetryCreateDirectory");
}

void RetryDeleteDirectory(const std::string& Dir) {
  TRetryCall Call(Standard, LogText("RetryDeleteDirectory", Dir));
  Call.Until([&] { return ByLastError(RemoveDirectoryA(Dir.c_str())); }, MsgCannotDeleteFolder, Dir);
  Call.End(L"RetryDeleteDirectory");
}

void RetryForceDirectories(const std::string& Dir) {
  constexpr size_t ShortestFolder = 3;
  TRetryCall Call(Standard, LogText("RetryForceDirectories", Dir));
  const bool Trailing = !Dir.empty() && WithBackslash(Dir) == Dir;
  const std::string Folder = Trailing ? Dir.substr(0, Dir.size() - 1) : Dir;
  const std::string Parent = FolderPrefix(Folder);
  if (Folder.size() < ShortestFolder || Parent == Folder) return;  // the walk's end writes no End line
  RetryForceDirectories(Parent);
  RetryCreateDirectory(Folder);
  Call.End(L"RetryForceDirectories");
}

TFindHandle RetryFindFirstFile(const std::string& Mask, WIN32_FIND_DATAA& FindData, bool& NotFound) {
  TFindHandle Handle;
  TRetryCall Call(QuietCall, L"");
  Call.Until(
      [&] {
        Handle.Reset(FindFirstFileA(Mask.c_str(), &FindData));
        const DWORD Code = Handle ? ERROR_SUCCESS : GetLastError();
        NotFound = Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND;
        return TOutcome{Handle || NotFound, static_cast<long>(Code)};
      },
      MsgCannotStartSearch, Mask);
  return Handle;
}

void RetryFindNextFile(const std::string& Mask, WIN32_FIND_DATAA& FindData, HANDLE Handle, bool& NoMoreFiles) {
  TRetryCall Call(QuietCall, L"");
  Call.Until(
      [&] {
        const bool Found = FindNextFileA(Handle, &FindData) != FALSE;
        NoMoreFiles = !Found && GetLastError() == ERROR_NO_MORE_FILES;
        return ByLastError(Found || NoMoreFiles);
      },
      MsgCannotContinueSearch, Mask);
}

void RetryFindClose(const std::string& Mask, TFindHandle& Handle) {
  const HANDLE Search = Handle.Detach();
  TRetryCall Call(QuietCall, L"");
  Call.Until([&] { return ByLastError(FindClose(Search)); }, MsgCannotFinishSearch, Mask);
}

TFileHandle RetryCreateFile(const std::string& FileName, DWORD Access, DWORD Share, DWORD Disposition, DWORD Flags,
                            SECURITY_ATTRIBUTES* SecurityAttributes, HANDLE Template) {
  TFileHandle Handle;
  const TMessage Message = Disposition == CREATE_NEW      ? MsgCannotCreate
                           : Disposition == OPEN_EXISTING ? MsgCannotOpen
                                                          : MsgCannotOpenOrCreate;
  TRetryCall Call(Patient, LogText("RetryCreateFile", FileName, Access, Share, Disposition, Flags));
  Call.Until(
      [&] {
        Handle.Reset(CreateFileA(FileName.c_str(), Access, Share, SecurityAttributes, Disposition, Flags, Template));
        return ByLastError(static_cast<bool>(Handle));
      },
      Message, FileName);
  Call.End(L"RetryCreateFile");
  return Handle;
}

DWORD RetryReadFile(const std::string& FileName, HANDLE Handle, void* Buffer, bool Log, DWORD ToRead,
                    OVERLAPPED* Overlapped) {
  DWORD BytesRead = 0;
  TRetryCall Call(Log ? Standard : QuietCall, Log ? LogText("RetryReadFile", FileName, ToRead) : L"");
  Call.Until([&] { return ByLastError(ReadFile(Handle, Buffer, ToRead, &BytesRead, Overlapped)); }, MsgCannotRead,
             FileName);
  Call.End(L"RetryReadFile");
  return BytesRead;
}

DWORD RetryWriteFile(const std::string& FileName, HANDLE Handle, const void* Buffer, bool Log, DWORD ToWrite,
                     OVERLAPPED* Overlapped) {
  DWORD BytesWritten = 0;
  TRetryCall Call(Log ? QuietCall : Unnumbered, L"");
  Call.Until([&] { return ByLastError(WriteFile(Handle, Buffer, ToWrite, &BytesWritten, Overlapped)); }, MsgCannotWrite,
             FileName);
  return BytesWritten;
}

void RetryCloseHandle(const std::string& FileName, TFileHandle& Handle) {
  const HANDLE File = Handle.Detach();
  TRetryCall Call(QuietCall, L"");
  Call.Until([&] { return ByLastError(CloseHandle(File)); }, MsgCannotClose, FileName);
}

DWORD RetryGetFileSize(const std::string& FileName, HANDLE Handle, DWORD SizeBefore) {
  DWORD Size = SizeBefore;
  TRetryCall Call(Standard, LogText("RetryGetFileSize", FileName, SizeBefore));
  Call.Until([&] { return ByLastError((Size = GetFileSize(Handle, nullptr)) != INVALID_FILE_SIZE); },
             MsgCannotGetFileSize, FileName);
  Call.End(LogText("RetryGetFileSize", Size));
  return Size;
}

void RetryReadAndAppendFile(const std::string& SourceName, const std::string& DestName, HANDLE SourceHandle,
                            HANDLE DestHandle) {
  constexpr DWORD BlockSize = 32768;
  TRetryCall Call(Standard, LogText("RetryReadAndAppendFile", SourceName, DestName));
  std::vector<char> Buffer(BlockSize);
  DWORD BytesRead = 0;
  do {
    BytesRead = RetryReadFile(SourceName, SourceHandle, Buffer.data(), false, BlockSize);
    if (BytesRead > 0) RetryWriteFile(DestName, DestHandle, Buffer.data(), false, BytesRead);
  } while (BytesRead == BlockSize);
  Call.End(L"RetryReadAndAppendFile");
}

void RetrySetFilePointer(const std::string& FileName, HANDLE Handle, LONG Distance, DWORD Method, LONG* DistanceHigh) {
  TRetryCall Call(Standard, LogText("RetrySetFilePointer", FileName, Distance, Method));
  Call.Until(
      [&] { return ByLastError(SetFilePointer(Handle, Distance, DistanceHigh, Method) != INVALID_SET_FILE_POINTER); },
      MsgCannotSetPointer, FileName);
  Call.End(L"RetrySetFilePointer");
}

void RetryDeleteFile(const std::string& FileName) {
  constexpr DWORD GoneCheckMilliseconds = 1;
  bool Deleted = false;
  TRetryCall Call(Patient, LogText("RetryDeleteFile", FileName));
  Call.Until(
      [&] {
        if (!FileExistsByFind(FileName)) return TOutcome{true};
        RetrySetFileAttributes(FileName, FILE_ATTRIBUTE_NORMAL);
        const TOutcome Outcome = ByLastError(DeleteFileA(FileName.c_str()));
        Deleted = Deleted || Outcome.Ok;
        return Outcome;
      },
      MsgCannotDelete, FileName);
  // A file that somebody still has open goes when he closes it; until then its name cannot be used again.
  while (Deleted && FileExistsByFind(FileName)) {
    Call.Line(L"RetryDeleteWait", L"RetryDeleteWait");
    Sleep(GoneCheckMilliseconds);
  }
  Call.End(L"RetryDeleteFile");
}

void RetryMoveFile(const std::string& OldName, const std::string& NewName) {
  TRetryCall Call(Patient, LogText("RetryMoveFile", OldName, NewName));
  Call.Until([&] { return ByLastError(MoveFileA(OldName.c_str(), NewName.c_str())); }, MsgCannotMove, OldName, NewName);
  Call.End(L"RetryMoveFile");
}

void RetrySetEndOfFile(const std::string& FileName, HANDLE Handle) {
  TRetryCall Call(Standard, LogText("RetrySetEndOfFile", FileName));
  Call.Until([&] { return ByLastError(SetEndOfFile(Handle)); }, MsgCannotTruncate, FileName);
  Call.End(L"RetrySetEndOfFile");
}

bool FileExistsByFind(const std::string& FileName) {
  WIN32_FIND_DATAA Entry;
  NextCallId();
  TFindHandle Search(FindFirstFileA(FileName.c_str(), &Entry));
  if (!Search) {
    if (GetLastError() == ERROR_FILE_NOT_FOUND) return false;
    // The search failed for a reason of its own. Callers take "no" as leave to create the file, and to delete it when
    // they undo that, so a file that is there must not be missed.
    const DWORD Attributes = GetFileAttributesA(FileName.c_str());
    return Attributes != INVALID_FILE_ATTRIBUTES && !(Attributes & FILE_ATTRIBUTE_DIRECTORY);
  }
  RetryFindClose(FileName, Search);
  return true;
}

int64_t PlainFileSize(HANDLE Handle) {
  LARGE_INTEGER Size;
  return GetFileSizeEx(Handle, &Size) ? Size.QuadPart : -1;
}
