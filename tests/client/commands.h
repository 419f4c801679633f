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
/// logged_changes.cpp for the names. At the N-th changing call of the module the event happens; see changing_calls.h.
int MakeChanges(const std::vector<std::string>& Arguments);
/// The code of the entry that the change `put` appends.
constexpr int PutChangeCode = 5;

/// progress-window CODE: shows the updater's progress window and tells when it is there. Ends when the window is
/// closed; successfully when it got the rollback message once, with CODE.
int ShowProgressWindow(const std::vector<std::string>& Arguments);

/// put-records GROUP FIRST COUNT: puts records with the codes FIRST, FIRST + 1, ... into a group of the history; tells
/// when it is ready to begin and waits to be let go.
int PutRecords(const std::vector<std::string>& Arguments);

/// put-garbage PREFIX COUNT: writes the files PREFIX0, PREFIX1, ... and puts each into the garbage lists; tells when it
/// is ready to begin and waits to be let go.
int PutGarbage(const std::vector<std::string>& Arguments);

/// match-macro NAME VALUE...: compares what the macro NAME is in a new process with VALUEs, given in hexadecimal; an
/// empty one stands for a macro that is not there. Ends with the number of the VALUE that it is, from 0, or NoMatch.
int MatchMacro(const std::vector<std::string>& Arguments);
constexpr int NoMatch = 99;
inline std::string HexText(const std::string& Bytes) {
  std::string Result;
  for (const char Byte : Bytes)
    for (const int Half : {Byte >> 4 & 15, Byte & 15}) Result += "0123456789abcdef"[Half];
  return Result;
}

/// process-inno EVENT N: calls ProcessInno. At the N-th Win32 call of the module inside, the process ends with
/// DiedStatus: EVENT is `before`, `after`, or `torn` (in the middle of the N-th write); `nothing` lets it live.
int ProcessInno(const std::vector<std::string>& Arguments);

/// match-lists FILES SERVERS: whether the lists of a new process are these comma texts, given in hexadecimal.
int MatchLists(const std::vector<std::string>& Arguments);

/// bring-to-log FOLDER: makes FOLDER the base folder, adds what its names.txt lists (one "file:NAME" or "server:NAME" a
/// line), calls ProcessInno, and writes what the log holds then to records.txt: type, ExtraValue and the data in
/// hexadecimal, a record a line.
int BringToLog(const std::vector<std::string>& Arguments);
