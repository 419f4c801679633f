#pragma once

#include "base/messages.h"
#include "base/windows_api.h"

#include <string>
#include <utility>

/// A failure on its way out of a method: the HRESULT that the caller gets and the message that the user read.
class EFailure {
 public:
  EFailure(HRESULT Result, std::wstring Message) : Result(Result), Message(std::move(Message)) {}

  HRESULT Result;
  std::wstring Message;
};

/// Raises when `Result` is a failure of a COM call, with the description from the thread's error information, else the
/// system's text for the HRESULT. Any HRESULT passes through unchanged.
void CheckCall(HRESULT Result);

/// The same for the system's own functions, which leave no error information: what the thread has is that of an earlier
/// call.
void CheckSystemCall(HRESULT Result);

/// Raises the thread's last error: the system's text, with the system's own HRESULT for the code.
[[noreturn]] void RaiseLastError();

/// Refuses what a caller passed: E_INVALIDARG, with a message and its arguments (UTF-16, so that a name is told as the
/// caller wrote it).
template <class... TArgs>
[[noreturn]] void Refuse(TMessage Message, const TArgs&... Args) {
  throw EFailure(E_INVALIDARG, FormatWideMessage(Message, Args...));
}
