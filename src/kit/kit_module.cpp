// What MendworkKit.dll is.

#include "server/coclass_table.h"

extern const TCoClass CoClassKit;

static constexpr const TCoClass* Rows[] = {&CoClassKit};

constinit const TModuleFacts OwnModule = {L"MendworkKit", 1, Rows};
