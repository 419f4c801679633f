#include "client/commands.h"
#include "support/child.h"
#include "support/sandbox.h"

#include <cstdio>
#include <functional>
#include <map>
#include <sstream>

namespace {

/// What befalls this process at one of the module's changing system calls.
enum TEvent {
  Nothing,
  Before,  ///< it ends just before the call
  After,   ///< it ends just after the call
  Torn,    ///< it ends when the call, a WriteFile, has written half of its bytes
  Stop,    ///< it tells that it is ready, just before the call, and stays there
};
TEvent Event = Nothing;
int PointsLeft = 0;

void Happen() {
  if (Event == Stop) {
    TellReady();
    Sleep(INFINITE);
  }
  TerminateProcess(GetCurrentProcess(), DiedStatus);
}

template <class TCall>
auto Point(TCall Call) {
  const bool Here = Event != Torn && --PointsLeft == 0;
  if (Here && Event != After) Happen();
  const auto Result = Call();
  if (Here) Happen();
  return Result;
}

HANDLE WINAPI Create(LPCSTR Name, DWORD Access, DWORD Share, SECURITY_ATTRIBUTES* Security, DWORD Disposition,
                     DWORD Flags, HANDLE Template) {
  const auto Call = [&] { return CreateFileA(Name, Access, Share, Security, Disposition, Flags, Template); };
  return Disposition != OPEN_EXISTING || Access & GENERIC_WRITE ? Point(Call) : Call();
}
BOOL WINAPI Write(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  if (Event == Torn && --PointsLeft == 0) {
    WriteFile(File, Buffer, Size / 2, Written, Overlapped);
    Happen();
  }
  return Point([&] { return WriteFile(File, Buffer, Size, Written, Overlapped); });
}
BOOL WINAPI Delete(LPCSTR Name) {
  return Point([&] { return DeleteFileA(Name); });
}
BOOL WINAPI Move(LPCSTR Old, LPCSTR New) {
  return Point([&] { return MoveFileA(Old, New); });
}
BOOL WINAPI Truncate(HANDLE File) {
  return Point([&] { return SetEndOfFile(File); });
}
BOOL WINAPI SetAttributes(LPCSTR Name, DWORD Attributes) {
  return Point([&] { return SetFileAttributesA(Name, Attributes); });
}
BOOL WINAPI SetTime(HANDLE File, const FILETIME* Creation, const FILETIME* Access, const FILETIME* LastWrite) {
  return Point([&] { return SetFileTime(File, Creation, Access, LastWrite); });
}
BOOL WINAPI MakeDirectory(LPCSTR Name, SECURITY_ATTRIBUTES* Security) {
  return Point([&] { return CreateDirectoryA(Name, Security); });
}
BOOL WINAPI RemoveFolder(LPCSTR Name) {
  return Point([&] { return RemoveDirectoryA(Name); });
}
LSTATUS WINAPI CreateKey(HKEY Root, LPCSTR Name, DWORD Reserved, LPSTR Class, DWORD Options, REGSAM Access,
                         SECURITY_ATTRIBUTES* Security, HKEY* Key, DWORD* Disposition) {
  return Point(
      [&] { return RegCreateKeyExA(Root, Name, Reserved, Class, Options, Access, Security, Key, Disposition); });
}
LSTATUS WINAPI SetValue(HKEY Key, LPCSTR Name, DWORD Reserved, DWORD Type, const BYTE* Data, DWORD Size) {
  return Point([&] { return RegSetValueExA(Key, Name, Reserved, Type, Data, Size); });
}
LSTATUS WINAPI DeleteValue(HKEY Key, LPCSTR Name) {
  return Point([&] { return RegDeleteValueA(Key, Name); });
}
LSTATUS WINAPI DeleteKey(HKEY Root, LPCSTR Name) {
  static const auto Original = reinterpret_cast<LSTATUS(WINAPI*)(HKEY, LPCSTR)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("shlwapi.dll"), "SHDeleteKeyA")));
  return Point([&] { return Original(Root, Name); });
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

constexpr unsigned long ChangedRoot = 0x80000001;

const std::map<std::string, std::function<HRESULT(const std::string& Folder)>> Changes = {
    {"overwrite",
     [](auto& Folder) {
       return Make<IUFile>(CLSID_UFile)->CopyFileLogged(Text(Folder + "\\new.dll"), Text(Folder + "\\app.dll"), 0);
     }},
    {"create",
     [](auto& Folder) {
       return Make<IUFile>(CLSID_UFile)->CopyFileLogged(Text(Folder + "\\new.dll"), Text(Folder + "\\fresh.dll"), 0);
     }},
    {"delete",
     [](auto& Folder) {
       return Make<IUFile>(CLSID_UFile)
           ->DeleteFilesLogged(Text(Folder + "\\tree\\*.*"), VARIANT_TRUE, VARIANT_TRUE, VARIANT_TRUE);
     }},
    {"put",
     [](auto&) {
       return Make<IUTransactionLog>(CLSID_UTransactionLog)->Put(CLSID_UCanRollback, PutChangeCode, NumberedGuid(1));
     }},
    // These take the place of the folder: a registry key, a history group, a macro's value.
    {"set-string",
     [](auto& Key) {
       return Make<IURegistry>(CLSID_URegistry)
           ->SetStringValueLogged(ChangedRoot, Text(Key), Text("Text"), Text("new"));
     }},
    {"delete-value",
     [](auto& Key) {
       return Make<IURegistry>(CLSID_URegistry)->DeleteRegKeyValueLogged(ChangedRoot, Text(Key), Text("Text"));
     }},
    {"delete-key",
     [](auto& Key) { return Make<IURegistry>(CLSID_URegistry)->DeleteRegKeyLogged(ChangedRoot, Text(Key)); }},
    {"put-record",
     [](auto& Group) { return Make<IUHistory>(CLSID_UHistory)->Put(Guid(Group.c_str()), PutChangeCode, GUID{}); }},
    {"set-macro",
     [](auto& Value) { return Make<IUMacro>(CLSID_UMacro)->SetMacro(Text("Macro"), Text(Value), VARIANT_TRUE); }},
    {"put-garbage", [](auto& Name) { return Make<IUGarbage>(CLSID_UGarbage)->PutFile(Text(Name)); }},
    {"garbage", [](auto&) { return Make<IUGarbage>(CLSID_UGarbage)->Garbage(); }},
    {"rollback",
     [](auto&) {
       GUID CheckPoint{};
       return Make<IUTransactionLog>(CLSID_UTransactionLog)->Rollback(VARIANT_FALSE, &CheckPoint);
     }},
};

}  // namespace

int MakeChanges(const std::vector<std::string>& Arguments) {
  const std::map<std::string, TEvent> Events = {
      {"nothing", Nothing}, {"before", Before}, {"after", After}, {"torn", Torn}, {"stop", Stop}};
  // The class object loads the module, and no more: making an object already changes something.
  TComRef<IClassFactory> Loaded;
  if (FAILED(CoGetClassObject(CLSID_UFile, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid())))
    return 1;
  std::vector<std::unique_ptr<TImportPatch>> Patches;
  for (const auto& [Name, Replacement] : ChangingCalls)
    Patches.push_back(std::make_unique<TImportPatch>(GetModuleHandleA("Mendwork.dll"), Name, Replacement));
  Event = Events.at(Arguments.at(2));
  PointsLeft = std::stoi(Arguments.at(3));

  std::istringstream Names(Arguments.at(0));
  for (std::string Name; Names >> Name;) {
    const HRESULT Result = Changes.at(Name)(Arguments.at(1));
    if (FAILED(Result)) {
      std::printf("%s: 0x%lx %s\n", Name.c_str(), static_cast<unsigned long>(Result), ErrorText().c_str());
      return 1;
    }
  }
  return 0;
}
