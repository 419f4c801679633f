// Plays the person at the machine, so that the demo needs nobody: reads the boxes that come up and presses their
// buttons.
//
// usage: demo_user BUTTON... [holding FILE]
//
// Presses each BUTTON (Yes, No, Retry, Cancel) on one box, in their order, and shows what the box said. FILE is open
// until a box is answered with Retry: so does a user who closes the application that an update waits for.
// Fails when a box does not come within a minute.

#include "base/handles.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct TButton {
  const char* Name;
  WORD Id;
};
constexpr TButton Buttons[] = {{"Yes", IDYES}, {"No", IDNO}, {"Retry", IDRETRY}, {"Cancel", IDCANCEL}};

constexpr char DialogClass[] = "#32770";
constexpr DWORD LookEvery = 50, PatienceMilliseconds = 60000;

WORD IdOf(const std::string& Name) {
  for (const TButton& Button : Buttons)
    if (Name == Button.Name) return Button.Id;
  throw std::runtime_error("there is no button " + Name);
}

/// A control's text; "" when its program does not answer. GetWindowText would not reach into another process.
std::string TextOf(HWND Window) {
  constexpr UINT AnswerWithin = 5000;
  char Buffer[2048] = "";
  SendMessageTimeoutA(Window, WM_GETTEXT, sizeof Buffer, reinterpret_cast<LPARAM>(Buffer), SMTO_ABORTIFHUNG,
                      AnswerWithin, nullptr);
  return Buffer;
}

/// Waits for a box whose text can be read; one that is only being made has none yet.
HWND WaitForBox(std::string& Text) {
  for (DWORD Waited = 0; Waited < PatienceMilliseconds; Waited += LookEvery) {
    const HWND Box = FindWindowA(DialogClass, nullptr);
    for (HWND Part = nullptr; Box && (Part = FindWindowExA(Box, Part, "Static", nullptr)) != nullptr;)
      if (IsWindowVisible(Box) && !(Text = TextOf(Part)).empty()) return Box;
    Sleep(LookEvery);
  }
  throw std::runtime_error("no box came up");
}

void WaitUntilGone(HWND Box) {
  for (DWORD Waited = 0; IsWindow(Box); Waited += LookEvery) {
    if (Waited >= PatienceMilliseconds) throw std::runtime_error("a box did not take its answer");
    Sleep(LookEvery);
  }
}

void Show(const std::string& Caption, const std::string& Text) {
  std::printf("        .--- %s\n", Caption.c_str());
  std::istringstream Lines(Text);
  for (std::string Line; std::getline(Lines, Line);) {
    if (!Line.empty() && Line.back() == '\r') Line.pop_back();
    std::printf(Line.empty() ? "        |\n" : "        |  %s\n", Line.c_str());
  }
}

void Answer(const std::string& Name, TFileHandle& Held) {
  const WORD Id = IdOf(Name);
  std::string Text;
  const HWND Box = WaitForBox(Text);
  Show(TextOf(Box), Text);
  const bool Closes = Id == IDRETRY && Held;
  std::printf("        '--- The user %spresses %s.\n", Closes ? "closes the file and " : "", Name.c_str());
  // Shown before the program goes on and writes its own lines.
  std::fflush(stdout);
  if (Closes) Held.Reset();
  PostMessageA(Box, WM_COMMAND, Id, 0);
  WaitUntilGone(Box);
}

}  // namespace

int main(int Count, char** Arguments) try {
  std::vector<std::string> Names(Arguments + 1, Arguments + Count);
  TFileHandle Held;
  if (Names.size() > 2 && Names[Names.size() - 2] == "holding") {
    // As an editor does: others may read it.
    Held.Reset(CreateFileA(Names.back().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!Held) throw std::runtime_error("the user cannot open " + Names.back());
    Names.resize(Names.size() - 2);
  }
  for (const std::string& Name : Names) Answer(Name, Held);
  return 0;
} catch (const std::exception& Failure) {
  std::fprintf(stderr, "demo_user: %s\n", Failure.what());
  return 1;
}
