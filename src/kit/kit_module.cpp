// What MendworkKit.dll is.

#include "server/coclass_table.h"

extern const TCoClass CoClassKit, CoClassKitChanges;

static constexpr const TCoClass* Rows[] = {&CoClassKit, &CoClassKitChanges};

constinit const TModuleFacts OwnModule = {L"MendworkKit", 1, Rows};
