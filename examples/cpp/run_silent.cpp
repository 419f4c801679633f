// Runs a program or script that uses Mendwork where nobody is in front of the screen: see silent.h. Other programs
// reach the two objects through the running object table, so scripts are silenced, too.
//
// usage: run_silent LOG-FILE COMMAND...
//
// Ends with the status of the command.

#define INITGUID  // this file defines the identifiers that the header declares

#include <windows.h>
// The headers need the types of the one above.
#include "silent.h"

#include <shlwapi.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

/// Handles messages while the process runs: calls for the two objects come as messages.
void WaitFor(HANDLE Process) {
  MSG Message;
  while (MsgWaitForMultipleObjects(1, &Process, FALSE, INFINITE, QS_ALLINPUT) == WAIT_OBJECT_0 + 1)
    while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&Message);
}

DWORD Run(std::wstring Command) {
  STARTUPINFOW Start{};
  Start.cb = sizeof Start;
  PROCESS_INFORMATION Started{};
  if (!CreateProcessW(nullptr, Command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &Start, &Started))
    throw std::runtime_error("The command cannot be started.");
  CloseHandle(Started.hThread);
  WaitFor(Started.hProcess);
  DWORD Status = 1;
  GetExitCodeProcess(Started.hProcess, &Status);
  CloseHandle(Started.hProcess);
  return Status;
}

/// The first word of a command line, without quotes.
std::wstring FirstWord(const std::wstring& Words) {
  std::wstring Word = Words.substr(0, static_cast<size_t>(PathGetArgsW(Words.c_str()) - Words.c_str()));
  PathRemoveBlanksW(Word.data());
  PathUnquoteSpacesW(Word.data());
  return Word.c_str();
}

}  // namespace

int main() try {
  const std::wstring Words = PathGetArgsW(GetCommandLineW()), Command = PathGetArgsW(Words.c_str());
  if (Command.empty()) {
    std::fputs("usage: run_silent LOG-FILE COMMAND...\n", stderr);
    return 1;
  }
  if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) throw std::runtime_error("COM cannot be used.");
  const TSilence Silence(FirstWord(Words));
  return static_cast<int>(Run(Command));
} catch (const std::exception& Failure) {
  std::fprintf(stderr, "%s\n", Failure.what());
  return 1;
}
