#include "server/active_objects.h"

TComRef<IUnknown> ActiveOrNewObject(const CLSID& ClassId, DWORD Context) {
  TComRef<IUnknown> Result;
  if (SUCCEEDED(GetActiveObject(ClassId, nullptr, Result.Out())) && Result) return Result;
  CheckCall(CoCreateInstance(ClassId, nullptr, Context, IID_IUnknown, Result.OutVoid()));
  return Result;
}
