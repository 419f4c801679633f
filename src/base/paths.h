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

/// The size of the part of a path that no folder can be created for, its last backslash included when it has one:
/// `X:\`, `\\server\share\`, `\\?\X:\`, `\\?\Volume{...}\`, `\\?\UNC\server\share\`. 0 when the path is relative to a
/// folder or drive that is the current one, or names a device.
size_t RootSize(const std::string& Path);

/// Whether a path names nothing but a root. So does a bare drive, `X:`.
bool IsRoot(const std::string& Path);

/// Fails with E_INVALIDARG when a path has no root, see RootSize: it would be found in whatever folder is the current
/// one when it is used, perhaps by another process.
void RequireRoot(const std::string& Path);

/// Fails with E_INVALIDARG when `Mask` has no folder part that ends in a backslash: what such a mask finds does not lie
/// in the folder that its text names, and a change would hit other files.
void RequireFolderInMask(const std::string& Mask);

/// Whether a name that a search gave is one: a name with a separator in it, or of dots, leads to another folder.
bool IsPlainName(const std::string& Name);

/// The text from the last dot of a path's name on; "" without one. Case is kept.
std::string ExtensionOf(const std::string& Path);
