#include "kit/file_in_use.h"

#include "base/failure.h"
#include "base/text.h"
#include "formats/comma_text.h"
#include "kit/kit_messages.h"
#include "kit/restart_manager.h"

#include <algorithm>
#include <cstdlib>

namespace {

LONG RollbacksRunning = 0;

/// The error code at the end of a text; 0 when there is none.
unsigned long CodeIn(const std::wstring& Text) {
  std::wstring Before = LoadWideMessage(MsgErrorReason);
  Before = Before.substr(0, Before.find(L"%x"));
  Before.erase(0, Before.find(L"%s") + 2);
  const size_t At = Text.rfind(Before);
  return At == Text.npos ? 0 : std::wcstoul(Text.c_str() + At + Before.size(), nullptr, 16);
}

/// What stands between the two names of the message that has two; a name may have an apostrophe itself.
std::wstring BetweenNames() {
  const std::wstring Move = LoadWideMessage(MsgCannotMove);
  const size_t Begin = Move.find(L"%s") + 2;
  return Move.substr(Begin, Move.find(L"%s", Begin) - Begin);
}

long ShowPlain(IUDialog& Dialog, const std::wstring& Text, BSTR Caption, long MsgType) {
  long Answer = 0;
  CheckCall(Dialog.ShowMsgBox(MakeBstr(Text).Get(), Caption, MsgType, &Answer));
  return Answer;
}

std::wstring NamesOf(const std::vector<THolder>& Holders) {
  std::wstring Names;
  for (const THolder& Holder : Holders)
    Names += FormatWideMessage(MsgKitHolder, Holder.Name, std::to_wstring(Holder.ProcessId));
  return Names;
}

bool IsOneOf(const std::vector<THolder>& Holders, DWORD ProcessId) {
  return std::ranges::count(Holders, ProcessId, &THolder::ProcessId) > 0;
}

}  // namespace

TRollbackRuns::TRollbackRuns() { InterlockedIncrement(&RollbacksRunning); }
TRollbackRuns::~TRollbackRuns() { InterlockedDecrement(&RollbacksRunning); }
bool TRollbackRuns::Any() { return RollbacksRunning > 0; }

std::vector<std::wstring> FilesInUse(const std::wstring& Text) {
  constexpr unsigned long Codes[] = {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION};
  if (std::ranges::find(Codes, CodeIn(Text)) == std::end(Codes)) return {};
  const std::wstring First = Text.substr(0, Text.find_first_of(L"\r\n"));
  const size_t Begin = First.find(L'\''), End = First.rfind(L'\'');
  std::vector<std::wstring> Files;
  if (Begin == First.npos || End <= Begin) return Files;
  const std::wstring Names = First.substr(Begin + 1, End - Begin - 1), Between = BetweenNames();
  const size_t Middle = Names.find(Between);
  Files.push_back(Names.substr(0, Middle));
  if (Middle != Names.npos) Files.push_back(Names.substr(Middle + Between.size()));
  std::erase_if(Files,
                [](const std::wstring& Name) { return GetFileAttributesW(Name.c_str()) == INVALID_FILE_ATTRIBUTES; });
  return Files;
}

long AskAboutFile(IUDialog& Dialog, BSTR Text, BSTR Caption, long MsgType) {
  const std::wstring Question(ViewOf(Text));
  const std::vector<std::wstring> Files = FilesInUse(Question);
  if (Files.empty()) return ShowPlain(Dialog, Question, Caption, MsgType);
  const bool Undoing = TRollbackRuns::Any();
  const std::string Close = LoadMessage(MsgKitCloseIt), Again = LoadMessage(MsgKitTryAgain),
                    Cancel = LoadMessage(Undoing ? MsgKitCancel : MsgKitUndo);
  const std::wstring Consequence = Undoing ? LoadWideMessage(MsgKitCancelLeaves) : L"";
  long Answer = 0;
  WithHoldersOf(Files, [&](const std::vector<THolder>& Holders) {
    constexpr long WarningIcon = 32515;
    TBstr Pressed;
    std::vector<std::string> Captions{Close, Again, Cancel};
    if (IsOneOf(Holders, GetCurrentProcessId())) Captions.erase(Captions.begin());  // nobody closes himself
    const TBstr Buttons = MakeBstr(ToWide(MakeCommaText(Captions))), Default = MakeBstr(ToWide(Again));
    const TBstr Words = MakeBstr(Question + FormatWideMessage(MsgKitHeldBy, NamesOf(Holders)) + Consequence);
    CheckCall(Dialog.ShowCustomMsgBox(Words.Get(), Caption, WarningIcon, Buttons.Get(), Default.Get(), Pressed.Out()));
    const std::string Button = LossyAnsi(ViewOf(Pressed.Get()));
    Answer = Button == Close || Button == Again ? IDRETRY : IDCANCEL;
    return Button == Close;
  });
  return Answer ? Answer : ShowPlain(Dialog, Question + Consequence, Caption, MsgType);
}
