#include "retry/module_wrappers.h"

#include "base/file_content.h"
#include "base/text.h"
#include "formats/type_library_bounds.h"
#include "retry/engine.h"
#include "retry/guarded_call.h"

namespace {

/// A file that is cut off is not shown to the platform's reader, which may end the thread over it or fall over it and
/// keep it open; either way it is a library that cannot be loaded.
HRESULT LoadTypeLibGuarded(const std::string& FileName, ITypeLib** Library) {
  constexpr int64_t LargestLibrary = 64 << 20;
  const std::wstring Path = ToWide(FileName);
  const auto Content = ReadWholeFile(FileName, LargestLibrary, FILE_SHARE_READ | FILE_SHARE_WRITE);
  HRESULT Result = TYPE_E_CANTLOADLIBRARY;
  if (!Content || !IsCutOffTypeLibrary(*Content)) RunGuarded([&] { Result = LoadTypeLib(Path.c_str(), Library); });
  return Result;
}

}  // namespace

TLoadedModule RetryLoadLibrary(const std::string& FileName) {
  TLoadedModule Module{FileName};
  TRetryCall Call(Standard, "RetryLoadLibrary", FileName);
  Call.Until(
      [&] {
        Module.Handle.Reset(LoadLibraryA(FileName.c_str()));
        return ByLastError(static_cast<bool>(Module));
      },
      MsgCannotLoadLibrary, FileName);
  Call.End();
  return Module;
}

void RetryFreeLibrary(TLoadedModule& Module) {
  TRetryCall Call(Standard, "RetryFreeLibrary", Module.Name);
  // Not before: when the Begin line cannot be written, the module goes with its owner.
  const HMODULE Loaded = Module.Handle.Detach();
  Call.Until([&] { return ByLastError(FreeLibrary(Loaded)); }, MsgCannotUnloadLibrary, Module.Name);
  Call.End();
}

FARPROC RetryGetProcAddress(const std::string& FileName, HMODULE Module, const std::string& ProcName) {
  FARPROC Proc = nullptr;
  TRetryCall Call(Standard, "RetryGetProcAddress", FileName, ProcName);
  Call.Until([&] { return ByLastError((Proc = GetProcAddress(Module, ProcName.c_str())) != nullptr); },
             MsgCannotGetProcAddress, ProcName, FileName);
  Call.End();
  return Proc;
}

HMODULE RetryGetModuleHandle(const std::string& FileName) {
  HMODULE Module = nullptr;
  TRetryCall Call(Standard, "RetryGetModuleHandle", FileName);
  Call.Until([&] { return ByLastError((Module = GetModuleHandleA(FileName.c_str())) != nullptr); },
             MsgCannotGetModuleHandle, FileName);
  Call.End();
  return Module;
}

TComRef<ITypeLib> RetryLoadTypeLib(const std::string& FileName) {
  TComRef<ITypeLib> Library;
  TRetryCall Call(Standard, "RetryLoadTypeLib", FileName);
  Call.Until([&] { return ByHResult(LoadTypeLibGuarded(FileName, Library.Out())); }, MsgCannotLoadTypeLibrary,
             FileName);
  Call.End();
  return Library;
}

TTaskMemory RetryCoTaskMemAlloc(DWORD Size) {
  TTaskMemory Memory;
  TRetryCall Call(Standard, "RetryCoTaskMemAlloc", Size);
  Call.Until(
      [&] {
        Memory.Reset(CoTaskMemAlloc(Size));
        return ByMemory(Memory.Get());
      },
      MsgOutOfMemory);
  Call.End();
  return Memory;
}
