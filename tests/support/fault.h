#pragma once

#include "support/import_patch.h"

#include <cstdint>

/// What happens to the module's calls of one function: `Skip` go through, the next `Times` fail with `Code` and do
/// nothing, all others go through.
struct TFaultPlan {
  int Skip = 0, Times = 0;
  DWORD Code = ERROR_SUCCESS;
};

/// A planned failure of a function that the module imports, for as long as this object lives. One at a time:
///
///   TFault Fault("DeleteFileA", FailsWith<decltype(&DeleteFileA), FALSE>, {.Times = 1, .Code = ERROR_ACCESS_DENIED});
class TFault {
  struct TState {
    TFaultPlan Plan;
    int Calls;
    void* Original;
  };

 public:
  TFault(const std::string& FunctionName, void* Replacement, TFaultPlan Plan)
      : Patch(GetModuleHandleA("Mendwork.dll"), FunctionName, Replacement) {
    Current = {Plan, 0, Patch.Original<void*>()};
  }
  /// All calls so far, failed or not.
  static int Calls() { return Current.Calls; }

  /// For the replacement: counts a call; true, with the last error set, when it is one of those that fail.
  static bool Strikes() {
    const int Before = Current.Calls++ - Current.Plan.Skip;
    const bool Result = Before >= 0 && Before < Current.Plan.Times;
    if (Result) SetLastError(Current.Plan.Code);
    return Result;
  }
  static void* Original() { return Current.Original; }

 private:
  inline static TState Current{};
  TImportPatch Patch;
};

template <class TFunction, intptr_t Failed>
struct TFailingFunction;
template <class TResult, class... TArgs, intptr_t Failed>
struct TFailingFunction<TResult(WINAPI*)(TArgs...), Failed> {
  static TResult WINAPI Call(TArgs... Args) {
    if (TFault::Strikes()) return (TResult)Failed;  // a number for some functions, a handle for others
    return reinterpret_cast<TResult(WINAPI*)(TArgs...)>(TFault::Original())(Args...);
  }
};

template <class TFunction>
struct TStatusFunction;
template <class TStatus, class... TArgs>
struct TStatusFunction<TStatus(WINAPI*)(TArgs...)> {
  static TStatus WINAPI Call(TArgs... Args) {
    if (TFault::Strikes()) return static_cast<TStatus>(GetLastError());
    return reinterpret_cast<TStatus(WINAPI*)(TArgs...)>(TFault::Original())(Args...);
  }
};

template <class TFunction>
struct TResultFunction;
template <class... TArgs>
struct TResultFunction<HRESULT(WINAPI*)(TArgs...)> {
  static HRESULT WINAPI Call(TArgs... Args) {
    if (TFault::Strikes()) return HRESULT_FROM_WIN32(GetLastError());
    return reinterpret_cast<HRESULT(WINAPI*)(TArgs...)>(TFault::Original())(Args...);
  }
};

/// The replacement of a COM function, which returns the plan's code as an HRESULT when it fails.
template <class TFunction>
inline void* const FailsWithResult = reinterpret_cast<void*>(&TResultFunction<TFunction>::Call);

/// The replacement of a registry function, which returns the plan's code when it fails.
template <class TFunction>
inline void* const FailsWithCode = reinterpret_cast<void*>(&TStatusFunction<TFunction>::Call);

/// The replacement of a function of this type, with what it returns when it fails.
template <class TFunction, intptr_t Failed>
inline void* const FailsWith = reinterpret_cast<void*>(&TFailingFunction<TFunction, Failed>::Call);
