#include "client/commands.h"
#include "support/child.h"
#include "support/memory_file.h"
#include "support/sandbox.h"

#include <cstdio>
#include <sstream>

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

int BringToLog(const std::vector<std::string>& Arguments) {
  const std::string& Folder = Arguments.at(0);
  RegSetKeyValueA(HKEY_CURRENT_USER, "Software\\Orvane\\Core", nullptr, REG_SZ, Folder.c_str(),
                  static_cast<DWORD>(Folder.size() + 1));
  const auto Inno = Make<IUInno>(CLSID_UInno);
  std::istringstream Names(Read(Folder + "\\names.txt"));
  for (std::string Line; std::getline(Names, Line);) {
    const size_t Colon = Line.find(':');
    const Text Name(Line.substr(Colon + 1));
    if (FAILED(Line.substr(0, Colon) == "server" ? Inno->AddCOM(Name) : Inno->AddFile(Name))) return 1;
  }
  if (FAILED(Inno->ProcessInno())) return 1;
  TUninstallLog Log;
  LoadFrom(Read(Folder + "\\Uninstall\\unins000.dat"), Log);
  std::string Dump;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next)
    Dump += std::to_string(Rec->RecordType) + " " + std::to_string(Rec->ExtraValue) + " " +
            HexText(std::string(Rec->Data().begin(), Rec->Data().end())) + "\n";
  Write(Folder + "\\records.txt", Dump);
  return 0;
}
