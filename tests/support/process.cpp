#include "support/process.h"

#include "support/tree.h"

#include <cstdio>
#include <map>

namespace {

constexpr DWORD Patience = 60000, PollInterval = 20;
constexpr int MostPolls = 6000;

std::map<std::string, std::pair<TRole::TPlay, TRole::TDoubles>>& Roles() {
  static std::map<std::string, std::pair<TRole::TPlay, TRole::TDoubles>> All;
  return All;
}

std::string OwnPath() {
  char Path[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, Path, sizeof Path);
  return Path;
}

}  // namespace

TRole::TRole(const std::string& Name, TPlay Play, TDoubles Doubles) { Roles()[Name] = {Play, Doubles}; }

int PlayRole(int Count, char** Words) {
  if (Count < 3 || Words[1] != std::string("--role")) return -1;
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  auto* const User = new TScriptedDialog;
  try {
    const auto& [Play, Doubles] = Roles().at(Words[2]);
    if (Doubles == TRole::WithDoubles) {
      RegisterActive(new TMemoryLog, CLSID_UDebugLog);
      RegisterActive(User, CLSID_UDialog);
    }
    return Play({Words + 3, Words + Count}, *User);
  } catch (const std::exception& Failure) {
    std::printf("%s: %s\n", Words[2], Failure.what());
    return 2;
  }
}

TKernelHandle StartProgram(std::string CommandLine, HANDLE Output) {
  STARTUPINFOA Startup{};
  Startup.cb = sizeof Startup;
  Startup.dwFlags = Output ? STARTF_USESTDHANDLES : 0;
  Startup.hStdOutput = Startup.hStdError = Output;
  PROCESS_INFORMATION Info{};
  const auto Start = [&] {
    return CreateProcessA(nullptr, CommandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &Startup, &Info);
  };
  // ERROR_INTERNAL_ERROR was seen once in many hundred starts; the cause is not known, and nothing has run then.
  const bool Started = Start() || (GetLastError() == ERROR_INTERNAL_ERROR && Start());
  Must(Started, "cannot start " + CommandLine + ": " + std::to_string(GetLastError()));
  CloseHandle(Info.hThread);
  return TKernelHandle(Info.hProcess);
}

TChild::TChild(const TWords& Words) {
  std::string Line = "\"" + OwnPath() + "\" --role";
  for (const std::string& Word : Words) Line += " \"" + Word + "\"";
  Process = StartProgram(Line);
}

DWORD TChild::Wait() {
  DWORD Status = STILL_ACTIVE;
  Must(WaitForSingleObject(Process.Get(), Patience) == WAIT_OBJECT_0, "the child process does not end");
  GetExitCodeProcess(Process.Get(), &Status);
  return Status;
}

TProgramResult RunSystemProgram(const std::string& Name, const std::string& Arguments, void (*WhileItRuns)()) {
  char System[MAX_PATH] = "";
  GetSystemDirectoryA(System, sizeof System);  // for a 32-bit program, the folder of the 32-bit programs
  return RunProgram(System + std::string("\\") + Name, Arguments, WhileItRuns);
}

TProgramResult RunProgram(const std::string& Path, const std::string& Arguments, void (*WhileItRuns)()) {
  char Temp[MAX_PATH] = "";
  GetTempPathA(sizeof Temp, Temp);
  const std::string OutputName = Temp + std::string("mendwork-tests-output.txt");
  SECURITY_ATTRIBUTES Inherited{sizeof Inherited, nullptr, TRUE};
  TFileHandle Output(CreateFileA(OutputName.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &Inherited, CREATE_ALWAYS,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
  TChild Program(StartProgram("\"" + Path + "\" " + Arguments, Output.Get()));
  Output.Reset();
  for (int Polls = 0; !Program.HasEnded(); ++Polls, Sleep(PollInterval)) {
    if (WhileItRuns) WhileItRuns();
    Must(Polls < MostPolls, Path + " does not end");
  }
  return {Program.Wait(), Read(OutputName)};
}

std::string BuiltFile(const std::string& Name) {
  const std::string Folder = OwnPath().substr(0, OwnPath().rfind('\\'));
  return Folder.substr(0, Folder.rfind('\\')) + "\\" + Name;
}
