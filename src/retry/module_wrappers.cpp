#include "retry/module_wrappers.h"

#include "formats/type_library_bounds.h"
#include "retry/file_wrappers.h"
#include "retry/guarded_call.h"

namespace {

/// The whole content of a file; empty when it cannot be read, or is larger than any type library.
std::string ContentOf(const std::string& FileName) {
  constexpr int64_t LargestLibrary = 64 << 20;
  const TFileHandle File(CreateFileA(FileName.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  const int64_t Size = File ? PlainFileSize(File.Get()) : 0;
  std::string Content(static_cast<size_t>(Size > 0 && Size <= LargestLibrary ? Size : 0), '\0');
  DWORD BytesRead = 0;
  if (!Content.empty() &&
      !ReadFile(File.Get(), Content.data(), static_cast<DWORD>(Content.size()), &BytesRead, nullptr))
    BytesRead = 0;
  Content.resize(BytesRead);
  return Content;
}

/// A file that is cut off is not shown to the platform's reader, which may end the thread over it or fall over it and
/// keep it open; either way it is a library that cannot be loaded.
HRESULT LoadTypeLibGuarded(const std::string& FileName, const std::wstring& WideFileName, ITypeLib** Library) {
  HRESULT Result = TYPE_E_CANTLOADLIBRARY;
  if (!IsCutOffTypeLibrary(ContentOf(FileName)))
    RunGuarded([&] { Result = LoadTypeLib(WideFileName.c_str(), Library); });
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
  Call.Until([&] { return ByHResult(LoadTypeLibGuarded(FileName, Path, Library.Out())); }, MsgCannotLoadTypeLibrary,
             FileName);
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
