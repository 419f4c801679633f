#include "support/progress_window.h"

namespace {

constexpr UINT RollbackMessage = 0x7EB;

LRESULT CALLBACK Procedure(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) {
  if (Message == RollbackMessage) TProgressWindow::RollbackMessages.push_back({WParam, LParam});
  if (Message == WM_DESTROY) PostQuitMessage(0);
  return DefWindowProcA(Window, Message, WParam, LParam);
}

}  // namespace

std::vector<TProgressWindow::TMessage> TProgressWindow::RollbackMessages;

TProgressWindow::TProgressWindow() {
  WNDCLASSA Class{};
  Class.lpfnWndProc = Procedure;
  Class.hInstance = GetModuleHandleA(nullptr);
  Class.lpszClassName = "TMainForm";
  RegisterClassA(&Class);
  Window = CreateWindowA("TMainForm", "Orvane Updater - Update progress", WS_OVERLAPPEDWINDOW, 0, 0, 200, 100, nullptr,
                         nullptr, Class.hInstance, nullptr);
}

TProgressWindow::~TProgressWindow() { DestroyWindow(Window); }

void TProgressWindow::RunUntilClosed() {
  MSG Message;
  while (GetMessageA(&Message, nullptr, 0, 0) > 0) DispatchMessageA(&Message);
}
