// The torture program: drives the registered library as a client, ends and disturbs it at every point, and compares.

#include "torture.h"

#include <algorithm>
#include <cstdio>

namespace {

const TPart Parts[] = {
    {"kill", "an update and its rollback, ended before, in and after every changing system call", KillMatrix},
    {"torn", "every file of the system cut at every length, and with a flipped byte at every offset", TornFiles},
    {"fault", "every system call of an update failing once; Retry and Cancel", FaultMatrix},
    {"many", "eight processes at once on one base folder, killed and replaced", ManyAtOnce},
    {"long", "many calls on one set of objects: handles, windows' objects, memory", LongLife},
};

constexpr char Usage[] =
    "usage: mendwork_torture [--quick | --full] [--only PART]... [--shard I/N] [--json FILE] [--list] [--help]\n\n"
    "  --quick      a fixed sample of the cases (the default)\n"
    "  --full       all of them\n"
    "  --only PART  this part and no other; may be repeated\n"
    "  --match TEXT the cases whose description has this in it; of torn, the files; many and long ignore it\n"
    "  --shard I/N  every N-th case, beginning with the I-th (from 0)\n"
    "  --json FILE  where the results go; results.json in the current folder by default\n"
    "  --list       lists the parts\n\n"
    "Ends with status 1 when a case ended otherwise than it must, or a part had none.\n";

struct TOptions {
  TPlan Plan;
  std::vector<std::string> Only;
  std::string JsonName = "results.json";
};

std::string Escaped(const std::string& Text) {
  std::string Result;
  for (const char Character : Text) {
    char Code[8];
    std::snprintf(Code, sizeof Code, "\\u%04x", static_cast<unsigned char>(Character));
    const bool Plain = Character >= ' ' && Character < 127 && Character != '"' && Character != '\\';
    Result += Plain ? std::string(1, Character) : Code;
  }
  return Result;
}

void Print(const TPart& Part, const TResult& Result, double Seconds) {
  std::printf("%-6s %d cases, %d as they must be, %d not  (%.0f s)\n       %s\n", Part.Name, Result.Cases, Result.Good,
              static_cast<int>(Result.Bad.size()), Seconds, Part.What);
  for (const auto& [Note, Count] : Result.Notes) std::printf("       %s: %d\n", Note.c_str(), Count);
  constexpr size_t MostShown = 20, MostText = 300;
  for (size_t At = 0; At < std::min(MostShown, Result.Bad.size()); ++At)
    std::printf("  BAD  %s\n", Result.Bad[At].substr(0, MostText).c_str());
  if (Result.Bad.size() > MostShown) std::printf("  ...  the others are in the results file\n");
  std::fflush(stdout);
}

void WriteJson(std::FILE* File, const TPart& Part, const TResult& Result) {
  std::fprintf(File, "{\"part\": \"%s\", \"cases\": %d, \"good\": %d, \"notes\": {", Part.Name, Result.Cases,
               Result.Good);
  const char* Separator = "";
  for (const auto& [Note, Count] : Result.Notes) {
    std::fprintf(File, "%s\"%s\": %d", Separator, Escaped(Note).c_str(), Count);
    Separator = ", ";
  }
  std::fprintf(File, "}, \"bad\": [");
  Separator = "";
  for (const std::string& Bad : Result.Bad) {
    std::fprintf(File, "%s\"%s\"", Separator, Escaped(Bad).c_str());
    Separator = ", ";
  }
  std::fprintf(File, "]}");
}

const TPart& PartNamed(const std::string& Name) {
  for (const TPart& Part : Parts)
    if (Name == Part.Name) return Part;
  throw std::runtime_error("there is no part " + Name + "; --list lists them");
}

/// Whether every case of every part was as it must be.
bool RunParts(const TOptions& Options) {
  std::FILE* const File = std::fopen(Options.JsonName.c_str(), "wb");
  Must(File, "cannot write " + Options.JsonName);
  bool Good = true;
  std::fputs("[", File);
  const char* Separator = "\n  ";
  for (const TPart& Part : Parts) {
    const bool Wanted =
        Options.Only.empty() || std::find(Options.Only.begin(), Options.Only.end(), Part.Name) != Options.Only.end();
    if (!Wanted) continue;
    const ULONGLONG Begin = GetTickCount64();
    const TResult Result = Part.Run(Options.Plan);
    if (Result.Skipped) continue;
    Print(Part, Result, static_cast<double>(GetTickCount64() - Begin) / 1000);
    std::fputs(Separator, File);
    WriteJson(File, Part, Result);
    Separator = ",\n  ";
    // A match may leave this share nothing to do.
    Good = Good && (Result.Cases > 0 || !Options.Plan.Match.empty()) && Result.Good == Result.Cases;
  }
  std::fputs("\n]\n", File);
  Must(std::fclose(File) == 0, "cannot write " + Options.JsonName);
  return Good;
}

TPlan Sharded(TPlan Plan, const std::string& Word) {
  const int Numbers = std::sscanf(Word.c_str(), "%d/%d", &Plan.Shard, &Plan.Shards);
  Must(Numbers == 2 && Plan.Shard >= 0 && Plan.Shard < Plan.Shards, "--shard takes I/N with I below N");
  return Plan;
}

int Run(const std::vector<std::string>& Words) {
  TOptions Options;
  for (size_t At = 0; At < Words.size(); ++At) {
    const std::string& Word = Words[At];
    const auto Next = [&] {
      return At + 1 < Words.size() ? Words[++At] : throw std::runtime_error(Word + " needs a value");
    };
    if (Word == "--help") return std::fputs(Usage, stdout) < 0;
    if (Word == "--list") {
      for (const TPart& Part : Parts) std::printf("%-6s %s\n", Part.Name, Part.What);
      return 0;
    }
    if (Word == "--quick" || Word == "--full")
      Options.Plan.Full = Word == "--full";
    else if (Word == "--only")
      Options.Only.push_back(PartNamed(Next()).Name);
    else if (Word == "--match")
      Options.Plan.Match = Next();
    else if (Word == "--shard")
      Options.Plan = Sharded(Options.Plan, Next());
    else if (Word == "--json")
      Options.JsonName = Next();
    else
      throw std::runtime_error("there is no option " + Word + "; --help lists them");
  }
  return RunParts(Options) ? 0 : 1;
}

}  // namespace

void TellProgress(const char* Part, int Done, int Of) {
  constexpr int Every = 50;
  if (Done % Every != 0) return;
  std::printf("  %s: %d of %d\n", Part, Done, Of);
  std::fflush(stdout);
}

int main(int Count, char** Arguments) {
  const std::vector<std::string> Words(Arguments + 1, Arguments + Count);
  try {
    if (const int Status = PlayRole(Count, Arguments); Status >= 0) return Status;
    return Run(Words);
  } catch (const std::exception& Failure) {
    std::printf("mendwork_torture: %s\n", Failure.what());
    return 2;
  }
}
