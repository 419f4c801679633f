#include "base/progress_window.h"

#include "base/messages.h"

HWND FindProgressWindow() { return FindWindowA("TMainForm", LoadMessage(MsgProgressWindowTitle).c_str()); }
