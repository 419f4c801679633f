#include "kit/progress.h"

#include "base/module_instance.h"

#include <commctrl.h>

namespace {

constexpr wchar_t WindowClassName[] = L"MendworkKitProgress";

/// Sizes in pixels.
constexpr int Width = 420, Height = 110, Margin = 14, WordsHeight = 20, BarTop = 42, BarHeight = 18;

LRESULT CALLBACK WindowProcedure(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  if (Message == WM_CLOSE) return 0;  // it goes with the job
  return DefWindowProcW(Window, Message, Parameter, Data);
}

UINT ProgressMessage() {
  static const UINT Message = RegisterWindowMessageW(L"MendworkKit.Progress");
  return Message;
}

HWND MakeChild(HWND Parent, const wchar_t* Class, DWORD Style, int Top, int ChildHeight) {
  return CreateWindowExW(0, Class, L"", WS_CHILD | WS_VISIBLE | Style, Margin, Top, Width - 3 * Margin, ChildHeight,
                         Parent, nullptr, ModuleInstance(), nullptr);
}

}  // namespace

void RegisterProgressClass() {
  WNDCLASSW Class{};
  Class.lpfnWndProc = WindowProcedure;
  Class.hInstance = ModuleInstance();
  Class.hCursor = LoadCursorA(nullptr, MAKEINTRESOURCEA(32512));  // the arrow
  Class.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
  Class.lpszClassName = WindowClassName;
  RegisterClassW(&Class);
}

void UnregisterProgressClass() { UnregisterClassW(WindowClassName, ModuleInstance()); }

TProgress::TProgress(long Total, HWND Listener) : Total(Total), Listener(Listener) {
  if (!Listener) MakeWindow();
  Tell();
}

TProgress::~TProgress() {
  if (Window) DestroyWindow(Window);
}

void TProgress::MakeWindow() {
  const INITCOMMONCONTROLSEX Controls{sizeof Controls, ICC_PROGRESS_CLASS};
  InitCommonControlsEx(&Controls);
  const int Left = (GetSystemMetrics(SM_CXSCREEN) - Width) / 2, Top = (GetSystemMetrics(SM_CYSCREEN) - Height) / 2;
  Window = CreateWindowExW(WS_EX_TOOLWINDOW, WindowClassName, L"Update", WS_POPUP | WS_CAPTION, Left, Top, Width,
                           Height, nullptr, nullptr, ModuleInstance(), nullptr);
  if (!Window) return;
  Words = MakeChild(Window, L"STATIC", SS_LEFTNOWORDWRAP | SS_NOPREFIX | SS_ENDELLIPSIS, Margin, WordsHeight);
  Bar = MakeChild(Window, PROGRESS_CLASSW, 0, BarTop, BarHeight);
  SendMessageW(Words, WM_SETFONT, reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT)), FALSE);
  SendMessageW(Bar, PBM_SETRANGE32, 0, Total);
  ShowWindow(Window, SW_SHOWNOACTIVATE);
}

void TProgress::Step(const std::wstring& Text) {
  if (Position < Total) ++Position;
  if (Window) SetWindowTextW(Words, Text.c_str());
  Tell();
}

void TProgress::Tell() const {
  constexpr UINT LongestWait = 1000;
  if (Listener) {
    SendMessageTimeoutW(Listener, ProgressMessage(), static_cast<WPARAM>(Position), Total,
                        SMTO_ABORTIFHUNG | SMTO_NORMAL, LongestWait, nullptr);
  } else if (Window) {
    SendMessageW(Bar, PBM_SETPOS, static_cast<WPARAM>(Position), 0);
    UpdateWindow(Window);
    HandleMessages();
  }
}

/// Those of the window and its children only: the caller's are the caller's.
void TProgress::HandleMessages() const {
  for (MSG Message; PeekMessageW(&Message, Window, 0, 0, PM_REMOVE);) {
    TranslateMessage(&Message);
    DispatchMessageW(&Message);
  }
}
