#pragma once

#include "base/windows_api.h"

#include <vector>

/// The updater's progress window, by which the module knows it, for as long as this object lives. It records the
/// messages that ask it to undo a change.
class TProgressWindow {
 public:
  TProgressWindow();
  ~TProgressWindow();
  TProgressWindow(const TProgressWindow&) = delete;
  TProgressWindow& operator=(const TProgressWindow&) = delete;

  /// Runs the thread's messages until someone closes the window.
  static void RunUntilClosed();

  struct TMessage {
    WPARAM WParam;
    LPARAM LParam;
    bool operator==(const TMessage&) const = default;
  };
  static std::vector<TMessage> RollbackMessages;

 private:
  HWND Window;
};
