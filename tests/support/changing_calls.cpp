#include "support/changing_calls.h"

#include "support/child.h"
#include "support/import_patch.h"

#include <map>
#include <memory>

namespace {

/// What befalls this process at one of the module's changing system calls.
enum TEvent {
  Nothing,
  Before,  ///< it ends just before the call
  After,   ///< it ends just after the call
  Torn,    ///< it ends when the call, a WriteFile, has written half of its bytes
  Stop,    ///< it tells that it is ready, just before the call, and stays there
};
const std::map<std::string, TEvent> Events = {
    {"nothing", Nothing}, {"before", Before}, {"after", After}, {"torn", Torn}, {"stop", Stop}};
TEvent Planned = Nothing;
int PointsLeft = 0;
std::vector<const char*> Made;

void Happen() {
  if (Planned == Stop) {
    TellReady();
    Sleep(INFINITE);
  }
  TerminateProcess(GetCurrentProcess(), DiedStatus);
}

template <class TCall>
auto Point(const char* Name, TCall Call) {
  Made.push_back(Name);
  const bool Here = Planned != Torn && --PointsLeft == 0;
  if (Here && Planned != After) Happen();
  const auto Result = Call();
  if (Here) Happen();
  return Result;
}

HANDLE WINAPI Create(LPCSTR Name, DWORD Access, DWORD Share, SECURITY_ATTRIBUTES* Security, DWORD Disposition,
                     DWORD Flags, HANDLE Template) {
  const auto Call = [&] { return CreateFileA(Name, Access, Share, Security, Disposition, Flags, Template); };
  return Disposition != OPEN_EXISTING || Access & GENERIC_WRITE ? Point("CreateFileA", Call) : Call();
}
BOOL WINAPI Write(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  if (Planned == Torn && --PointsLeft == 0) {
    WriteFile(File, Buffer, Size / 2, Written, Overlapped);
    Happen();
  }
  return Point("WriteFile", [&] { return WriteFile(File, Buffer, Size, Written, Overlapped); });
}
BOOL WINAPI Delete(LPCSTR Name) {
  return Point("DeleteFileA", [&] { return DeleteFileA(Name); });
}
BOOL WINAPI Move(LPCSTR Old, LPCSTR New) {
  return Point("MoveFileA", [&] { return MoveFileA(Old, New); });
}
BOOL WINAPI Truncate(HANDLE File) {
  return Point("SetEndOfFile", [&] { return SetEndOfFile(File); });
}
BOOL WINAPI SetAttributes(LPCSTR Name, DWORD Attributes) {
  return Point("SetFileAttributesA", [&] { return SetFileAttributesA(Name, Attributes); });
}
BOOL WINAPI SetTime(HANDLE File, const FILETIME* Creation, const FILETIME* Access, const FILETIME* LastWrite) {
  return Point("SetFileTime", [&] { return SetFileTime(File, Creation, Access, LastWrite); });
}
BOOL WINAPI MakeDirectory(LPCSTR Name, SECURITY_ATTRIBUTES* Security) {
  return Point("CreateDirectoryA", [&] { return CreateDirectoryA(Name, Security); });
}
BOOL WINAPI RemoveFolder(LPCSTR Name) {
  return Point("RemoveDirectoryA", [&] { return RemoveDirectoryA(Name); });
}
LSTATUS WINAPI CreateKey(HKEY Root, LPCSTR Name, DWORD Reserved, LPSTR Class, DWORD Options, REGSAM Access,
                         SECURITY_ATTRIBUTES* Security, HKEY* Key, DWORD* Disposition) {
  return Point("RegCreateKeyExA", [&] {
    return RegCreateKeyExA(Root, Name, Reserved, Class, Options, Access, Security, Key, Disposition);
  });
}
LSTATUS WINAPI SetValue(HKEY Key, LPCSTR Name, DWORD Reserved, DWORD Type, const BYTE* Data, DWORD Size) {
  return Point("RegSetValueExA", [&] { return RegSetValueExA(Key, Name, Reserved, Type, Data, Size); });
}
LSTATUS WINAPI DeleteValue(HKEY Key, LPCSTR Name) {
  return Point("RegDeleteValueA", [&] { return RegDeleteValueA(Key, Name); });
}
LSTATUS WINAPI DeleteKey(HKEY Root, LPCSTR Name) {
  static const auto Original = reinterpret_cast<LSTATUS(WINAPI*)(HKEY, LPCSTR)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("shlwapi.dll"), "SHDeleteKeyA")));
  return Point("SHDeleteKeyA", [&] { return Original(Root, Name); });
}

const std::pair<const char*, void*> ChangingCalls[] = {
    {"CreateFileA", reinterpret_cast<void*>(Create)},
    {"WriteFile", reinterpret_cast<void*>(Write)},
    {"DeleteFileA", reinterpret_cast<void*>(Delete)},
    {"MoveFileA", reinterpret_cast<void*>(Move)},
    {"SetEndOfFile", reinterpret_cast<void*>(Truncate)},
    {"SetFileAttributesA", reinterpret_cast<void*>(SetAttributes)},
    {"SetFileTime", reinterpret_cast<void*>(SetTime)},
    {"CreateDirectoryA", reinterpret_cast<void*>(MakeDirectory)},
    {"RemoveDirectoryA", reinterpret_cast<void*>(RemoveFolder)},
    {"RegCreateKeyExA", reinterpret_cast<void*>(CreateKey)},
    {"RegSetValueExA", reinterpret_cast<void*>(SetValue)},
    {"RegDeleteValueA", reinterpret_cast<void*>(DeleteValue)},
    {"SHDeleteKeyA", reinterpret_cast<void*>(DeleteKey)},
};

}  // namespace

void PlanEvent(const std::string& Event, int Point) {
  static std::vector<std::unique_ptr<TImportPatch>> Patches;
  for (const auto& [Name, Replacement] : ChangingCalls)
    Patches.push_back(std::make_unique<TImportPatch>(GetModuleHandleA("Mendwork.dll"), Name, Replacement));
  Planned = Events.at(Event);
  PointsLeft = Point;
}

const std::vector<const char*>& ChangingCallsMade() { return Made; }
