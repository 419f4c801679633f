#pragma once

#include <string>
#include <vector>

/// The folders on the way to a folder, and itself, that do not exist, from the first; none when it exists. The name is
/// a full one.
std::vector<std::wstring> MissingFolders(const std::wstring& Folder);
