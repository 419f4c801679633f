#pragma once

#include "base/handles.h"
#include "base/windows_api.h"

#include <string>

/// The retry layer's wrappers for modules, type libraries and COM task memory. None repeats silently.

/// A loaded module, with its file's name.
using TLoadedModule = TNamed<TModuleHandle>;

TLoadedModule RetryLoadLibrary(const std::string& FileName);
/// Leaves the module empty.
void RetryFreeLibrary(TLoadedModule& Module);
FARPROC RetryGetProcAddress(const std::string& FileName, HMODULE Module, const std::string& ProcName);
/// The handle is not counted and must not be freed.
HMODULE RetryGetModuleHandle(const std::string& FileName);
/// The dialog and the Exception line show the whole HRESULT of the call; the failure's own is made of its low 16 bits.
/// `FileName` is the name in the code page, for them.
TComRef<ITypeLib> RetryLoadTypeLib(const std::string& FileName, const std::wstring& WideFileName);
TTaskMemory RetryCoTaskMemAlloc(DWORD Size);
