#include "bench.h"

#include <algorithm>

void Require(HRESULT Result, const char* What) {
  if (FAILED(Result)) throw EBench(std::string(What) + " failed: " + ErrorText());
}

void Require(bool Succeeded, const char* What) {
  if (!Succeeded) throw EBench(std::string(What) + " failed: " + SystemText(GetLastError()));
}

void TBench::ForgetChanges() const {
  RemoveTree(Service("Backup"));
  MakeFolders(Service("Backup"));
  DeleteFileA(Service("update.prt").c_str());
  DeleteFileA(Service("update.prt.bkp").c_str());
}

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
  static const double TicksPerMicrosecond = [] {
    LARGE_INTEGER Frequency;
    QueryPerformanceFrequency(&Frequency);
    return static_cast<double>(Frequency.QuadPart) / 1e6;
  }();
  LARGE_INTEGER Ticks;
  QueryPerformanceCounter(&Ticks);
  return static_cast<double>(Ticks.QuadPart) / TicksPerMicrosecond;
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
