#include "support/progress_window.h"

#include "client/commands.h"
#include "support/child.h"

int ShowProgressWindow(const std::vector<std::string>& Arguments) {
  const TProgressWindow Window;
  TellReady();
  TProgressWindow::RunUntilClosed();
  // A negative code arrives as the signed number that it is, whatever the width of a message parameter.
  const WPARAM Code = static_cast<WPARAM>(std::stol(Arguments.at(0)));
  return TProgressWindow::RollbackMessages == std::vector{TProgressWindow::TMessage{Code, 0}} ? 0 : 1;
}
