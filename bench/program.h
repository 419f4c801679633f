#pragma once

// What every benchmark program is made of, under Windows and on the host: samples, cases, and the program around them.

#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

/// What keeps a case from being measured; the program says it and ends with status 1.
struct EBench : std::runtime_error {
  using std::runtime_error::runtime_error;
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

/// Where the cases of a program work; each program has its own.
class TBench;

/// A case is a row of the list in a program's main file.
struct TCase {
  const char* Name;
  double Target;  ///< the most that the value may be; 0 when there is none
  const char* Unit;
  TResult (*Measure)(const TBench&);
  const char* What;
};

/// Runs the program over its cases: measures those that the command line asks for, in the context that `Open` makes,
/// prints a table and writes a results file. Gives the exit status.
int RunProgram(const std::vector<std::string>& Arguments, std::span<const TCase> Cases,
               std::shared_ptr<const TBench> (*Open)(bool Quick));
