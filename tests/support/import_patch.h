#pragma once

#include "base/windows_api.h"

#include <functional>
#include <string>

/// Calls `See` with every function that a loaded module imports by name: the library's name, its own, and the place
/// that holds it.
void ForEachImport(HMODULE Module, const std::function<void(std::string Library, const char* Name, void** Slot)>& See);

/// Replaces one function that Mendwork.dll imports, for as long as this object lives: calls of that module, and of no
/// other, go to the replacement. Needs the module loaded.
class TImportPatch {
 public:
  TImportPatch(const std::string& FunctionName, void* Replacement);
  template <class TResult, class... TArgs>
  TImportPatch(const std::string& FunctionName, TResult(WINAPI* Replacement)(TArgs...))
      : TImportPatch(FunctionName, reinterpret_cast<void*>(Replacement)) {}
  ~TImportPatch();
  TImportPatch(const TImportPatch&) = delete;
  TImportPatch& operator=(const TImportPatch&) = delete;

 private:
  void** Slot = nullptr;
  void* Before = nullptr;
};
