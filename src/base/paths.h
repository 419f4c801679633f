#pragma once

#include <string>

/// The folder of a path as the system writes it: up to the last backslash or drive colon, with that character.
/// Empty when there is neither.
std::string FolderPrefix(const std::string& Path);

/// The same without the last backslash, except behind a colon or another backslash: a drive root keeps its own.
std::string FolderPart(const std::string& Path);

/// What follows FolderPrefix.
std::string NamePart(const std::string& Path);

/// The folder with one backslash at its end.
std::string WithBackslash(const std::string& Folder);

/// Fails with E_INVALIDARG when `Mask` has no folder part that ends in a backslash, or a slash behind it: what such a
/// mask finds does not lie in the folder that its text names, and a change would hit other files.
void RequireFolderInMask(const std::string& Mask);

/// The text from the last dot of a path's name on; "" without one. Case is kept.
std::string ExtensionOf(const std::string& Path);
