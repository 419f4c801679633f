#pragma once

#include "base/registry_place.h"
#include "base/windows_api.h"

#include <string>

/// What callers pass is checked and converted here, once, before anything is done with it.

/// Converts a text that a caller passed. Fails with E_INVALIDARG when it holds a character that the ANSI code page
/// lacks: its replacement may be '?', a wildcard, or a letter that looks alike, and what is acted on, or kept, would
/// not be what the caller said.
std::string TextArgument(BSTR Text);

/// Converts a mask that a caller passed, like TextArgument. Fails with E_INVALIDARG when it holds a NUL, too. Slashes
/// become backslashes, as the system reads them; behind `\\?\`, where it does not, a name with one fails.
std::string MaskArgument(BSTR Mask);

/// The same for the name of one file: a wildcard in it fails as well, since it is no name when the file is looked for;
/// for the system `<`, `>` and `"` are wildcards, too.
std::string FileNameArgument(BSTR Name);

/// The same, also of a name that the code page lacks: for what is done with the wide name alone.
std::wstring WideFileNameArgument(BSTR Name);

/// A registry key that a caller named by one of the predefined roots (0x80000000 to 0x80000005) and its path below it.
/// Fails with E_INVALIDARG for any other root, like MaskArgument, and when a part of the path is longer than the
/// registry allows (255 characters).
TKeyPlace KeyArgument(unsigned long RootKey, BSTR KeyName);

/// A registry value; its name is allowed 16,383 characters, and none: the default value.
TValuePlace ValueArgument(unsigned long RootKey, BSTR KeyName, BSTR ValueName);

/// Checks a buffer and its size in bytes. Fails with E_INVALIDARG for a size below 0, or a null buffer with a size.
void RequireBuffer(const void* Buffer, long Size);

/// A caller's Boolean, of which any value but 0 is true, as -1 or 0.
inline VARIANT_BOOL BooleanArgument(VARIANT_BOOL Flag) { return Flag ? VARIANT_TRUE : VARIANT_FALSE; }
