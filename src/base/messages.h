#pragma once

#include "base/format_text.h"

#include <string>

/// Identifiers of the message table (messages.inc), which the module carries as string resources.
enum TMessage : unsigned {
#define MESSAGE(Name, Id, Text) Name = Id,
#include "base/messages.inc"
#undef MESSAGE
};

/// The text of a message, from the module's resources, in the ANSI code page; and the same in UTF-16.
std::string LoadMessage(TMessage Message);
std::wstring LoadWideMessage(TMessage Message);

/// A message with its "%s" and "%x" filled in.
template <class... TArgs>
std::string FormatMessageText(TMessage Message, const TArgs&... Args) {
  return FormatText(LoadMessage(Message), {Args...});
}
template <class... TArgs>
std::wstring FormatWideMessage(TMessage Message, const TArgs&... Args) {
  return FormatText(LoadWideMessage(Message), {Args...});
}
