#include "program.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

double TSamples::Median() const {
  std::vector<double> Sorted = Times;
  std::sort(Sorted.begin(), Sorted.end());
  const size_t Half = Sorted.size() / 2;
  return Sorted.size() % 2 ? Sorted.at(Half) : (Sorted.at(Half - 1) + Sorted.at(Half)) / 2;
}

double TSamples::Least() const { return *std::min_element(Times.begin(), Times.end()); }

TSamples TSamples::Over(const TSamples& Other) const {
  TSamples Ratios;
  for (size_t At = 0; At < Times.size(); ++At) Ratios.Add(Times[At] / Other.Times.at(At));
  return Ratios;
}

double Now() {
  using TMicroseconds = std::chrono::duration<double, std::micro>;
  return TMicroseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::vector<TSamples> Interleave(int WarmUps, int Rounds, const std::vector<TVariant>& Variants) {
  std::vector<TSamples> Result(Variants.size());
  for (int Round = 0; Round < WarmUps + Rounds; ++Round) {
    for (size_t At = 0; At < Variants.size(); ++At) {
      const size_t Which = Round % 2 ? Variants.size() - 1 - At : At;
      Variants[Which].Prepare();
      const double Begin = Now();
      Variants[Which].Run();
      const double End = Now();
      if (Round >= WarmUps) Result[Which].Add(End - Begin);
    }
  }
  return Result;
}

TResult Growth(const std::vector<TSamples>& Times, const std::vector<int>& Sizes, const std::vector<int>& Items) {
  std::vector<TFigure> Figures;
  for (size_t At = 0; At < Sizes.size(); ++At)
    Figures.push_back({"one of " + std::to_string(Sizes[At]), Times[At].Median() / Items[At], "us"});
  return {Figures.back().Value / Figures.front().Value, Times.front().Count(), Figures};
}

namespace {

constexpr char Usage[] =
    "usage: [--only NAME]... [--quick] [--json FILE] [--list] [--help]\n\n"
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

const TCase& CaseNamed(std::span<const TCase> Cases, const std::string& Name) {
  for (const TCase& Case : Cases)
    if (Name == Case.Name) return Case;
  throw EBench("there is no case " + Name + "; --list lists them");
}

void MeasureAll(const TOptions& Options, std::span<const TCase> Cases, const TBench& Bench) {
  std::vector<TMeasured> Rows;
  for (const TCase& Case : Cases) {
    const bool Wanted =
        Options.Only.empty() || std::find(Options.Only.begin(), Options.Only.end(), Case.Name) != Options.Only.end();
    if (!Wanted) continue;
    Rows.push_back({Case, Case.Measure(Bench), Case.Target > 0 && !Options.Quick});
    Print(Rows.back());
  }
  WriteJson(Options, Rows);
}

}  // namespace

int RunProgram(const std::vector<std::string>& Arguments, std::span<const TCase> Cases,
               std::shared_ptr<const TBench> (*Open)(bool Quick)) {
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
      Options.Only.push_back(CaseNamed(Cases, Next()).Name);
    else if (Word == "--json")
      Options.JsonName = Next();
    else
      throw EBench("there is no option " + Word + "; --help lists them");
  }
  MeasureAll(Options, Cases, *Open(Options.Quick));
  return 0;
}
