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

TBareLines::TBareLines(const std::string& FileName)
    : File(CreateFileA(FileName.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)),
      Mutex(CreateMutexA(nullptr, FALSE, "mendwork-bench.mutex")),
      Semaphore(CreateSemaphoreA(nullptr, 1, 1, "mendwork-bench.semaphore")) {}

void TBareLines::Write(DWORD Length) {
  TComRef<IUnknown> Object;
  DWORD Written = 0;
  if (SUCCEEDED(GetActiveObject(CLSID_UDebugLog, nullptr, Object.Out()))) throw EBench("a debug log is active");
  Require(CoCreateInstance(CLSID_UDebugLog, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, Object.OutVoid()),
          "CoCreateInstance");
  WaitForSingleObject(Mutex.Get(), INFINITE);
  WaitForSingleObject(Semaphore.Get(), INFINITE);
  SetFilePointer(File.Get(), 0, nullptr, FILE_END);
  WriteFile(File.Get(), std::string(Length, 'm').data(), Length, &Written, nullptr);
  ReleaseSemaphore(Semaphore.Get(), 1, nullptr);
  ReleaseMutex(Mutex.Get());
}

namespace {

std::vector<DWORD> NotedLines;

/// Only lines end like that: what else the module writes here are records and items.
BOOL WINAPI NotingWriteFile(HANDLE File, const void* Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  if (std::string_view(static_cast<const char*>(Buffer), Size).ends_with("\r\n")) NotedLines.push_back(Size);
  return WriteFile(File, Buffer, Size, Written, Overlapped);
}

}  // namespace

std::vector<DWORD> LinesOf(const std::function<void()>& Run) {
  NotedLines.clear();
  const TImportPatch Patch("WriteFile", reinterpret_cast<void*>(NotingWriteFile));
  Run();
  return NotedLines;
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
