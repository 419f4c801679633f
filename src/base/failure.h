#pragma once

#include "base/error_code.h"
#include "base/windows_api.h"

#include <string>

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

/// The system's message for an error code or HRESULT, as it comes (with its line end), or an empty text.
std::string SystemMessage(DWORD Code);
