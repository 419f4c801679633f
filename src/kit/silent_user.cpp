#include "kit/silent_user.h"

#include "base/messages.h"
#include "base/text.h"

#include <iterator>

namespace {

/// What the styles of a message box offer, by the number of the style: what declines, what repeats, what agrees.
struct TButtons {
  long Declines, Repeats, Agrees;
};
constexpr TButtons ButtonsOf[] = {
    /* MB_OK */ {IDOK, 0, IDOK},
    /* MB_OKCANCEL */ {IDCANCEL, 0, IDOK},
    /* MB_ABORTRETRYIGNORE */ {IDABORT, IDRETRY, IDABORT},
    /* MB_YESNOCANCEL */ {IDCANCEL, 0, IDYES},
    /* MB_YESNO */ {IDNO, 0, IDYES},
    /* MB_RETRYCANCEL */ {IDCANCEL, IDRETRY, IDCANCEL},
    /* MB_CANCELTRYCONTINUE */ {IDCANCEL, IDTRYAGAIN, IDCANCEL},
};

constexpr char DeclineCaptions[][8] = {"Cancel", "No", "Abort"};
constexpr char RepeatCaptions[][16] = {"Retry", "Try again"};
constexpr char AgreeCaptions[][16] = {"Yes to all", "Yes"};

/// Whether the text begins as the message does before its first argument.
bool Begins(const std::wstring& Text, TMessage Message) {
  const std::wstring Pattern = LoadWideMessage(Message);
  return Text.starts_with(Pattern.substr(0, Pattern.find(L'%')));
}

bool AsksToOverwrite(const std::wstring& Text) {
  return Begins(Text, MsgOverwriteBySize) || Begins(Text, MsgOverwriteByVersion);
}

/// The first of the words that is a button, as the button has it; null when none is.
template <size_t Count, size_t Size>
const std::string* FindButton(const std::vector<std::string>& Captions, const char (&Words)[Count][Size]) {
  for (const char* Word : Words)
    for (const std::string& Caption : Captions)
      if (CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, Caption.c_str(), -1, Word, -1) == CSTR_EQUAL)
        return &Caption;
  return nullptr;
}

}  // namespace

long TSilentUser::Press(const std::wstring& Text, long Style) {
  const size_t Kind = static_cast<size_t>(Style & MB_TYPEMASK);
  const TButtons& Buttons = ButtonsOf[Kind < std::size(ButtonsOf) ? Kind : MB_OK];
  if (Policy.Overwrites && AsksToOverwrite(Text)) return Buttons.Agrees;
  return Buttons.Repeats && MayRetry(Text) ? Buttons.Repeats : Buttons.Declines;
}

std::string TSilentUser::Press(const std::wstring& Text, const std::vector<std::string>& Captions) {
  if (Captions.size() == 1) return Captions[0];
  if (Policy.Overwrites && AsksToOverwrite(Text))
    if (const std::string* Agrees = FindButton(Captions, AgreeCaptions)) return *Agrees;
  const std::string* const Repeats = FindButton(Captions, RepeatCaptions);
  if (Repeats && MayRetry(Text)) return *Repeats;
  const std::string* const Declines = FindButton(Captions, DeclineCaptions);
  return Declines ? *Declines : "";
}

/// A question that comes back long after it was answered is a new one: what was tried again has succeeded meanwhile.
bool TSilentUser::IsAskedAgain(const std::wstring& Text) const {
  constexpr uint64_t LongestAttempt = 60000;
  return !Question.empty() && Text == Question && GetTickCount64() - AnsweredAt <= LongestAttempt;
}

bool TSilentUser::MayRetry(const std::wstring& Text) {
  constexpr DWORD Pause = 250;
  const uint64_t Now = GetTickCount64(), Time = static_cast<uint64_t>(Policy.RetrySeconds) * 1000;
  if (!IsAskedAgain(Text)) Question = Text, Since = Now;
  if (Now - Since >= Time) {
    Question.clear();
    return false;
  }
  Sleep(Pause);
  AnsweredAt = GetTickCount64();
  return true;
}
