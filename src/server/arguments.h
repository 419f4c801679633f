#pragma once

#include "server/windows_api.h"

#include <string>

/// What callers pass is checked here, once, before anything is done with it.

/// Converts the name of a file, folder or mask that a caller passed.
/// Fails with E_INVALIDARG when the name holds a NUL or a character that the ANSI code page lacks: its replacement
/// would be '?', a wildcard, and the call would reach files that the caller never named.
std::string FileNameArgument(BSTR Name);
