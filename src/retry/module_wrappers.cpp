#include "retry/module_wrappers.h"

#include "base/failure.h"
#include "base/file_content.h"
#include "base/numbers.h"
#include "base/paths.h"
#include "base/text.h"
#include "formats/type_library_bounds.h"
#include "retry/engine.h"
#include "retry/guarded_call.h"

namespace {

/// A file that is cut off or damaged is not shown to the platform's reader, which may end the thread over it or fall
/// over it and keep it open; either way it is a library that cannot be loaded.
HRESULT LoadTypeLibGuarded(const std::wstring& FileName, ITypeLib** Library) {
  constexpr int64_t LargestLibrary = 64 << 20;
  const auto Content = ReadWholeFile(FileName, LargestLibrary, FILE_SHARE_READ | FILE_SHARE_WRITE);
  HRESULT Result = TYPE_E_CANTLOADLIBRARY;
  if (!Content || !IsDamagedTypeLibrary(*Content)) RunGuarded([&] { Result = LoadTypeLib(FileName.c_str(), Library); });
  return Result;
}

/// What a module finds while it is loaded, as with regsvr32: its dependencies beside itself, and never in the current
/// folder. No box of the system's own comes up before ours.
class TModuleSurroundings {
 public:
  explicit TModuleSurroundings(const std::string& FileName) {
    FolderBefore.resize(GetDllDirectoryW(0, nullptr));
    if (!FolderBefore.empty()) GetDllDirectoryW(static_cast<DWORD>(FolderBefore.size()), FolderBefore.data());
    SetDllDirectoryW(RootSize(FileName) != 0 ? ToWide(FolderPart(FileName)).c_str() : L"");
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &ModeBefore);
  }
  ~TModuleSurroundings() {
    const TKeepLastError Keep;
    // Nothing stands for "never set", an empty text for "not the current folder".
    SetDllDirectoryW(FolderBefore.size() <= 1 ? nullptr : FolderBefore.c_str());
    SetThreadErrorMode(ModeBefore, nullptr);
  }
  TModuleSurroundings(const TModuleSurroundings&) = delete;
  TModuleSurroundings& operator=(const TModuleSurroundings&) = delete;

 private:
  std::wstring FolderBefore;
  DWORD ModeBefore = 0;
};

/// Whether a file is a module for another processor than this process runs on, by the number in its header.
bool IsForOtherProcessor(const std::string& FileName) {
  constexpr int64_t LargestModule = 1 << 30;
  constexpr size_t HeaderPlaceAt = 0x3C, MachineAt = 4, MachineSize = 2;
  constexpr uint16_t Own = sizeof(void*) == 8 ? IMAGE_FILE_MACHINE_AMD64 : IMAGE_FILE_MACHINE_I386;
  const auto Content = ReadWholeFile(ToWide(FileName), LargestModule);
  if (!Content || Content->size() < HeaderPlaceAt + sizeof(uint32_t)) return false;
  const uint64_t Header = NumberAt<uint32_t>(Content->data() + HeaderPlaceAt);
  if (Header + MachineAt + MachineSize > Content->size()) return false;
  return Content->compare(static_cast<size_t>(Header), MachineAt, "PE\0\0", MachineAt) == 0 &&
         NumberAt<uint16_t>(Content->data() + Header + MachineAt) != Own;
}

}  // namespace

TLoadedModule RetryLoadLibrary(const std::string& FileName) {
  TLoadedModule Module{FileName};
  TRetryCall(Standard, "RetryLoadLibrary", FileName)
      .Run(
          [&] {
            const TModuleSurroundings Surroundings(FileName);
            Module.Handle.Reset(LoadLibraryA(FileName.c_str()));
            const TOutcome Outcome = ByLastError(static_cast<bool>(Module));
            // No repetition mends that.
            if (Outcome.Code == ERROR_BAD_EXE_FORMAT && IsForOtherProcessor(FileName))
              FailureStep(Outcome.Code, FormatMessageText(MsgOtherProcessor, FileName));
            return Outcome;
          },
          MsgCannotLoadLibrary, FileName);
  return Module;
}

void RetryFreeLibrary(TLoadedModule& Module) {
  TRetryCall Call(Standard, "RetryFreeLibrary", Module.Name);
  Call.Until([&] { return Released(Module.Handle, ByLastError(FreeLibrary(Module.Get()))); }, MsgCannotUnloadLibrary,
             Module.Name);
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

TComRef<ITypeLib> RetryLoadTypeLib(const std::string& FileName, const std::wstring& WideFileName) {
  TComRef<ITypeLib> Library;
  TRetryCall(Standard, "RetryLoadTypeLib", FileName)
      .Run([&] { return ByHResult(LoadTypeLibGuarded(WideFileName, Library.Out())); }, MsgCannotLoadTypeLibrary,
           FileName);
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
