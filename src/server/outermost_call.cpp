#include "server/outermost_call.h"

#include "base/failure.h"
#include "base/handles.h"
#include "server/interfaces.h"

#include <utility>

namespace {

struct TThreadCalls {
  int Depth = 0;
  IClassFactory* DebugLogClass = nullptr;  ///< released by the outermost call, and so never by the thread's end
};
thread_local TThreadCalls Calls;

}  // namespace

TOutermostCall::TOutermostCall() { ++Calls.Depth; }

TOutermostCall::~TOutermostCall() {
  if (--Calls.Depth > 0 || !Calls.DebugLogClass) return;
  const TKeepLastError Keep;
  std::exchange(Calls.DebugLogClass, nullptr)->Release();
}

IClassFactory& TOutermostCall::DebugLogClass() {
  if (!Calls.DebugLogClass) {
    TComRef<IClassFactory> Class;
    CheckCall(CoGetClassObject(CLSID_UDebugLog, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Class.OutVoid()));
    Calls.DebugLogClass = Class.Detach();
  }
  return *Calls.DebugLogClass;
}
