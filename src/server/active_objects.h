#pragma once

#include "base/failure.h"
#include "base/handles.h"
#include "base/windows_api.h"

/// The active object of a class if one is registered in the running object table, else a new instance made through
/// COM. Raises the COM failure of the creation or of the query for the interface.
TComRef<IUnknown> ActiveOrNewObject(const CLSID& ClassId, DWORD Context = CLSCTX_INPROC_SERVER);
template <class TInterface>
TComRef<TInterface> ActiveOrNew(const CLSID& ClassId) {
  TComRef<TInterface> Result;
  CheckCall(ActiveOrNewObject(ClassId)->QueryInterface(__uuidof(TInterface), Result.OutVoid()));
  return Result;
}
