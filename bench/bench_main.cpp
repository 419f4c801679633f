// The benchmark program: measures the registered library as a client, prints a table and writes a results file.

#include "bench.h"

#include <cstdio>

namespace {

const TCase Cases[] = {
    {"copy-over-existing", 1.05, "", CopyOverExisting, "CopyFile of 256 MiB over a file, against a bare loop"},
    {"copy-to-new", 1.05, "", CopyToNew, "CopyFile of 256 MiB to a new name, against a bare loop"},
    {"copy-logged", 1.10, "", CopyLogged, "CopyFileLogged of 256 MiB over 256 MiB, against two bare loops"},
    {"copy-memory", 4, "MiB", PeakOfCopy, "peak working set of copying 256 MiB, above that of copying 1 MiB"},
    {"log-line", 1.15, "", DebugLogLine, "a line of the retry layer, against the bare calls that it needs"},
    {"lock", 0, "", LockOfALine, "the lock around a line, against one that does not notice a dead holder"},
    {"wrapper-share", 5, "%", WrapperShare, "of a small CopyFile, what is neither line nor system call"},
    {"transaction-put", 0, "", LogPut, "Put on a log of 10,000 entries, against one of 10"},
    {"transaction-rollback", 0, "", LogRollback, "an entry's rollback out of 1,000, against one out of 100"},
    {"tree-backup", 0, "", TreeBackup, "BackupFiles: a file out of 2,000, against one out of 200"},
    {"tree-restore", 0, "", TreeRestore, "RestoreFiles: a file out of 2,000, against one out of 200"},
    {"registry-set-logged", 1.10, "", SetValueLogged, "SetDwordValueLogged, against the bare calls and lines"},
    {"registry-delete", 1.10, "", KeyTreeDelete, "DeleteRegKeyLogged: 1,000 keys, 3,000 values, against the same"},
    {"registry-rollback", 1.10, "", KeyTreeRollback, "the rollback of that, against the same"},
    {"small-values", 1.15, "", SmallValues, "500 values set logged, against the bare calls and lines"},
    {"small-copies", 1.15, "", SmallCopies, "1,000 logged copies of 4 KiB, against the bare calls and lines"},
    {"flush", 0, "", Flushes, "logged copies, flushed and not flushed; the value is that of 1,000 small ones"},
    {"large-store", 0, "", LargeStore, "a logged copy with 80,000 items in the store, against one with none"},
    {"kit-copies", 5, "", KitCopies, "the kit's CopyFileLogged over 1,000 files of 4 KiB, against a bare loop"},
    {"kit-tree", 3, "", KitTree, "the kit's CopyTreeLogged over the same, against the same"},
    {"history-put", 0, "", HistoryPut, "History's Put in a group of 1,000 records, against one of 10"},
    {"macro-set", 0, "", MacroSet, "SetMacro among 1,000 permanent macros, against among 10"},
    {"garbage", 1.10, "", GarbageRemoval, "Garbage on 2,000 files and 200 folders, against the bare calls"},
    {"garbage-lines", 1.10, "", GarbageGrowth, "Garbage: a line out of 10,000, against one out of 100"},
    {"uninstall-log-load", 2, "", LogLoad, "Load of 200,000 records in memory, against zlib's crc32 and a copy"},
    {"uninstall-log-save", 2, "", LogSave, "Save of the same, against the same"},
    {"uninstall-log-growth", 0, "", LogGrowth, "Load and Save: a record out of 200,000, against one out of 20,000"},
    {"uninstall-log-file", 2, "", LogLoadFromFile, "ProcessInno reading a file of 200,000 records, against the same"},
    {"uninstall-log-names", 12, "", DuplicatePass, "ProcessInno's search for 10,000 listed names, against 1,000"},
};

const std::pair<const char*, void (*)(const TBench&, int, const std::string&)> Children[] = {
    {"--copy-and-tell-peak", CopyAndTellPeak}, {"--process-and-tell-times", ProcessAndTellTimes}};

}  // namespace

int main(int Count, char** Words) {
  const std::vector<std::string> Arguments(Words + 1, Words + Count);
  try {
    // A child process that a case starts: its name, a number, the file for its results.
    for (const auto& [Name, Run] : Children) {
      if (Arguments.size() != 3 || Arguments[0] != Name) continue;
      Run(TBench(false), std::stoi(Arguments[1]), Arguments[2]);
      return 0;
    }
    return RunProgram(Arguments, Cases, [](bool Quick) { return std::make_shared<const TBench>(Quick); });
  } catch (const std::exception& Failure) {
    std::printf("mendwork_bench: %s\n", Failure.what());
    return 1;
  }
}
