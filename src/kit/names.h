#pragma once

#include "base/windows_api.h"

#include <string>
#include <string_view>
#include <vector>

/// Names as the kit acts on them, in UTF-16, and as its items keep them, in UTF-8.
std::string Utf8Of(std::wstring_view Text);
std::wstring FromUtf8(std::string_view Text);

/// A name that a caller passed, as the system's whole name for it: without "." and "..", and without a backslash at
/// its end that is no root's. Fails with E_INVALIDARG when it is none that FileNameArgument takes, or no full one.
std::wstring FullNameArgument(BSTR Name);

/// A folder with one more name.
std::wstring Under(const std::wstring& Folder, const std::wstring& Name);

/// The folder that a full name lies in.
std::wstring FolderOf(const std::wstring& Name);

/// Whether there is a folder of this name.
bool FolderExists(const std::wstring& Name);

/// The attributes of what has this name, INVALID_FILE_ATTRIBUTES when nothing has. The user is asked about what keeps
/// them from being told.
DWORD AttributesOf(const std::wstring& Name);

/// The folders on the way to a folder, and itself, that do not exist, from the first; none when it exists. The name is
/// a full one.
std::vector<std::wstring> MissingFolders(const std::wstring& Folder);

/// Makes folders that were missing; one that somebody else made meanwhile is as good. The user is asked about what
/// fails.
void MakeFolders(const std::vector<std::wstring>& Folders);
