#pragma once

#include "support/sandbox.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

/// What keeps a case from being measured; the program says it and ends with status 1.
struct EBench : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Raises EBench with the error's text when a method of the module, or a system call, failed.
void Require(HRESULT Result, const char* What);
void Require(bool Succeeded, const char* What);

/// Where the cases work: a sandbox like a test's. The debug log is the module's own and writes its file.
class TBench final : public TSandbox {
 public:
  explicit TBench(bool Quick) : TSandbox(LogToFile), Quick(Quick) {}

  /// A path of the case's own.
  std::string Work(const std::string& Name) const { return App(Name); }
  using TSandbox::Service;
  /// Empties the backup store and removes the transaction log.
  void ForgetChanges() const;
  /// A quick run is for trying the program out; its numbers are too few to say anything.
  const bool Quick;

 private:
  void TestBody() override {}
  /// Keeps the module loaded, and with it the paths that it found: the registry names a child's folder later on.
  const TComRef<IUTransactionLog> KeepsModule = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

/// Times in microseconds.
class TSamples {
 public:
  void Add(double Time) { Times.push_back(Time); }
  int Count() const { return static_cast<int>(Times.size()); }
  double Median() const;
  double Least() const;
  /// Each sample divided by the other's of the same round: what slows a whole round down hides in neither.
  TSamples Over(const TSamples& Other) const;

 private:
  std::vector<double> Times;
};

/// Microseconds from any fixed moment.
double Now();

/// One of several things that are compared: `Prepare` is not timed.
struct TVariant {
  std::function<void()> Prepare, Run;
};

/// Times the variants in turn, `Rounds` times after `WarmUps` rounds that do not count. Every other round goes
/// backwards, so that none of them always follows the same one.
std::vector<TSamples> Interleave(int WarmUps, int Rounds, const std::vector<TVariant>& Variants);

struct TFigure {
  std::string Name;
  double Value;
  const char* Unit;
};

/// What a case found: the value that its target bounds, from how many samples, and the figures behind it.
struct TResult {
  double Value;
  int Samples;
  std::vector<TFigure> Figures;
};

/// The cost of an item in the largest set against the smallest, and the costs in all: sets of `Sizes` took `Times` for
/// `Items` items each.
TResult Growth(const std::vector<TSamples>& Times, const std::vector<int>& Sizes, const std::vector<int>& Items);

/// A case is a row of the list in bench_main.cpp.
struct TCase {
  const char* Name;
  double Target;  ///< the most that the value may be; 0 when there is none
  const char* Unit;
  TResult (*Measure)(const TBench&);
  const char* What;
};

TResult CopyOverExisting(const TBench& Bench);
TResult CopyToNew(const TBench& Bench);
TResult CopyLogged(const TBench& Bench);
TResult PeakOfCopy(const TBench& Bench);
TResult DebugLogLine(const TBench& Bench);
TResult WrapperShare(const TBench& Bench);
TResult LogPut(const TBench& Bench);
TResult LogRollback(const TBench& Bench);
TResult TreeBackup(const TBench& Bench);
TResult TreeRestore(const TBench& Bench);
TResult SetValueLogged(const TBench& Bench);
TResult KeyTreeDelete(const TBench& Bench);
TResult KeyTreeRollback(const TBench& Bench);
TResult HistoryPut(const TBench& Bench);
TResult MacroSet(const TBench& Bench);

/// The child process of PeakOfCopy: copies a file of `Size` MiB, plainly and logged, and writes the peak of its working
/// set in bytes to the file `ResultName`.
void CopyAndTellPeak(const TBench& Bench, int Size, const std::string& ResultName);
