#pragma once

#include "server/interfaces.h"
#include "server/log_text.h"

#include <initializer_list>
#include <string>
#include <type_traits>

/// The next call id for the debug log; the first one of the process is 1.
long NextCallId();

/// Whose lines they are: the debug log that they go to (null: a fresh look-up for every line, as the retry layer does)
/// and the Name field.
struct TLineSource {
  IUDebugLog* DebugLog;
  const char* Name;
};

/// The debug-log lines of one routine, all under one call id of its own. The routine is named once. A routine that
/// fails leaves no End line. Raises what the debug log's Put raises.
class TRoutine {
 public:
  /// Writes the Begin line: the name, and the words behind it.
  TRoutine(TLineSource Source, const char* Name, std::initializer_list<TLogWord> Begin);

  /// The words behind the name in the End line; none unless told.
  void EndsWith(std::initializer_list<TLogWord> Words);
  /// The routine ends early by design, which leaves no End line.
  void HasNoEnd() { Ends = false; }
  /// An "Exception" line for what goes wrong without ending the routine: its name, and words behind it.
  void Exception(std::initializer_list<TLogWord> Words);
  /// A line with an action of the routine's own.
  void Line(const std::wstring& Action, const std::wstring& Text) const;
  /// Writes the End line. For the frame below.
  void End();

 private:
  TLineSource Source;
  const char* Name;
  long Id;
  std::wstring EndText;
  bool Ends = true;
};

/// The frame of a routine: its Begin line, its body, its End line. What the body gives is the word of the End line, and
/// is given back; a body that takes the TRoutine can tell other words.
template <class TBody>
auto RunRoutine(TLineSource Source, const char* Name, std::initializer_list<TLogWord> Begin, TBody&& Body) {
  TRoutine Routine(Source, Name, Begin);
  const auto Run = [&]() -> decltype(auto) {
    if constexpr (std::is_invocable_v<TBody, TRoutine&>)
      return Body(Routine);
    else
      return Body();
  };
  if constexpr (std::is_void_v<decltype(Run())>) {
    Run();
    Routine.End();
  } else {
    auto Result = Run();
    Routine.EndsWith({TLogWord(Result)});
    Routine.End();
    return Result;
  }
}
