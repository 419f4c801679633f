#pragma once

#include "base/handles.h"

#include <string>

/// How far a job is, shown in a window of the kit's own or told to one of the caller's.
///
/// The caller's window gets the registered message "MendworkKit.Progress" (RegisterWindowMessage) for every step, the
/// position as wParam and the total as lParam, at first with position 0. A window that does not answer for a second is
/// not waited for.
///
/// The window of the kit is in the way of nobody: it takes no focus, has nothing to press, and cannot be closed. It is
/// of the thread that made it, and handles its messages at every step. Where windows cannot be made, there is none.
class TProgress {
 public:
  /// `Listener` is the caller's window; null for one of the kit's own.
  TProgress(long Total, HWND Listener);
  ~TProgress();
  TProgress(const TProgress&) = delete;
  TProgress& operator=(const TProgress&) = delete;

  /// One step further, to the total at the most; the text says what comes now.
  void Step(const std::wstring& Text);

 private:
  void MakeWindow();
  void Tell() const;
  void HandleMessages() const;

  const long Total;
  const HWND Listener;
  HWND Window = nullptr, Words = nullptr, Bar = nullptr;
  long Position = 0;
};

/// Registers and unregisters the class of the kit's window (unit start and stop).
void RegisterProgressClass();
void UnregisterProgressClass();
