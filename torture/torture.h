#pragma once

#include "machine.h"

#include <map>
#include <string>
#include <vector>

/// How much is done, and which share of it by this process: several processes, each in a prefix of its own, divide a
/// part's cases among themselves.
struct TPlan {
  bool Full = false;
  int Shard = 0, Shards = 1;
  std::string Match;  ///< the text of a case must have this in it
  /// Whether a case is this process's.
  bool Takes(size_t Number, const std::string& Text) const {
    return Number % static_cast<size_t>(Shards) == static_cast<size_t>(Shard) && Text.find(Match) != std::string::npos;
  }
};

/// What a part came to. `Cases` are those that were carried out; each of them is in one of the counts below.
struct TResult {
  int Cases = 0, Good = 0;
  std::map<std::string, int> Notes{};  ///< what else was counted: known remains and so on
  std::vector<std::string> Bad{};      ///< one text a case: which, and what differs
  bool Skipped = false;                ///< the part cannot be divided, and another process has it

  /// Counts a case; the text says which it is, and what is wrong unless it is good.
  void Count(bool IsGood, const std::string& Text) {
    ++Cases;
    IsGood ? void(++Good) : Bad.push_back(Text);
  }
};

TResult KillMatrix(const TPlan& Plan, TForm Form);
TResult PowerLoss(const TPlan& Plan, TForm Form);
TResult TornFiles(const TPlan& Plan);
TResult FaultMatrix(const TPlan& Plan, TForm Form);
TResult ManyAtOnce(const TPlan& Plan);
TResult Apart(const TPlan& Plan);
TResult LongLife(const TPlan& Plan);

/// Tells how far the part that runs has come, now and then.
void TellProgress(int Done, int Of);
