#include "support/client_thread.h"

#include "base/text.h"

#include <cstdio>
#include <iterator>
#include <memory>

namespace {

constexpr DWORD Patience = 30000, Pause = 5;

DWORD WINAPI RunClient(void* Parameter) {
  const std::unique_ptr<std::function<void()>> Run(static_cast<std::function<void()>*>(Parameter));
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  (*Run)();
  CoUninitialize();
  return 0;
}

}  // namespace

TClientThread::TClientThread(std::function<void()> Run)
    : Thread(CreateThread(nullptr, 0, RunClient, new std::function<void()>(std::move(Run)), 0, &ThreadId)) {}

TClientThread::~TClientThread() { Join(); }

void TClientThread::Join() {
  if (WaitForSingleObject(Thread.Get(), Patience) == WAIT_OBJECT_0) return;
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
    return Found || WaitForSingleObject(Thread.Get(), 0) == WAIT_OBJECT_0;
  });
  // A window may be visible before all its controls are there; its loop runs when it takes a message.
  if (Found) SendMessageA(Found, WM_NULL, 0, 0);
  return Found;
}

HWND TClientThread::Focus() const {
  GUITHREADINFO Info{};
  Info.cbSize = sizeof Info;
  GetGUIThreadInfo(ThreadId, &Info);
  return Info.hwndFocus;
}

bool Until(const std::function<bool()>& Condition) {
  for (DWORD Waited = 0; Waited < Patience; Waited += Pause) {
    if (Condition()) return true;
    Sleep(Pause);
  }
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
  return ToAnsi(Buffer);
}

void Press(HWND MessageBox, int Answer) {
  PostMessageA(MessageBox, WM_COMMAND, static_cast<WPARAM>(Answer), 0);
  Until([&] { return !IsWindow(MessageBox); });
}
