#pragma once

#include "base/handles.h"

#include <string>
#include <vector>

/// A second process: the test client program (client_main.cpp), or another program next to this one, with a command
/// line of its own.
class TChild {
 public:
  explicit TChild(const std::vector<std::string>& Arguments, const std::string& Program = "mendwork_client.exe");
  ~TChild() { Kill(); }
  TChild(const TChild&) = delete;
  TChild& operator=(const TChild&) = delete;
  /// Waits for its end and gives the exit status; ends the child and fails the test after a minute.
  DWORD Wait();
  /// Whether it has ended; does not wait.
  bool HasEnded() const { return WaitForSingleObject(Process.Get(), 0) == WAIT_OBJECT_0; }
  /// Ends it at once, wherever it is.
  void Kill();
  /// Waits until the child signals that it has got where its command says. False after a minute, or when it ended.
  bool WaitUntilReady();
  /// Lets a child go on that waits for this.
  void Continue();

 private:
  TKernelHandle Process, Ready, Go;
};

/// For the child's side: signals that it is ready, and waits to be let go on.
void TellReady();
void WaitForContinue();
