#pragma once

#include <string>
#include <vector>

// Every command finds COM ready and a debug log and a dialog of its own registered. It gives the exit status, 0 for
// success.

/// put-entries FIRST COUNT: appends entries with the codes FIRST, FIRST + 1, ... for the
/// do-nothing class; tells when it is ready to begin and waits to be let go.
int PutEntries(const std::vector<std::string>& Arguments);
