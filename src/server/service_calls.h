#pragma once

#include "base/messages.h"
#include "server/interfaces.h"

#include <string>

/// The debug log and the dialogs for whoever has no object of theirs: every line and every box finds the object that is
/// active at that moment, and holds it no longer than the call.

/// Writes one debug-log line.
void DebugLogPut(long Id, const std::wstring& Name, const std::wstring& Action, const std::wstring& Text);

/// Shows a message box and gives the pressed button.
long DialogShowMsgBox(const std::string& Text, TMessage Caption, long MsgType);

/// The same calls on an object that the caller has.
void PutLine(IUDebugLog& DebugLog, long Id, const std::wstring& Name, const std::wstring& Action,
             const std::wstring& Text);
long ShowMsgBox(IUDialog& Dialog, const std::string& Text, TMessage Caption, long MsgType);
