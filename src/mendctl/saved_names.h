#pragma once

#include <map>
#include <string>
#include <string_view>

/// What the debug log tells of the items that were saved: by an item's registry form, the words of the call that made
/// it
/// ("C:\App\words.dat"), in the log's code page. For items that are missing now.
std::map<std::string, std::string> SavedNames(std::string_view DebugLog);
