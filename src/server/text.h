#pragma once

#include "server/handles.h"

#include <string>
#include <string_view>

/// The characters of a BSTR; a null BSTR is an empty text.
std::wstring_view ViewOf(BSTR Text);

/// A new BSTR with these characters. Raises std::bad_alloc.
TBstr MakeBstr(std::wstring_view Text);

/// Converts to the system's ANSI code page; characters that it lacks become its replacement character.
std::string ToAnsi(std::wstring_view Text);

/// Converts from the system's ANSI code page.
std::wstring ToWide(std::string_view Ansi);

/// Converts the name of a file, folder or mask that a caller passed.
/// Fails with E_INVALIDARG when the name holds a NUL or a character that the ANSI code page lacks: its replacement
/// would be '?', a wildcard, and the call would reach files that the caller never named.
std::string FileNameArgument(BSTR Name);
