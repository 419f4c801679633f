#pragma once

#include "base/registry_place.h"
#include "base/windows_api.h"

#include <string>

/// What callers pass is checked and converted here, once, before anything is done with it.

/// Converts the name of a file, folder or mask that a caller passed.
/// Fails with E_INVALIDARG when the name holds a NUL or a character that the ANSI code page lacks: its replacement
/// would be '?', a wildcard, and the call would reach files that the caller never named.
std::string FileNameArgument(BSTR Name);

/// A registry key that a caller named by one of the predefined roots (0x80000000 to 0x80000005) and its path below it.
/// Fails with E_INVALIDARG for any other root, like FileNameArgument, and when a part of the path is longer than the
/// registry allows (255 characters).
TKeyPlace KeyArgument(unsigned long RootKey, BSTR KeyName);

/// A registry value; its name is allowed 16,383 characters, and none: the default value.
TValuePlace ValueArgument(unsigned long RootKey, BSTR KeyName, BSTR ValueName);

/// Checks a buffer and its size in bytes. Fails with E_INVALIDARG for a size below 0, or a null buffer with a size.
void RequireBuffer(const void* Buffer, long Size);

/// A caller's Boolean, of which any value but 0 is true, as -1 or 0.
inline VARIANT_BOOL BooleanArgument(VARIANT_BOOL Flag) { return Flag ? VARIANT_TRUE : VARIANT_FALSE; }
