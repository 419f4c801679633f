#include "client/commands.h"
#include "support/child.h"
#include "support/memory_file.h"
#include "support/sandbox.h"

#include <cstdio>

namespace {

/// The process ends just before or just after one of the module's calls, or in the middle of a WriteFile.
std::string Event;
int PointsLeft = 0;

void Pass(const char* When) {
  if (Event == When && --PointsLeft == 0) TerminateProcess(GetCurrentProcess(), DiedStatus);
}

template <auto Function>
struct TPoint;
template <class TResult, class... TArgs, TResult(WINAPI* Function)(TArgs...)>
struct TPoint<Function> {
  static TResult WINAPI Call(TArgs... Args) {
    Pass("before");
    const TResult Result = Function(Args...);
    Pass("after");
    return Result;
  }
};

BOOL WINAPI WritePartly(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  if (Event == "torn" && --PointsLeft == 0) {
    WriteFile(File, Buffer, Size / 2, Written, Overlapped);
    TerminateProcess(GetCurrentProcess(), DiedStatus);
  }
  return TPoint<&WriteFile>::Call(File, Buffer, Size, Written, Overlapped);
}

template <auto Function>
void* Point() {
  return reinterpret_cast<void*>(&TPoint<Function>::Call);
}

const std::pair<const char*, void*> Calls[] = {
    {"CloseHandle", Point<&CloseHandle>()},
    {"CreateFileA", Point<&CreateFileA>()},
    {"FlushFileBuffers", Point<&FlushFileBuffers>()},
    {"GetFileSizeEx", Point<&GetFileSizeEx>()},
    {"ReadFile", Point<&ReadFile>()},
    {"RegOpenKeyExA", Point<&RegOpenKeyExA>()},
    {"RegQueryValueExA", Point<&RegQueryValueExA>()},
    {"ReleaseMutex", Point<&ReleaseMutex>()},
    {"ReleaseSemaphore", Point<&ReleaseSemaphore>()},
    {"SetEndOfFile", Point<&SetEndOfFile>()},
    {"SetFilePointerEx", Point<&SetFilePointerEx>()},
    {"WaitForSingleObject", Point<&WaitForSingleObject>()},
    {"WriteFile", reinterpret_cast<void*>(&WritePartly)},
};

}  // namespace

int ProcessInno(const std::vector<std::string>& Arguments) {
  const auto Inno = Make<IUInno>(CLSID_UInno);
  std::vector<std::unique_ptr<TImportPatch>> Patches;
  for (const auto& [Name, Replacement] : Calls)
    Patches.push_back(std::make_unique<TImportPatch>(GetModuleHandleA("Mendwork.dll"), Name, Replacement));
  Event = Arguments.at(0);
  PointsLeft = std::stoi(Arguments.at(1));
  const HRESULT Result = Inno->ProcessInno();
  Event = "";
  return FAILED(Result) ? 1 : 0;
}

int MatchLists(const std::vector<std::string>& Arguments) {
  const auto Inno = Make<IUInno>(CLSID_UInno);
  TBstr Files, Servers;
  if (FAILED(Inno->GetFileList(Files.Out())) || FAILED(Inno->GetCOMList(Servers.Out()))) return 1;
  const std::string FileText = Take(Files), ServerText = Take(Servers);
  if (HexText(FileText) == Arguments.at(0) && HexText(ServerText) == Arguments.at(1)) return 0;
  std::printf("%s / %s\n", FileText.c_str(), ServerText.c_str());
  return NoMatch;
}
