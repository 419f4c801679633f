// The second process of the tests: does what its command line says and ends with status 0, or prints why it could not
// and ends with another. A command is a row of the table below; the files of this folder define them.

#include "client/commands.h"
#include "support/doubles.h"

#include <cstdio>
#include <cstring>

namespace {

struct TCommand {
  const char* Name;
  int (*Run)(const std::vector<std::string>& Arguments);
};

const TCommand Commands[] = {
    {"put-entries", PutEntries},  {"make-changes", MakeChanges}, {"progress-window", ShowProgressWindow},
    {"put-lines", PutLines},      {"put-records", PutRecords},   {"match-macro", MatchMacro},
    {"put-garbage", PutGarbage},  {"process-inno", ProcessInno}, {"match-lists", MatchLists},
    {"bring-to-log", BringToLog},
};

}  // namespace

int main(int Count, char** Arguments) {
  // The log file belongs to one process at a time, and the doubles of the test's process would be reached through its
  // message queue, on which nobody waits: a second process brings its own.
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  RegisterActive(new TMemoryLog, CLSID_UDebugLog);
  RegisterActive(new TScriptedDialog, CLSID_UDialog);
  const std::vector<std::string> Rest(Arguments + (Count > 1 ? 2 : 1), Arguments + Count);
  for (const TCommand& Command : Commands)
    if (Count > 1 && std::strcmp(Command.Name, Arguments[1]) == 0) return Command.Run(Rest);
  std::printf("unknown command\n");
  return 2;
}
