#pragma once

#include "base/handles.h"
#include "base/windows_api.h"

#include <string>

/// The retry layer's wrappers for files, folders and searches: each makes the system call that it is named after, and
/// returns when it has succeeded or raises the engine's failure. Names are ANSI.

/// An open file or search, with its name.
using TOpenFile = TNamed<TFileHandle>;
using TSearch = TNamed<TFindHandle>;

DWORD RetryGetFileAttributes(const std::string& FileName);
void RetrySetFileAttributes(const std::string& FileName, DWORD Attr);

struct TFileTimes {
  FILETIME Creation{}, LastAccess{}, LastWrite{};
};
TFileTimes RetryGetFileTime(const TOpenFile& File);
void RetrySetFileTime(const TOpenFile& File, const TFileTimes& Times);

/// A folder that exists already counts as created.
void RetryCreateDirectory(const std::string& Folder);
void RetryDeleteDirectory(const std::string& Folder);
/// Creates a folder with all its missing parents. A text of fewer than 3 characters, such as a drive, creates nothing,
/// and neither does the root of a share or a drive, however it is written (see RootSize).
void RetryForceDirectories(const std::string& Folder);

/// Nothing that matches, or no such folder, is no failure: `NotFound` is set and the search is empty.
TSearch RetryFindFirstFile(const std::string& Mask, WIN32_FIND_DATAA& FindData, bool& NotFound);
/// The end of the search is no failure: `NoMoreFiles` is set.
void RetryFindNextFile(const TSearch& Search, WIN32_FIND_DATAA& FindData, bool& NoMoreFiles);
/// Leaves the search empty.
void RetryFindClose(TSearch& Search);

/// The attributes of a file as RetryCreateFile takes them for `Flags`. Of the attributes that a file may report, others
/// are flags there that change how the opened file behaves: of a file that is kept elsewhere, "pinned" would be a
/// pipe's flag, and "strictly sequential" would switch the cache off.
constexpr DWORD OpenFlagsOf(DWORD Attributes) {
  return Attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                       FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_TEMPORARY |
                       FILE_ATTRIBUTE_OFFLINE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_ENCRYPTED);
}
/// Patient. The message depends on the disposition: create, open, or either.
TOpenFile RetryCreateFile(const std::string& FileName, DWORD Access, DWORD Share, DWORD Disposition,
                          DWORD Flags = FILE_ATTRIBUTE_NORMAL);
/// Gives the number of bytes read. Writes its lines only when `Lines` is set.
DWORD RetryReadFile(const TOpenFile& File, void* Buffer, bool Lines, DWORD ToRead);
/// Gives the number of bytes written. Never writes lines; `Lines` only decides whether a call id is taken.
DWORD RetryWriteFile(const TOpenFile& File, const void* Buffer, bool Lines, DWORD ToWrite);
/// Leaves the file empty, also when the user gives up.
void RetryCloseHandle(TOpenFile& File);
/// The low 32 bits of the size.
DWORD RetryGetFileSize(const TOpenFile& File);
/// Copies from the source's current position to its end to the destination's current position, 32768 bytes at a time;
/// truncates and closes nothing.
void RetryReadAndAppendFile(const TOpenFile& Source, const TOpenFile& Dest);
void RetrySetFilePointer(const TOpenFile& File, LONG Distance, DWORD Method);
/// Patient. Clears the attributes first, so a read-only file goes too (an attempt that fails puts them back), and
/// returns when the file has really gone, or its name belongs to a new file. A file that does not exist is deleted
/// already.
void RetryDeleteFile(const std::string& FileName);
/// Patient.
void RetryMoveFile(const std::string& OldName, const std::string& NewName);
void RetrySetEndOfFile(const TOpenFile& File);
/// Does nothing, by intent: it marks steps after which older versions flushed. What protects the files when a process
/// dies is the order of the changes.
inline void RetryFlushFileBuffers(const TOpenFile&) {}
/// Has the system bring what it still holds of the file to the disk. What must outlive a power failure is flushed by
/// this, and only that: an item before its entry is recorded, a log before its backup copy goes, a restored file before
/// its entry is cut off, a copied file before the call returns. Silent: it takes no call id, and a volume that cannot
/// do it must not keep an update from being made.
void FlushToDisk(const TOpenFile& File);

/// Whether a file or folder of this name exists, as a search finds it. A search that fails otherwise than with "file
/// not found" does not count as a "no" when a file of this name has attributes. Shows and logs nothing; takes a call
/// id.
bool FileExistsByFind(const std::string& FileName);

/// Whether the system says that there is no file or folder of this name. Shows and logs nothing.
bool IsMissing(const std::string& Name);
