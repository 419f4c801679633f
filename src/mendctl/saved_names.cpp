#include "mendctl/saved_names.h"

#include "base/guid_text.h"
#include "mendctl/call_log.h"

#include <algorithm>

namespace {

/// The words of a call without the flags behind them, which are numbers.
std::string_view WithoutFlags(std::string_view Words) {
  for (size_t Blank = Words.rfind(' '); Blank != std::string_view::npos; Blank = Words.rfind(' ')) {
    const std::string_view Last = Words.substr(Blank + 1);
    if (Last.find_first_not_of("-0123456789") != std::string_view::npos) break;
    Words = Words.substr(0, Blank);
  }
  return Words;
}

}  // namespace

std::map<std::string, std::string> SavedNames(std::string_view DebugLog) {
  constexpr std::string_view Saves = "Backup";
  std::map<std::string, std::string> Names;
  const TCallLog Log = ReadCallLog(DebugLog);
  for (const TLogCall& Call : Log.Calls) {
    const size_t Blank = Call.Words.find(' ');
    if (!Call.Words.starts_with(Saves) || Blank == std::string_view::npos) continue;
    const std::string_view Id = Call.Result.substr(std::min(Call.Result.rfind(' ') + 1, Call.Result.size()));
    if (ParseGuid(Id)) Names[std::string(Id)] = WithoutFlags(Call.Words.substr(Blank + 1));
  }
  return Names;
}
