#pragma once

#include <string_view>

/// Whether a type library in a file of its own (the kind that begins with "MSFT") refers to bytes behind its end: it
/// has been cut off, and not every platform's reader survives that. False for anything else.
bool IsCutOffTypeLibrary(std::string_view File);
