#include "retry/module_wrappers.h"

#include "retry/guarded_call.h"

namespace {

/// The platform's reader may fall over a file that is cut off; that, too, is a library that cannot be loaded.
HRESULT LoadTypeLibGuarded(const std::wstring& Path, ITypeLib** Library) {
  HRESULT Result = TYPE_E_CANTLOADLIBRARY;
  RunGuarded([&] { Result = LoadTypeLib(Path.c_str(), Library); });
  return Result;
}

}  // namespace

TModuleHandle RetryLoadLibrary(const std::string& FileName) {
  TModuleHandle Module;
  TRetryCall Call(Standard, LogText("RetryLoadLibrary", FileName));
  Call.Until(
      [&] {
        Module.Reset(LoadLibraryA(FileName.c_str()));
        return ByLastError(static_cast<bool>(Module));
      },
      MsgCannotLoadLibrary, FileName);
  Call.End(L"RetryLoadLibrary");
  return Module;
}

void RetryFreeLibrary(const std::string& FileName, TModuleHandle& Module) {
  TRetryCall Call(Standard, LogText("RetryFreeLibrary", FileName));
  // Not before: when the Begin line cannot be written, the module goes with its owner.
  const HMODULE Loaded = Module.Detach();
  Call.Until([&] { return ByLastError(FreeLibrary(Loaded)); }, MsgCannotUnloadLibrary, FileName);
  Call.End(L"RetryFreeLibrary");
}

FARPROC RetryGetProcAddress(const std::string& FileName, HMODULE Module, const std::string& ProcName) {
  FARPROC Proc = nullptr;
  TRetryCall Call(Standard, LogText("RetryGetProcAddress", FileName, ProcName));
  Call.Until([&] { return ByLastError((Proc = GetProcAddress(Module, ProcName.c_str())) != nullptr); },
             MsgCannotGetProcAddress, ProcName, FileName);
  Call.End(L"RetryGetProcAddress");
  return Proc;
}

HMODULE RetryGetModuleHandle(const std::string& FileName) {
  HMODULE Module = nullptr;
  TRetryCall Call(Standard, LogText("RetryGetModuleHandle", FileName));
  Call.Until([&] { return ByLastError((Module = GetModuleHandleA(FileName.c_str())) != nullptr); },
             MsgCannotGetModuleHandle, FileName);
  Call.End(L"RetryGetModuleHandle");
  return Module;
}

TComRef<ITypeLib> RetryLoadTypeLib(const std::string& FileName, std::wstring_view WideFileName) {
  TComRef<ITypeLib> Library;
  const std::wstring Path(WideFileName);
  TRetryCall Call(Standard, LogText("RetryLoadTypeLib", FileName));
  Call.Until([&] { return ByHResult(LoadTypeLibGuarded(Path, Library.Out())); }, MsgCannotLoadTypeLibrary, FileName);
  Call.End(L"RetryLoadTypeLib");
  return Library;
}

TTaskMemory RetryCoTaskMemAlloc(DWORD Size) {
  TTaskMemory Memory;
  TRetryCall Call(Standard, LogText("RetryCoTaskMemAlloc", Size));
  Call.Until(
      [&] {
        Memory.Reset(CoTaskMemAlloc(Size));
        return ByMemory(Memory.Get());
      },
      MsgOutOfMemory);
  Call.End(L"RetryCoTaskMemAlloc");
  return Memory;
}
