#pragma once

#include "base/handles.h"

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <tuple>
#include <vector>

/// A client's thread with an apartment (STA) of its own, whose calls may show boxes; the test is the user meanwhile.
/// What the thread makes it must release itself.
class TClientThread {
 public:
  explicit TClientThread(std::function<void()> Run);
  ~TClientThread() { Join(); }
  TClientThread(const TClientThread&) = delete;
  TClientThread& operator=(const TClientThread&) = delete;
  /// Ends the program when the thread does not end: nothing can be torn down around a thread that hangs.
  void Join();

  /// Waits for a window of this class that the thread shows and that answers messages by now, and gives it; gives null
  /// after a while.
  HWND Window(const std::string& Class) const;
  /// The window that has the thread's keyboard focus.
  HWND Focus() const;

 private:
  std::atomic<DWORD> ThreadId = 0;
  std::future<void> Ended;
};

/// Waits until the condition holds; gives false when it does not within half a minute.
bool Until(const std::function<bool()>& Condition);

/// The windows inside a window, in the order in which they were made.
std::vector<HWND> ControlsOf(HWND Window);
std::string ClassOf(HWND Window);
/// The text as the window itself gives it; of windows of other threads and processes too.
std::string TextOf(HWND Window);
