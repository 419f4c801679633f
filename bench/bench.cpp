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
      Semaphore(CreateSemaphoreA(nullptr, 1, 1, "mendwork-bench.semaphore")) {
  Require(CoGetClassObject(CLSID_UDebugLog, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, DebugLogClass.OutVoid()),
          "CoGetClassObject");
}

void TBareLines::Write(DWORD Length) {
  TComRef<IUnknown> Object;
  DWORD Written = 0;
  if (SUCCEEDED(GetActiveObject(CLSID_UDebugLog, nullptr, Object.Out()))) throw EBench("a debug log is active");
  Require(DebugLogClass->CreateInstance(nullptr, IID_IUnknown, Object.OutVoid()), "CreateInstance");
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

namespace {

TFileHandle BareOpen(const std::string& Name, DWORD Access, DWORD Disposition) {
  TFileHandle File(CreateFileA(Name.c_str(), Access, 0, nullptr, Disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
  Require(static_cast<bool>(File), "CreateFile");
  return File;
}

void BareAppend(const TFileHandle& File, const std::string& Bytes) {
  DWORD Written = 0;
  SetFilePointer(File.Get(), 0, nullptr, FILE_END);
  Require(WriteFile(File.Get(), Bytes.data(), static_cast<DWORD>(Bytes.size()), &Written, nullptr) != FALSE,
          "WriteFile");
}

}  // namespace

void BareLook(const std::string& Name) {
  WIN32_FIND_DATAA Entry;
  const TFindHandle Search(FindFirstFileA(Name.c_str(), &Entry));
}

void BareDelete(const std::string& Name) {
  BareLook(Name);
  SetFileAttributesA(Name.c_str(), FILE_ATTRIBUTE_NORMAL);
  DeleteFileA(Name.c_str());
  BareLook(Name);
}

std::string BareReadFile(const std::string& Name) {
  const TFileHandle File = BareOpen(Name, GENERIC_READ, OPEN_EXISTING);
  std::string Bytes(GetFileSize(File.Get(), nullptr), '\0');
  DWORD BytesRead = 0;
  Require(ReadFile(File.Get(), Bytes.data(), static_cast<DWORD>(Bytes.size()), &BytesRead, nullptr) != FALSE,
          "ReadFile");
  return Bytes;
}

void BareItem(const std::string& Name, const std::string& Bytes) {
  const TFileHandle File = BareOpen(Name, GENERIC_WRITE, CREATE_NEW);
  BareAppend(File, Bytes);
  FlushFileBuffers(File.Get());
}

void BareEntry(const std::string& Log) {
  constexpr size_t EntrySize = 36;
  const std::string Copy = Log + ".bkp";
  BareLook(Copy), BareLook(Log);
  if (MoveFileA(Log.c_str(), Copy.c_str())) BareAppend(BareOpen(Log, GENERIC_WRITE, CREATE_NEW), BareReadFile(Copy));
  {
    const TFileHandle File = BareOpen(Log, GENERIC_WRITE, OPEN_ALWAYS);
    BareAppend(File, std::string(EntrySize, 'e'));
    FlushFileBuffers(File.Get());
  }
  BareDelete(Copy);
}

void BareCopy(const std::string& Source, const std::string& Dest, const std::string& Header, TFlush Flush) {
  constexpr DWORD BlockSize = 32768;
  FILETIME Creation, LastAccess, LastWrite;
  const DWORD Attributes = GetFileAttributesA(Source.c_str());
  const TFileHandle From(CreateFileA(Source.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, Attributes, nullptr));
  GetFileTime(From.Get(), &Creation, &LastAccess, &LastWrite);
  const TFileHandle To(CreateFileA(Dest.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, Attributes, nullptr));
  Require(From && To, "CreateFile");
  std::vector<char> Buffer(BlockSize);
  DWORD BytesRead = 0, Written = 0;
  if (!Header.empty()) WriteFile(To.Get(), Header.data(), static_cast<DWORD>(Header.size()), &Written, nullptr);
  do {
    Require(ReadFile(From.Get(), Buffer.data(), BlockSize, &BytesRead, nullptr) != FALSE, "ReadFile");
    if (BytesRead > 0) Require(WriteFile(To.Get(), Buffer.data(), BytesRead, &Written, nullptr) != FALSE, "WriteFile");
  } while (BytesRead == BlockSize);
  SetFileTime(To.Get(), &Creation, &LastAccess, &LastWrite);
  if (Flush == TFlush::EachCopy) FlushFileBuffers(To.Get());
}

TResult TBench::Compare(const TVariant& Module, const TVariant& Calls, int WarmUps, int Rounds, int Items) const {
  TBareLines Log(Work("bare.log"));
  Module.Prepare();
  const std::vector<DWORD> Lines = LinesOf(Module.Run);
  const auto WriteLines = [&] {
    for (const DWORD Length : Lines) Log.Write(Length);
  };
  const std::vector<TSamples> Times =
      Interleave(WarmUps, Rounds, {Module, {Calls.Prepare, [&] { WriteLines(), Calls.Run(); }}, Calls});
  ForgetChanges();
  return {Times[0].Over(Times[1]).Median(),
          Times[0].Count(),
          {{"ratio of the least", Times[0].Least() / Times[1].Least(), ""},
           {"an item, module", Times[0].Median() / Items, "us"},
           {"calls and lines", Times[1].Median() / Items, "us"},
           {"calls alone", Times[2].Median() / Items, "us"},
           {"lines", static_cast<double>(Lines.size()) / Items, ""}}};
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
