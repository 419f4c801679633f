#pragma once

#include "base/messages.h"
#include "base/windows_api.h"
#include "server/interfaces.h"
#include "server/log_text.h"
#include "server/routine.h"

#include <initializer_list>
#include <optional>
#include <string>

/// The retry layer's one loop. A wrapper names itself, its system call, its success test and its message:
///
///   void RetryDeleteDirectory(const std::string& Folder) {
///     TRetryCall(Standard, "RetryDeleteDirectory", Folder)
///         .Run([&] { return ByLastError(RemoveDirectoryA(Folder.c_str())); }, MsgCannotDeleteFolder, Folder);
///   }
///
/// When an attempt fails, the user sees the message, an empty line and the system's reason, with Retry and Cancel.
/// Retry repeats without limit; anything else writes an "Exception" line and raises the failure whose message is the
/// system's text and whose HRESULT is MakeErrorHResult(code). A failing debug log or dialog object raises its own.

/// What one attempt came to.
struct TOutcome {
  bool Ok = false;
  long Code = 0;  ///< error code, status or HRESULT of a failed attempt
  bool OutOfMemory = false;
};

/// Calls that report through the thread's last error.
inline TOutcome ByLastError(bool Ok) { return {Ok, Ok ? 0 : static_cast<long>(GetLastError())}; }
/// Registry functions, which return their error code.
inline TOutcome ByStatus(LSTATUS Status) { return {Status == ERROR_SUCCESS, Status}; }
/// COM functions.
inline TOutcome ByHResult(HRESULT Result) { return {SUCCEEDED(Result), Result}; }
/// What releases a handle: its owner gives it up when that has succeeded. When the user gives up instead, or a line
/// cannot be written, the owner releases it: left open, it would be in the way of the rollback.
inline TOutcome Released(auto& Owner, TOutcome Outcome) {
  if (Outcome.Ok) Owner.Detach();
  return Outcome;
}
/// Allocations, which have no error code: the failure's code is -3.
inline TOutcome ByMemory(const void* Pointer) {
  constexpr long OutOfMemoryCode = -3;
  return {Pointer != nullptr, OutOfMemoryCode, true};
}

/// How a wrapper differs from the plain engine.
struct TRetryVariant {
  int SilentRepeats = 0;    ///< attempts repeated after a pause before the first dialog
  bool Quiet = false;       ///< no Begin and End lines
  bool TakesCallId = true;  ///< also when quiet, so that ids tell how many calls were made
};
inline constexpr TRetryVariant Standard{};
inline constexpr TRetryVariant Patient{.SilentRepeats = 3};
inline constexpr TRetryVariant QuietCall{.Quiet = true};
inline constexpr TRetryVariant Unnumbered{.Quiet = true, .TakesCallId = false};

/// One call of a wrapper.
class TRetryCall {
 public:
  /// Writes the Begin line: the wrapper's name and its arguments.
  template <class... TWords>
  TRetryCall(TRetryVariant Variant, const char* Name, const TWords&... Words) : TRetryCall(Variant) {
    if (!Variant.Quiet) Routine.emplace(OwnLines, Name, std::initializer_list<TLogWord>{TLogWord(Words)...});
  }
  /// One without lines.
  explicit TRetryCall(TRetryVariant Variant) : SilentRepeatsLeft(Variant.SilentRepeats) {
    if (Variant.Quiet && Variant.TakesCallId) NextCallId();
  }

  /// Repeats `Attempt` until it succeeds; `Message` and its arguments say what failed.
  template <class TAttempt, class... TArgs>
  void Until(TAttempt Attempt, TMessage Message, const TArgs&... Args) {
    for (TOutcome Last = Attempt(); !Last.Ok; Last = Attempt())
      if (!RepeatsSilently()) AskOrFail(Last, FormatMessageText(Message, Args...));
  }

  /// The same, and then the End line without a result: all of most wrappers.
  template <class TAttempt, class... TArgs>
  void Run(TAttempt Attempt, TMessage Message, const TArgs&... Args) {
    Until(Attempt, Message, Args...);
    End();
  }

  /// Writes the End line: the wrapper's name and its result.
  template <class... TWords>
  void End(const TWords&... Words) {
    if (!Routine) return;
    Routine->EndsWith({TLogWord(Words)...});
    Routine->End();
  }
  /// A line with an action of the wrapper's own.
  void Line(const std::wstring& Action, const std::wstring& Text) {
    if (Routine) Routine->Line(Action, Text);
  }

 private:
  static constexpr TLineSource OwnLines{nullptr, "Common"};

  bool RepeatsSilently();
  static void AskOrFail(const TOutcome& Last, const std::string& Words);

  int SilentRepeatsLeft;
  std::optional<TRoutine> Routine;
};

/// Writes the "Exception" line (code in signed decimal, a blank, the text) under a new call id and raises the failure.
[[noreturn]] void FailureStep(long Code, const std::wstring& Text);
[[noreturn]] void FailureStep(long Code, const std::string& Text);

/// The same with the system's text for the code.
[[noreturn]] void FailureStep(long Code);

/// Shows an error that no repetition can mend in a box with one button, then runs the failure step with the code
/// 0x800401FF, so that the HRESULT of the failure is 0x800403FF.
[[noreturn]] void FailWithBox(IUDialog& Dialog, TMessage Message);
