#pragma once

#include "base/windows_api.h"
#include "server/outermost_call.h"

/// Turns the exception in flight into the failure of an interface method: fills the thread's error information (with
/// `Iid` and `ProgId` as its source) and gives the HRESULT. An EFailure keeps its own negative HRESULT, exhausted
/// memory is E_OUTOFMEMORY, anything else E_UNEXPECTED. To be called in a catch block.
HRESULT SafeCallException(const IID& Iid, const wchar_t* ProgId) noexcept;

/// The refusal of a null pointer for a result, as every interface method answers it: without a text.
inline HRESULT RefuseNullPointer() {
  SetErrorInfo(0, nullptr);
  return E_POINTER;
}

/// The boundary of every interface method: runs the body, S_OK when it returns. What error information an earlier call
/// left is forgotten first, so that whatever text is found after a failure is that failure's.
template <class TBody>
HRESULT RunSafely(const IID& Iid, const wchar_t* ProgId, TBody&& Body) noexcept {
  const TOutermostCall Call;
  SetErrorInfo(0, nullptr);
  try {
    Body();
    return S_OK;
  } catch (...) {
    return SafeCallException(Iid, ProgId);
  }
}
