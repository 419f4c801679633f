#pragma once

#include <string_view>

/// Whether a type library in a file of its own (the kind that begins with "MSFT") refers to bytes behind its end, or to
/// entries that its tables do not have: it has been cut off or damaged, and not every platform's reader survives that.
/// What is looked at is what a reader follows on its way through the file: the tables, the types with their members,
/// the values, and the lists of custom data, which must end. False for anything else.
bool IsDamagedTypeLibrary(std::string_view File);
