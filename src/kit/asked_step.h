#pragma once

#include "base/messages.h"
#include "base/system_error.h"
#include "base/windows_api.h"

/// Asks the user, by a box with Retry and Cancel like Mendwork's, what becomes of a step that failed with this code;
/// returns for Retry. Otherwise writes the "Exception" line and raises the failure, whose message is the system's text
/// and whose HRESULT is MakeErrorHResult(code).
void AskOrFail(DWORD Code, const std::string& What);

/// Repeats a step until it succeeds or the user gives up. `Step` tells whether it did, and why not by the thread's last
/// error; the message and its arguments say what cannot be done.
template <class TStep, class... TArgs>
void RepeatAsking(TStep Step, TMessage Message, const TArgs&... Args) {
  while (!Step()) AskOrFail(GetLastError(), FormatMessageText(Message, Args...));
}

/// The same for a step that gives the system's code; ERROR_FILE_NOT_FOUND is an answer, and given back.
template <class TStep, class... TArgs>
LSTATUS AnswerAsking(TStep Step, TMessage Message, const TArgs&... Args) {
  for (LSTATUS Status = Step();; Status = Step()) {
    if (Status == ERROR_SUCCESS || Status == ERROR_FILE_NOT_FOUND) return Status;
    AskOrFail(static_cast<DWORD>(Status), FormatMessageText(Message, Args...));
  }
}
