// The torture program: drives the registered library as a client, ends and disturbs it at every point, and compares.

#include "torture.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <set>

namespace {

const struct TPart {
  std::string Name, What;
  TResult (*Run)(const TPlan& Plan);
} Parts[] = {
    {"kill", "an update and its rollback, ended before, in and after every changing system call",
     [](const TPlan& Plan) { return KillMatrix(Plan, TForm::Plain); }},
    {"power", "an update and its rollback, ended at every call, and what was not flushed lost, cut or zeros",
     [](const TPlan& Plan) { return PowerLoss(Plan, TForm::Plain); }},
    {"kit-kill", "the same deaths of an update through the kit, after which nothing at all may stay",
     [](const TPlan& Plan) { return KillMatrix(Plan, TForm::Kit); }},
    {"kit-power", "the same losses in an update through the kit",
     [](const TPlan& Plan) { return PowerLoss(Plan, TForm::Kit); }},
    {"torn", "every file of the system cut at every length, and with a flipped byte at every offset", TornFiles},
    {"fault", "every system call of an update failing once; Retry and Cancel",
     [](const TPlan& Plan) { return FaultMatrix(Plan, TForm::Plain); }},
    {"kit-fault", "every system call of the kit in its update failing once; Retry and Cancel",
     [](const TPlan& Plan) { return FaultMatrix(Plan, TForm::Kit); }},
    {"many", "eight processes at once on one base folder, killed and replaced", ManyAtOnce},
    {"apart", "four threads in one process, and two processes with the real debug log", Apart},
    {"long", "many calls on one set of objects: handles, windows' objects, memory", LongLife},
};

std::string RunningPart;

/// ./mend torture --help tells what the options are for.
constexpr char Usage[] =
    "usage: mendwork_torture [--quick | --full] [--only PART]... [--match TEXT] [--shard I/N] [--list] [--help]\n"
    "The results go to results.txt in the current folder. Ends with status 1 when a case ended otherwise than it "
    "must.\n";

void Print(const TPart& Part, const TResult& Result, double Seconds) {
  std::printf("%-9s %d cases, %d as they must be, %d not  (%.0f s)\n          %s\n", Part.Name.c_str(), Result.Cases,
              Result.Good, static_cast<int>(Result.Bad.size()), Seconds, Part.What.c_str());
  for (const auto& [Note, Count] : Result.Notes) std::printf("          %s: %d\n", Note.c_str(), Count);
  constexpr size_t MostShown = 20, MostText = 300;
  for (size_t At = 0; At < std::min(MostShown, Result.Bad.size()); ++At)
    std::printf("  BAD  %s\n", Result.Bad[At].substr(0, MostText).c_str());
  if (Result.Bad.size() > MostShown) std::printf("  ...  the others are in the results file\n");
  std::fflush(stdout);
}

/// For whom reads it afterwards: name, cases and good ones in a line of their own, then all that was counted.
void Record(std::ostream& File, const TPart& Part, const TResult& Result) {
  File << Part.Name << " " << Result.Cases << " " << Result.Good << "\n";
  for (const auto& [Note, Count] : Result.Notes) File << "  " << Note << ": " << Count << "\n";
  for (const std::string& Text : Result.Bad) File << "  BAD " << Text << "\n";
}

/// Whether every case of every part that is wanted was as it must be.
bool RunParts(const TPlan& Plan, const std::set<std::string>& Only) {
  std::ofstream File("results.txt", std::ios::binary);
  bool Good = true;
  for (const TPart& Part : Parts) {
    if (!Only.empty() && !Only.count(Part.Name)) continue;
    RunningPart = Part.Name;
    const ULONGLONG Begin = GetTickCount64();
    const TResult Result = Part.Run(Plan);
    if (Result.Skipped) continue;
    Print(Part, Result, static_cast<double>(GetTickCount64() - Begin) / 1000);
    Record(File, Part, Result);
    // A match may leave this share nothing to do.
    Good = Good && (Result.Cases > 0 || !Plan.Match.empty()) && Result.Good == Result.Cases;
  }
  File << "end" << std::endl;
  Must(File.good(), "cannot write results.txt");
  return Good;
}

int Run(const std::vector<std::string>& Words) {
  TPlan Plan;
  std::set<std::string> Only;
  for (size_t At = 0; At < Words.size(); ++At) {
    const std::string& Word = Words[At];
    const auto Next = [&] {
      return At + 1 < Words.size() ? Words[++At] : throw std::runtime_error(Word + " needs a value");
    };
    if (Word == "--help") return std::fputs(Usage, stdout) < 0;
    if (Word == "--list") {
      for (const TPart& Part : Parts) std::printf("%-9s %s\n", Part.Name.c_str(), Part.What.c_str());
      return 0;
    }
    if (Word == "--quick" || Word == "--full") {
      Plan.Full = Word == "--full";
    } else if (Word == "--only") {
      const std::string Name = *Only.insert(Next()).first;
      Must(std::ranges::count(Parts, Name, &TPart::Name) == 1, "there is no part " + Name + "; --list lists them");
    } else if (Word == "--match") {
      Plan.Match = Next();
    } else if (Word == "--shard") {
      const int Numbers = std::sscanf(Next().c_str(), "%d/%d", &Plan.Shard, &Plan.Shards);
      Must(Numbers == 2 && Plan.Shard >= 0 && Plan.Shard < Plan.Shards, "--shard takes I/N with I below N");
    } else {
      throw std::runtime_error("there is no option " + Word + "; --help lists them");
    }
  }
  return RunParts(Plan, Only) ? 0 : 1;
}

}  // namespace

void TellProgress(int Done, int Of) {
  constexpr int Every = 50;
  if (Done % Every == 0) std::printf("  %s: %d of %d\n", RunningPart.c_str(), Done, Of), std::fflush(stdout);
}

int main(int Count, char** Arguments) {
  try {
    if (const int Status = PlayRole(Count, Arguments); Status >= 0) return Status;
    return Run({Arguments + 1, Arguments + Count});
  } catch (const std::exception& Failure) {
    std::printf("mendwork_torture: %s\n", Failure.what());
    return 2;
  }
}
