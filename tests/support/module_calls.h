#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <string>
#include <vector>

inline constexpr char MendworkDll[] = "Mendwork.dll", KitDll[] = "MendworkKit.dll";

/// Replaces one function that Mendwork.dll, or another module, imports, for as long as this object lives: calls of that
/// module, and of no other, go to the replacement. Needs the module loaded.
class TImportPatch {
 public:
  TImportPatch(const std::string& FunctionName, void* Replacement, const char* Module = MendworkDll);
  template <class TResult, class... TArgs>
  TImportPatch(const std::string& FunctionName, TResult(WINAPI* Replacement)(TArgs...),
               const char* Module = MendworkDll)
      : TImportPatch(FunctionName, reinterpret_cast<void*>(Replacement), Module) {}
  ~TImportPatch();
  TImportPatch(const TImportPatch&) = delete;
  TImportPatch& operator=(const TImportPatch&) = delete;
  /// What the module called before, for a replacement that goes on with it.
  void* Replaced() const { return Before; }

 private:
  void** Slot = nullptr;
  void* Before = nullptr;
};

/// A Win32 function that the module, or its kit, calls: how a call of it fails, and what the torture does with it. The
/// list of them is the only one; tests, kill matrix and fault matrix take their functions from it.
struct TModuleCall {
  const char* Name;
  void* Replacement;
  /// How a failing call tells its code: by the thread's last error and `Failed`, or by what it gives.
  enum TTelling { ByLastError, ByStatus, ByHResult } Telling;
  intptr_t Failed;
  bool Changes;  ///< a file, a folder or the registry: a death before it and after it is worth a visit
  int Failures;  ///< in a row, until its wrapper asks the user; 0 when no wrapper runs it
};
const std::vector<TModuleCall>& ModuleCalls();
/// What the module, and the kit when it is loaded, import of the system's files, registry, modules and locks and is
/// neither in the list nor named as harmless beside it; "" when nothing is.
std::string ForgottenCalls();

/// What happens to the module's calls of one function: `Skip` go through, the next `Times` fail with `Code` and do
/// nothing, all others go through.
struct TFaultPlan {
  int Skip = 0, Times = 0;
  DWORD Code = ERROR_SUCCESS;
};

/// A planned failure of a function of the list, for as long as this object lives; one at a time:
///
///   const TFault Fault("DeleteFileA", {.Times = 1, .Code = ERROR_ACCESS_DENIED});
class TFault {
 public:
  TFault(const std::string& FunctionName, TFaultPlan Plan, const char* Module = MendworkDll);

 private:
  TImportPatch Patch;
};

/// How a process ends at its point.
constexpr int DiedStatus = 77;

/// Which calls are points: those that change something, or all of the list, of both modules or of the kit.
enum TPoints { ChangingCalls, AllCalls, AllCallsOfKit };

/// Lets an event happen at the `Point`-th call of the modules that are loaded now, Mendwork's and the kit's, counted
/// from 1, in what is left of this process's life:
///   nothing  the calls are only counted
///   before   the process ends just before the call, with DiedStatus
///   after    it ends just after the call
///   torn     it ends when the call, a WriteFile, has written half of its bytes; only those calls are counted
/// `OnDeath`, when there is one, is called just before the process ends.
void PlanEvent(const std::string& Event, int Point, TPoints Points = ChangingCalls, void (*OnDeath)() = nullptr);

/// The names of the points that were passed since, in order.
const std::vector<const char*>& CallsMade();
