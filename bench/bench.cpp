#include "bench.h"

void Require(HRESULT Result, const char* What) {
  if (FAILED(Result)) throw EBench(std::string(What) + " failed: " + ErrorText());
}

void Require(bool Succeeded, const char* What) {
  if (!Succeeded) throw EBench(std::string(What) + " failed: " + SystemText(GetLastError()));
}

void TBench::ForgetChanges() const {
  RemoveTree(Service("Backup"));
  MakeFolders(Service("Backup"));
  DeleteFileA(Service("update.prt").c_str());
  DeleteFileA(Service("update.prt.bkp").c_str());
}

void RunOwnProgram(const std::string& Words) {
  char Program[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, Program, sizeof Program);
  std::string Line = "\"" + std::string(Program) + "\" " + Words;
  STARTUPINFOA Startup{};
  Startup.cb = sizeof Startup;
  PROCESS_INFORMATION Info{};
  Require(CreateProcessA(nullptr, Line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &Startup, &Info) != FALSE,
          "CreateProcess");
  const TKernelHandle Process(Info.hProcess), Thread(Info.hThread);
  DWORD Status = 0;
  WaitForSingleObject(Process.Get(), INFINITE);
  GetExitCodeProcess(Process.Get(), &Status);
  if (Status != 0) throw EBench("the child process ended with status " + std::to_string(Status));
}
