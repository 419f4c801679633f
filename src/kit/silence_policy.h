#pragma once

#include <optional>
#include <string_view>

/// How questions are answered without the user.
struct TSilencePolicy {
  int RetrySeconds = 0;     ///< how long a question is answered with Retry before it is answered with Cancel
  bool Overwrites = false;  ///< whether a file may be overwritten
};

/// Reads a policy: clauses with commas between them, blanks around them, in any case, of each kind one at the most:
///
///   cancel | retry SECONDS         every question with Cancel or No; or first with Retry, for up to 86400 seconds
///   overwrite yes | overwrite no   whether a file may be overwritten
///
/// What is not said is `cancel` and `overwrite no`. Nothing when the text is anything else, or empty.
std::optional<TSilencePolicy> ParseSilencePolicy(std::string_view Text);
