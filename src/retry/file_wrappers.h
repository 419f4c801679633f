#pragma once

#include "retry/engine.h"

#include <string>

/// The retry layer's wrappers for files, folders and searches: each makes the system call that it is named after, with
/// that call's arguments, and returns when it has succeeded or raises the engine's failure. Names are ANSI; a FileName
/// beside a handle serves the messages only.

DWORD RetryGetFileAttributes(const std::string& FileName);
void RetrySetFileAttributes(const std::string& FileName, DWORD Attr);

struct TFileTimes {
  FILETIME Creation{}, LastAccess{}, LastWrite{};
};
TFileTimes RetryGetFileTime(const std::string& FileName, HANDLE Handle);
void RetrySetFileTime(const std::string& FileName, HANDLE Handle, const TFileTimes& Times);

/// A folder that exists already counts as created.
void RetryCreateDirectory(const std::string& Dir);
void RetryDeleteDirectory(const std::string& Dir);
/// Creates a folder with all its missing parents. A text of fewer than 3 characters, such as a drive, creates nothing.
void RetryForceDirectories(const std::string& Dir);

/// Nothing that matches, or no such folder, is no failure: `NotFound` is set and the handle is empty.
TFindHandle RetryFindFirstFile(const std::string& Mask, WIN32_FIND_DATAA& FindData, bool& NotFound);
/// The end of the search is no failure: `NoMoreFiles` is set.
void RetryFindNextFile(const std::string& Mask, WIN32_FIND_DATAA& FindData, HANDLE Handle, bool& NoMoreFiles);
/// Leaves `Handle` empty.
void RetryFindClose(const std::string& Mask, TFindHandle& Handle);

/// Patient. The message depends on the disposition: create, open, or either.
TFileHandle RetryCreateFile(const std::string& FileName, DWORD Access, DWORD Share, DWORD Disposition, DWORD Flags,
                            SECURITY_ATTRIBUTES* SecurityAttributes = nullptr, HANDLE Template = nullptr);
/// Gives the number of bytes read. Writes its lines only when `Log` is set.
DWORD RetryReadFile(const std::string& FileName, HANDLE Handle, void* Buffer, bool Log, DWORD ToRead,
                    OVERLAPPED* Overlapped = nullptr);
/// Gives the number of bytes written. Never writes lines; `Log` only decides whether a call id is taken.
DWORD RetryWriteFile(const std::string& FileName, HANDLE Handle, const void* Buffer, bool Log, DWORD ToWrite,
                     OVERLAPPED* Overlapped = nullptr);
/// Leaves `Handle` empty, also when the user gives up.
void RetryCloseHandle(const std::string& FileName, TFileHandle& Handle);
/// The low 32 bits of the size.
DWORD RetryGetFileSize(const std::string& FileName, HANDLE Handle, DWORD SizeBefore = 0);
/// Copies from the source's current position to its end to the destination's current position, 32768 bytes at a time;
/// truncates and closes nothing.
void RetryReadAndAppendFile(const std::string& SourceName, const std::string& DestName, HANDLE SourceHandle,
                            HANDLE DestHandle);
void RetrySetFilePointer(const std::string& FileName, HANDLE Handle, LONG Distance, DWORD Method,
                         LONG* DistanceHigh = nullptr);
/// Patient. Clears the attributes first, so a read-only file goes too, and returns when the file has really gone.
/// A file that does not exist is deleted already.
void RetryDeleteFile(const std::string& FileName);
/// Patient.
void RetryMoveFile(const std::string& OldName, const std::string& NewName);
void RetrySetEndOfFile(const std::string& FileName, HANDLE Handle);
/// Does nothing, by intent: the places that would flush are marked by it, but what protects the files against a crash
/// is the order of the changes, and flushing every step would make an update many times slower.
inline void RetryFlushFileBuffers(const std::string&, HANDLE) {}

/// Whether a file or folder of this name exists, as a search finds it. A search that fails otherwise than with "file
/// not found" does not count as a "no" when a file of this name has attributes. Shows and logs nothing; takes a call
/// id.
bool FileExistsByFind(const std::string& FileName);

/// The whole size of an open file, or -1. Shows and logs nothing: a bound that is checked beside the described steps.
int64_t PlainFileSize(HANDLE Handle);

/// Calls `Action` with each entry that a mask finds, "." and ".." excepted. The search is closed on every way out.
template <class TAction>
void ForEachEntry(const std::string& Mask, TAction Action) {
  WIN32_FIND_DATAA Entry;
  bool Ended = false;
  TFindHandle Search = RetryFindFirstFile(Mask, Entry, Ended);
  if (Ended) return;
  for (; !Ended; RetryFindNextFile(Mask, Entry, Search.Get(), Ended)) {
    const std::string Name = Entry.cFileName;
    if (Name != "." && Name != "..") Action(static_cast<const WIN32_FIND_DATAA&>(Entry));
  }
  RetryFindClose(Mask, Search);
}
inline bool IsFolder(const WIN32_FIND_DATAA& Entry) { return (Entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
