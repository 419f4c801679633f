#pragma once

#include "kit/silence_policy.h"

#include <cstdint>
#include <string>
#include <vector>

/// Answers questions in the user's place, at once or after a short pause.
class TSilentUser {
 public:
  explicit TSilentUser(const TSilencePolicy& Policy) : Policy(Policy) {}

  /// The code of the button that answers a message box of this style (MB_RETRYCANCEL, MB_YESNO ...).
  long Press(const std::wstring& Text, long Style);
  /// The caption of the button of a box with buttons of the caller's own that says the same. Captions are compared
  /// without case. The only button of a box is pressed; where none is known, the answer is the empty text, which a box
  /// gives that was closed without one.
  std::string Press(const std::wstring& Text, const std::vector<std::string>& Captions);

  /// Whether the question is the one that was just answered with Retry: nobody need hear of it again.
  bool IsAskedAgain(const std::wstring& Text) const;

 private:
  bool MayRetry(const std::wstring& Text);

  TSilencePolicy Policy;
  // The question that was answered with Retry, when it was asked first, and when it was answered last; in milliseconds
  // since the system started.
  std::wstring Question;
  uint64_t Since = 0, AnsweredAt = 0;
};
