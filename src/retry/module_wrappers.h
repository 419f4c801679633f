#pragma once

#include "retry/engine.h"

#include <string>

/// The retry layer's wrappers for modules, type libraries and COM task memory. None repeats silently.

TModuleHandle RetryLoadLibrary(const std::string& FileName);
/// Leaves `Module` empty.
void RetryFreeLibrary(const std::string& FileName, TModuleHandle& Module);
FARPROC RetryGetProcAddress(const std::string& FileName, HMODULE Module, const std::string& ProcName);
/// The handle is not counted and must not be freed.
HMODULE RetryGetModuleHandle(const std::string& FileName);
/// The dialog and the Exception line show the whole HRESULT of the call; the failure's own is made of its low 16 bits.
TComRef<ITypeLib> RetryLoadTypeLib(const std::string& FileName, std::wstring_view WideFileName);
TTaskMemory RetryCoTaskMemAlloc(DWORD Size);
