#pragma once

#include <string>

/// Removes what a folder holds and, when `RemoveFolder` is set and nothing is left, the folder itself (a bare drive
/// never). Gives whether everything was removed; a folder that does not exist gives false.
///
/// Left alone: every entry whose name begins with a dot, and volume labels. Read-only files go too, and so does what
/// the ANSI code page has no name for. A folder that is a link to another place stays as it is, with what lies behind
/// it, and so do the folders that hold it: not every platform would remove the link alone. Shows and logs nothing.
bool DeleteFolderTree(const std::wstring& Folder, bool RemoveFolder);
