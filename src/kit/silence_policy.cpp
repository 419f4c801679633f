#include "kit/silence_policy.h"

#include <charconv>
#include <string>
#include <vector>

namespace {

/// The words of one clause, in lower case.
using TClause = std::vector<std::string>;

char LowerOf(char Character) {
  return Character >= 'A' && Character <= 'Z' ? static_cast<char>(Character - 'A' + 'a') : Character;
}

std::vector<TClause> ClausesOf(std::string_view Text) {
  std::vector<TClause> Clauses(1);
  bool InWord = false;
  for (const char Character : Text) {
    const bool Blank = Character == ' ' || Character == '\t';
    if (Character == ',') Clauses.emplace_back();
    if (!Blank && Character != ',') {
      if (!InWord) Clauses.back().emplace_back();
      Clauses.back().back() += LowerOf(Character);
    }
    InWord = !Blank && Character != ',';
  }
  return Clauses;
}

std::optional<int> SecondsOf(const std::string& Word) {
  constexpr int Day = 24 * 60 * 60;
  int Seconds = 0;
  const char* const End = Word.data() + Word.size();
  const auto Parsed = std::from_chars(Word.data(), End, Seconds);
  if (Parsed.ec != std::errc() || Parsed.ptr != End || Seconds < 0 || Seconds > Day) return std::nullopt;
  return Seconds;
}

/// What one clause says: of retrying or of overwriting, or nothing of both.
struct TSaid {
  std::optional<int> RetrySeconds;
  std::optional<bool> Overwrites;
};

TSaid Read(const TClause& Clause) {
  if (Clause == TClause{"cancel"}) return {0, std::nullopt};
  if (Clause.size() != 2) return {};
  if (Clause[0] == "retry") return {SecondsOf(Clause[1]), std::nullopt};
  if (Clause == TClause{"overwrite", "yes"}) return {std::nullopt, true};
  if (Clause == TClause{"overwrite", "no"}) return {std::nullopt, false};
  return {};
}

}  // namespace

std::optional<TSilencePolicy> ParseSilencePolicy(std::string_view Text) {
  TSaid All;
  for (const TClause& Clause : ClausesOf(Text)) {
    const TSaid Said = Read(Clause);
    if (!Said.RetrySeconds && !Said.Overwrites) return std::nullopt;
    if ((Said.RetrySeconds && All.RetrySeconds) || (Said.Overwrites && All.Overwrites)) return std::nullopt;
    if (Said.RetrySeconds) All.RetrySeconds = Said.RetrySeconds;
    if (Said.Overwrites) All.Overwrites = Said.Overwrites;
  }
  return TSilencePolicy{All.RetrySeconds.value_or(0), All.Overwrites.value_or(false)};
}
