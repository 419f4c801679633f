#include "server/routine.h"

#include "base/messages.h"
#include "base/text.h"
#include "server/service_calls.h"

namespace {
LONG CallCounter = 0;
}

long NextCallId() { return InterlockedIncrement(&CallCounter); }

TRoutine::TRoutine(TLineSource Source, const char* Name, std::initializer_list<TLogWord> Begin)
    : Source(Source), Name(Name), Id(NextCallId()), EndText(ToWide(Name)) {
  Line(LoadWideMessage(MsgBegin), LogText(Name, Begin));
}

void TRoutine::EndsWith(std::initializer_list<TLogWord> Words) { EndText = LogText(Name, Words); }

void TRoutine::Exception(std::initializer_list<TLogWord> Words) {
  Line(LoadWideMessage(MsgException), LogText(Name, Words));
}

void TRoutine::Line(const std::wstring& Action, const std::wstring& Text) const {
  if (Source.DebugLog)
    PutLine(*Source.DebugLog, Id, ToWide(Source.Name), Action, Text);
  else
    DebugLogPut(Id, ToWide(Source.Name), Action, Text);
}

void TRoutine::End() {
  if (Ends) Line(LoadWideMessage(MsgEnd), EndText);
}
