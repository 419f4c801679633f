#pragma once

#include "mendctl/entries.h"
#include "mendctl/report.h"

/// A saved thing held against what is there now.
enum class TNow { Unknown, Same, Differs, Gone };
struct TComparison {
  std::string Subject;  ///< UTF-8
  TNow Now = TNow::Unknown;
  std::vector<std::string> Details;  ///< what differs, in words
};

/// Everything that an item holds, each thing by itself. A file that a change created, and a module that it registered,
/// is there or gone.
std::vector<TComparison> CompareWithNow(const TStateFolder& State, const TMachine& Machine, const TSaved& Saved);
/// Of all that is known of them: gone when all are, and so on; differs when they are of several kinds.
TNow Together(const std::vector<TComparison>& All);
const char* WordOf(TNow Now);

/// The data of a value as people write it, of at most some 200 characters.
std::string DataText(uint32_t Type, const std::vector<uint8_t>& Data, const TMachine& Machine);

/// The lines that an old and a new text have not in common, with - and + in front; nothing when one is no text, or too
/// long.
std::string LineDifference(const std::string& Old, const std::string& New);
