#pragma once

#include "server/interfaces.h"

#include <string>

/// The twelve classes, as clients know them.
struct TPublishedClass {
  std::string Name;
  CLSID ClassId;
  IID InterfaceId, EventsId;
};

#define PUBLISHED(Name) \
  { #Name, CLSID_##Name, IID_I##Name, DIID_I##Name##Events }
inline const TPublishedClass PublishedClasses[] = {
    PUBLISHED(UDebugLog), PUBLISHED(UDialog), PUBLISHED(UBackup),  PUBLISHED(UCanRollback), PUBLISHED(UTransactionLog),
    PUBLISHED(UHistory),  PUBLISHED(UFile),   PUBLISHED(UGarbage), PUBLISHED(UCom),         PUBLISHED(URegistry),
    PUBLISHED(UMacro),    PUBLISHED(UInno),
};
#undef PUBLISHED
