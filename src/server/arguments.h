#pragma once

#include "base/windows_api.h"

#include <string>

/// What callers pass is checked here, once, before anything is done with it.

/// Converts the name of a file, folder or mask that a caller passed.
/// Fails with E_INVALIDARG when the name holds a NUL or a character that the ANSI code page lacks: its replacement
/// would be '?', a wildcard, and the call would reach files that the caller never named.
std::string FileNameArgument(BSTR Name);

/// The value of a predefined registry root (0x80000000 to 0x80000005). Fails with E_INVALIDARG for any other.
DWORD RootKeyArgument(unsigned long RootKey);

/// The path of a registry key below its root, and the name of a value. They fail like FileNameArgument, and when they
/// are longer than the registry allows (255 characters for each part of a path, 16,383 for a value's name).
std::string KeyNameArgument(BSTR KeyName);
std::string ValueNameArgument(BSTR ValueName);

/// Checks a buffer and its size in bytes. Fails with E_INVALIDARG for a size below 0, or a null buffer with a size.
void RequireBuffer(const void* Buffer, long Size);
