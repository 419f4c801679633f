#pragma once

#include <cstdint>

/// What a copy does with a destination that exists.
struct TCopyRule {
  enum TCompare {
    Always,     ///< overwrite without looking
    Never,      ///< leave it
    ByVersion,  ///< overwrite when the source's product version is greater
    ByTime,     ///< overwrite when the source's last-write time is later
  };
  TCompare Compare;
  bool AsksOtherwise;  ///< whether the user decides when the comparison says no
};

/// The rule of a copy mode. A mode that does not exist, a negative one included, overwrites like mode 0.
inline TCopyRule CopyRuleOf(int32_t CopyMode) {
  constexpr TCopyRule Rules[] = {
      /* 0 */ {TCopyRule::Always, false},
      /* 1 */ {TCopyRule::Never, false},
      /* 2 */ {TCopyRule::ByVersion, false},
      /* 3 */ {TCopyRule::ByTime, false},
      /* 4 */ {TCopyRule::ByVersion, true},
      /* 5 */ {TCopyRule::ByTime, true},
  };
  constexpr int32_t Count = sizeof Rules / sizeof *Rules;
  return Rules[CopyMode >= 0 && CopyMode < Count ? CopyMode : 0];
}
