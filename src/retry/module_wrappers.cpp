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
  TRetryCall(Standard, "RetryLoadLibrary", FileName)
      .Run(
          [&] {
            Module.Handle.Reset(LoadLibraryA(FileName.c_str()));
            return ByLastError(static_cast<bool>(Module));
          },
          MsgCannotLoadLibrary, FileName);
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
  TRetryCall(Standard, "RetryGetProcAddress", FileName, ProcName)
      .Run([&] { return ByLastError((Proc = GetProcAddress(Module, ProcName.c_str())) != nullptr); },
           MsgCannotGetProcAddress, ProcName, FileName);
  return Proc;
}

HMODULE RetryGetModuleHandle(const std::string& FileName) {
  HMODULE Module = nullptr;
  TRetryCall(Standard, "RetryGetModuleHandle", FileName)
      .Run([&] { return ByLastError((Module = GetModuleHandleA(FileName.c_str())) != nullptr); },
           MsgCannotGetModuleHandle, FileName);
  return Module;
}

TComRef<ITypeLib> RetryLoadTypeLib(const std::string& FileName) {
  TComRef<ITypeLib> Library;
  TRetryCall(Standard, "RetryLoadTypeLib", FileName)
      .Run([&] { return ByHResult(LoadTypeLibGuarded(FileName, Library.Out())); }, MsgCannotLoadTypeLibrary, FileName);
  return Library;
}

TTaskMemory RetryCoTaskMemAlloc(DWORD Size) {
  TTaskMemory Memory;
  TRetryCall(Standard, "RetryCoTaskMemAlloc", Size)
      .Run(
          [&] {
            Memory.Reset(CoTaskMemAlloc(Size));
            return ByMemory(Memory.Get());
          },
          MsgOutOfMemory);
  return Memory;
}
