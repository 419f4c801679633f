#pragma once

#include "base/windows_api.h"

#include <string>

/// Replaces one function that a loaded module imports, for as long as this object lives: calls of that module, and of
/// no other, go to the replacement. The way tests make a Win32 call fail or end the process.
class TImportPatch {
 public:
  /// Ends the program with a message when the module does not import the function.
  TImportPatch(HMODULE Module, const std::string& FunctionName, void* Replacement);
  ~TImportPatch();
  TImportPatch(const TImportPatch&) = delete;
  TImportPatch& operator=(const TImportPatch&) = delete;

  /// The function that was replaced.
  template <class TFunction>
  TFunction Original() const {
    return reinterpret_cast<TFunction>(Before);
  }

 private:
  void** Slot;
  void* Before;
};
