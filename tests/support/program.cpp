#include "support/program.h"

#include "base/handles.h"
#include "support/tree.h"

#include <gtest/gtest.h>

namespace {

constexpr DWORD PollInterval = 20;
constexpr int MostPolls = 6000;

TKernelHandle Start(std::string CommandLine, HANDLE Output) {
  STARTUPINFOA Startup{};
  Startup.cb = sizeof Startup;
  Startup.dwFlags = STARTF_USESTDHANDLES;
  Startup.hStdOutput = Startup.hStdError = Output;
  PROCESS_INFORMATION Info{};
  if (!CreateProcessA(nullptr, CommandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &Startup, &Info)) {
    ADD_FAILURE() << "cannot start " << CommandLine << ": " << GetLastError();
    return {};
  }
  CloseHandle(Info.hThread);
  return TKernelHandle(Info.hProcess);
}

}  // namespace

TProgramResult RunSystemProgram(const std::string& Name, const std::string& Arguments, void (*WhileItRuns)()) {
  char System[MAX_PATH] = "", Temp[MAX_PATH] = "";
  GetSystemDirectoryA(System, sizeof System);  // for a 32-bit program, the folder of the 32-bit programs
  GetTempPathA(sizeof Temp, Temp);
  const std::string OutputName = Temp + std::string("mendwork-tests-output.txt");
  SECURITY_ATTRIBUTES Inherited{sizeof Inherited, nullptr, TRUE};
  TFileHandle Output(CreateFileA(OutputName.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &Inherited, CREATE_ALWAYS,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
  const TKernelHandle Process = Start("\"" + std::string(System) + "\\" + Name + "\" " + Arguments, Output.Get());
  Output.Reset();
  if (!Process) return {STILL_ACTIVE, ""};
  int Polls = 0;
  while (WaitForSingleObject(Process.Get(), PollInterval) == WAIT_TIMEOUT) {
    if (WhileItRuns) WhileItRuns();
    if (++Polls < MostPolls) continue;
    ADD_FAILURE() << Name << " does not end";
    TerminateProcess(Process.Get(), 1);
  }
  TProgramResult Result{};
  GetExitCodeProcess(Process.Get(), &Result.Status);
  Result.Output = Read(OutputName);
  DeleteFileA(OutputName.c_str());
  return Result;
}

std::string BuiltModulePath() {
  char Own[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, Own, sizeof Own);
  const std::string Folder(Own, std::string(Own).rfind('\\'));  // BUILD\tests
  return Folder.substr(0, Folder.rfind('\\')) + "\\Mendwork.dll";
}
