#pragma once

#include "base/windows_api.h"

#include <optional>
#include <set>
#include <string>

/// What a file set of the backup store holds, so that a change can keep to it. Read without lines; the user is asked
/// about what fails.

/// The names of the files that were saved, and of the folders that come back when they are missing, subfolders' sets
/// included; nothing when an active backup object of somebody else keeps its items elsewhere. Fails when an item cannot
/// be read.
std::optional<std::set<std::string>> SavedNames(const GUID& DataID);

/// Whether the set holds a file of its own folder; also when it is kept elsewhere.
bool HasSavedFile(const GUID& DataID);
