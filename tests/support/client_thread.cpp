#include "support/client_thread.h"

#include "base/text.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::chrono::seconds Patience(30);

HWND FocusOf(DWORD ThreadId) {
  GUITHREADINFO Info{};
  Info.cbSize = sizeof Info;
  GetGUIThreadInfo(ThreadId, &Info);
  return Info.hwndFocus;
}

}  // namespace

TClientThread::TClientThread(std::function<void()> Run)
    : Ended(std::async(std::launch::async, [this, Run]() noexcept {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        ThreadId = GetCurrentThreadId();
        Run();
        CoUninitialize();
      })) {}

void TClientThread::Join() {
  if (Ended.wait_for(Patience) == std::future_status::ready) return;
  std::puts("a client's thread does not end");
  std::fflush(stdout);
  TerminateProcess(GetCurrentProcess(), 1);
}

HWND TClientThread::Window(const std::string& Class) const {
  HWND Found = nullptr;
  const auto IsOwn = [&] { return GetWindowThreadProcessId(Found, nullptr) == ThreadId && IsWindowVisible(Found); };
  Until([&] {
    while ((Found = FindWindowExA(nullptr, Found, Class.c_str(), nullptr)) && !IsOwn()) {
    }
    return Found || Ended.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  });
  // A window may be visible before all its controls are there; its loop runs when it takes a message.
  if (Found) SendMessageA(Found, WM_NULL, 0, 0);
  return Found;
}

HWND TClientThread::Focus() const { return FocusOf(ThreadId); }

bool Until(const std::function<bool()>& Condition) {
  for (const auto Start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - Start < Patience;
       Sleep(5))
    if (Condition()) return true;
  return Condition();
}

std::vector<HWND> ControlsOf(HWND Window) {
  std::vector<HWND> Controls;
  for (HWND Control = GetWindow(Window, GW_CHILD); Control; Control = GetWindow(Control, GW_HWNDNEXT))
    Controls.push_back(Control);
  return Controls;
}

std::string ClassOf(HWND Window) {
  char Class[64] = "";
  GetClassNameA(Window, Class, sizeof Class);
  return Class;
}

std::string TextOf(HWND Window) {
  // Not the ANSI message: between threads Wine converts with another code page than everywhere else.
  wchar_t Buffer[2048] = L"";
  SendMessageW(Window, WM_GETTEXT, std::size(Buffer), reinterpret_cast<LPARAM>(Buffer));
  return LossyAnsi(Buffer);
}
