#pragma once

#include "base/windows_api.h"

/// Turns the exception in flight into the failure of an interface method: fills the thread's error information (with
/// `Iid` and `ProgId` as its source) and gives the HRESULT. An EFailure keeps its own negative HRESULT, exhausted
/// memory is E_OUTOFMEMORY, anything else E_UNEXPECTED. To be called in a catch block.
HRESULT SafeCallException(const IID& Iid, const wchar_t* ProgId) noexcept;

/// The boundary of every interface method: runs the body, S_OK when it returns.
template <class TBody>
HRESULT RunSafely(const IID& Iid, const wchar_t* ProgId, TBody&& Body) noexcept {
  try {
    Body();
    return S_OK;
  } catch (...) {
    return SafeCallException(Iid, ProgId);
  }
}
