// The benchmark program: measures the registered library as a client, prints a table and writes a results file.

#include "bench.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

const TCase Cases[] = {
    {"copy-over-existing", 1.05, "", CopyOverExisting, "CopyFile of 256 MiB over a file, against a bare loop"},
    {"copy-to-new", 1.05, "", CopyToNew, "CopyFile of 256 MiB to a new name, against a bare loop"},
    {"copy-logged", 1.10, "", CopyLogged, "CopyFileLogged of 256 MiB over 256 MiB, against two bare loops"},
    {"copy-memory", 4, "MiB", PeakOfCopy, "peak working set of copying 256 MiB, above that of copying 1 MiB"},
    {"log-line", 1.15, "", DebugLogLine, "a line of the retry layer, against the bare calls that it needs"},
    {"wrapper-share", 5, "%", WrapperShare, "of a small CopyFile, what is neither line nor system call"},
    {"transaction-put", 0, "", LogPut, "Put on a log of 10,000 entries, against one of 10"},
    {"transaction-rollback", 0, "", LogRollback, "an entry's rollback out of 1,000, against one out of 100"},
    {"tree-backup", 0, "", TreeBackup, "BackupFiles: a file out of 2,000, against one out of 200"},
    {"tree-restore", 0, "", TreeRestore, "RestoreFiles: a file out of 2,000, against one out of 200"},
    {"registry-set-logged", 0, "", SetValueLogged, "SetDwordValueLogged, against the bare calls"},
    {"registry-delete", 0, "", KeyTreeDelete, "DeleteRegKeyLogged: 1,000 keys, 3,000 values, against the bare calls"},
    {"registry-rollback", 0, "", KeyTreeRollback, "the rollback of that, against the bare calls"},
    {"history-put", 0, "", HistoryPut, "History's Put in a group of 1,000 records, against one of 10"},
    {"macro-set", 0, "", MacroSet, "SetMacro among 1,000 permanent macros, against among 10"},
};

constexpr char Usage[] =
    "usage: mendwork_bench [--only NAME]... [--quick] [--json FILE] [--list] [--help]\n\n"
    "  --only NAME  measures this case and no other; may be repeated\n"
    "  --quick      measures less and fewer times, to see that everything works\n"
    "  --json FILE  where the results go; results.json in the current folder by default\n"
    "  --list       lists the cases\n\n"
    "A value is the median over n rounds; \"of the least\" compares the best rounds, where noise could hide it.\n"
    "A target that is missed does not make the program fail; a case that cannot be measured does.\n";

struct TOptions {
  std::vector<std::string> Only;
  std::string JsonName = "results.json";
  bool Quick = false;
};

struct TMeasured {
  const TCase& Case;
  TResult Result;
  bool Judged;  ///< there is a target, and enough was measured
};

bool IsMet(const TMeasured& Row) { return Row.Result.Value <= Row.Case.Target; }

void Print(const TMeasured& Row) {
  const TCase& Case = Row.Case;
  std::printf("%-21s %8.3f %-3s  ", Case.Name, Row.Result.Value, Case.Unit);
  if (Row.Judged)
    std::printf("target %.2f: %-6s", Case.Target, IsMet(Row) ? "met" : "MISSED");
  else
    std::printf("%-19s", Case.Target > 0 ? "quick, not judged" : "no target");
  std::printf("  n = %d\n    %s\n", Row.Result.Samples, Case.What);
  for (const TFigure& Figure : Row.Result.Figures)
    std::printf("    %-24s %12.3f %s\n", Figure.Name.c_str(), Figure.Value, Figure.Unit);
  std::fflush(stdout);
}

/// Names and texts are the program's own and hold nothing that JSON would have to escape.
void WriteJson(const TOptions& Options, const std::vector<TMeasured>& Rows) {
  std::FILE* const File = std::fopen(Options.JsonName.c_str(), "wb");
  if (!File) throw EBench("cannot write " + Options.JsonName);
  std::fprintf(File, "{\n  \"quick\": %s,\n  \"cases\": [", Options.Quick ? "true" : "false");
  const char* Separator = "";
  for (const TMeasured& Row : Rows) {
    std::fprintf(File, "%s\n    {\"name\": \"%s\", \"what\": \"%s\", \"value\": %.4f, \"unit\": \"%s\", ", Separator,
                 Row.Case.Name, Row.Case.What, Row.Result.Value, Row.Case.Unit);
    if (Row.Judged)
      std::fprintf(File, "\"target\": %.2f, \"met\": %s, ", Row.Case.Target, IsMet(Row) ? "true" : "false");
    std::fprintf(File, "\"samples\": %d, \"figures\": [", Row.Result.Samples);
    Separator = "";
    for (const TFigure& Figure : Row.Result.Figures) {
      std::fprintf(File, "%s\n      {\"name\": \"%s\", \"value\": %.4f, \"unit\": \"%s\"}", Separator,
                   Figure.Name.c_str(), Figure.Value, Figure.Unit);
      Separator = ",";
    }
    std::fprintf(File, "]}");
    Separator = ",";
  }
  std::fprintf(File, "\n  ]\n}\n");
  if (std::fclose(File) != 0) throw EBench("cannot write " + Options.JsonName);
}

const TCase& CaseNamed(const std::string& Name) {
  for (const TCase& Case : Cases)
    if (Name == Case.Name) return Case;
  throw EBench("there is no case " + Name + "; --list lists them");
}

void MeasureAll(const TOptions& Options) {
  std::vector<TMeasured> Rows;
  const TBench Bench(Options.Quick);
  for (const TCase& Case : Cases) {
    const bool Wanted =
        Options.Only.empty() || std::find(Options.Only.begin(), Options.Only.end(), Case.Name) != Options.Only.end();
    if (!Wanted) continue;
    Rows.push_back({Case, Case.Measure(Bench), Case.Target > 0 && !Options.Quick});
    Print(Rows.back());
  }
  WriteJson(Options, Rows);
}

int Run(const std::vector<std::string>& Arguments) {
  TOptions Options;
  for (size_t At = 0; At < Arguments.size(); ++At) {
    const std::string& Word = Arguments[At];
    const auto Next = [&] {
      return At + 1 < Arguments.size() ? Arguments[++At] : throw EBench(Word + " needs a value");
    };
    if (Word == "--help" || Word == "--list") {
      if (Word == "--help") std::fputs(Usage, stdout);
      for (const TCase& Case : Cases)
        if (Word == "--list") std::printf("%-21s %s\n", Case.Name, Case.What);
      return 0;
    }
    if (Word == "--quick")
      Options.Quick = true;
    else if (Word == "--only")
      Options.Only.push_back(CaseNamed(Next()).Name);
    else if (Word == "--json")
      Options.JsonName = Next();
    else
      throw EBench("there is no option " + Word + "; --help lists them");
  }
  MeasureAll(Options);
  return 0;
}

}  // namespace

int main(int Count, char** Words) {
  const std::vector<std::string> Arguments(Words + 1, Words + Count);
  try {
    // A child process that a case starts: --copy-and-tell-peak SIZE RESULT-FILE.
    if (Arguments.size() != 3 || Arguments[0] != "--copy-and-tell-peak") return Run(Arguments);
    CopyAndTellPeak(TBench(false), std::stoi(Arguments[1]), Arguments[2]);
    return 0;
  } catch (const std::exception& Failure) {
    std::printf("mendwork_bench: %s\n", Failure.what());
    return 1;
  }
}
