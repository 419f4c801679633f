#include "server/coclass_table.h"

#include "base/failure.h"

const TCoClass& ClassOf(const IID& InterfaceId) {
  for (const TCoClass* Row : OwnModule.CoClasses)
    if (Row->InterfaceId == InterfaceId) return *Row;
  throw EFailure(E_NOINTERFACE, LoadWideMessage(MsgUnknownError));
}
