#include "server/safe_call.h"

#include "base/failure.h"
#include "base/handles.h"
#include "base/messages.h"
#include "base/text.h"

#include <exception>
#include <new>

namespace {

EFailure FailureInFlight() {
  try {
    throw;
  } catch (const EFailure& Failure) {
    return EFailure(Failure.Result < 0 ? Failure.Result : E_UNEXPECTED, Failure.Message);
  } catch (const std::bad_alloc&) {
    return EFailure(E_OUTOFMEMORY, ToWide(LoadMessage(MsgOutOfMemory)));
  } catch (const std::exception& Other) {
    return EFailure(E_UNEXPECTED, ToWide(Other.what()));
  } catch (...) {
    return EFailure(E_UNEXPECTED, ToWide(LoadMessage(MsgUnknownError)));
  }
}

void SetThreadError(const EFailure& Failure, const IID& Iid, const wchar_t* ProgId) {
  TComRef<ICreateErrorInfo> Maker;
  TComRef<IErrorInfo> Info;
  if (FAILED(CreateErrorInfo(Maker.Out()))) return;
  Maker->SetGUID(Iid);
  Maker->SetSource(const_cast<LPOLESTR>(ProgId));
  Maker->SetDescription(const_cast<LPOLESTR>(Failure.Message.c_str()));
  if (SUCCEEDED(Maker->QueryInterface(IID_IErrorInfo, Info.OutVoid()))) SetErrorInfo(0, Info.Get());
}

}  // namespace

HRESULT SafeCallException(const IID& Iid, const wchar_t* ProgId) noexcept {
  try {
    const EFailure Failure = FailureInFlight();
    SetThreadError(Failure, Iid, ProgId);
    return Failure.Result;
  } catch (...) {
    return E_OUTOFMEMORY;  // no memory is left even for the text
  }
}
