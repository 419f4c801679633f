#pragma once

#include <stdexcept>
#include <string>

/// For what a test, a torture or a benchmark needs before it can look at anything: without it there is nothing to go on
/// with. A test fails with the text; the other programs end with it.
inline void Must(bool Condition, const std::string& What) {
  if (!Condition) throw std::runtime_error(What);
}
