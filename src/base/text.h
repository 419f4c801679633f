#pragma once

#include "base/handles.h"

#include <optional>
#include <string>
#include <string_view>

/// The characters of a BSTR; a null BSTR is an empty text.
std::wstring_view ViewOf(BSTR Text);

/// A new BSTR with these characters. Raises std::bad_alloc.
TBstr MakeBstr(std::wstring_view Text);

/// Converts to the ANSI code page when the way back gives the same text; nothing when the code page does not hold all
/// of it. What the system tells of lost characters is not asked for: it tells nothing with code page 65001, and some
/// others.
std::optional<std::string> ExactAnsi(std::wstring_view Text);

/// Whether these are characters of the ANSI code page: what was kept under another one may hold bytes that are none.
bool IsInCodePage(std::string_view Ansi);

/// Converts to the ANSI code page what is only shown or told: characters that it lacks become its replacement character
/// or one that looks alike. Never for a name that is acted on.
std::string LossyAnsi(std::wstring_view Text);

/// Converts from the ANSI code page.
std::wstring ToWide(std::string_view Ansi);
