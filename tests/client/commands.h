#pragma once

#include <string>
#include <vector>

// Every command finds COM ready and a debug log and a dialog of its own registered. It gives the exit status, 0 for
// success.

/// put-entries FIRST COUNT: appends entries with the codes FIRST, FIRST + 1, ... for the
/// do-nothing class; tells when it is ready to begin and waits to be let go.
int PutEntries(const std::vector<std::string>& Arguments);

/// put-lines NAME COUNT: appends COUNT lines to the real debug log; repeats a line that the user gave up. Tells when it
/// is ready to begin and waits to be let go.
int PutLines(const std::vector<std::string>& Arguments);

/// make-changes "NAME ..." FOLDER EVENT N: makes logged changes to the application in FOLDER, or rolls them back; see
/// logged_changes.cpp for the names. At the N-th call of the module that changes a file, a folder or the log, the event
/// happens to the process: `before`, `after` and `torn` end it with DiedStatus, `stop` halts it; `nothing` does not.
int MakeChanges(const std::vector<std::string>& Arguments);
constexpr int DiedStatus = 77;
/// The code of the entry that the change `put` appends.
constexpr int PutChangeCode = 5;

/// progress-window CODE: shows the updater's progress window and tells when it is there. Ends when the window is
/// closed; successfully when it got the rollback message once, with CODE.
int ShowProgressWindow(const std::vector<std::string>& Arguments);
