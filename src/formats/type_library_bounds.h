#pragma once

#include <string_view>

/// Whether a type library in a file of its own (the kind that begins with "MSFT") refers to bytes behind its end, or to
/// names and references behind the end of their tables: it has been cut off or damaged, and not every platform's reader
/// survives that. False for anything else.
bool IsCutOffTypeLibrary(std::string_view File);
