#pragma once

#include "base/handles.h"

#include <string>
#include <string_view>

/// The characters of a BSTR; a null BSTR is an empty text.
std::wstring_view ViewOf(BSTR Text);

/// A new BSTR with these characters. Raises std::bad_alloc.
TBstr MakeBstr(std::wstring_view Text);

/// Converts to the system's ANSI code page; characters that it lacks become its replacement character. `Flags` and
/// `Replaced` (whether there were such characters) are those of WideCharToMultiByte.
std::string ToAnsi(std::wstring_view Text, DWORD Flags = 0, BOOL* Replaced = nullptr);

/// Converts from the system's ANSI code page.
std::wstring ToWide(std::string_view Ansi);
