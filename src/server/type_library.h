#pragma once

#include "base/windows_api.h"

/// The system's function that takes a type library out of the registry. It is looked up by name at run time, each
/// caller in its own way, since not every system has it.
inline constexpr char UnregisterTypeLibName[] = "UnRegisterTypeLib";

/// Calls the function that was found for what a library says that it is.
inline HRESULT CallUnregisterTypeLib(FARPROC Found, const TLIBATTR& Own) {
  using TUnregister = HRESULT(WINAPI*)(REFGUID, WORD, WORD, LCID, SYSKIND);
  const auto Unregister = reinterpret_cast<TUnregister>(reinterpret_cast<void*>(Found));
  return Unregister(Own.guid, Own.wMajorVerNum, Own.wMinorVerNum, Own.lcid, Own.syskind);
}
