// What Mendwork.dll is.

#include "server/coclass_table.h"

// The rooms above define the rows; nothing else of them is known here.
#define FOR_EACH_COCLASS(Do)                                                                                     \
  Do(UDebugLog) Do(UDialog) Do(UBackup) Do(UCanRollback) Do(UTransactionLog) Do(UHistory) Do(UFile) Do(UGarbage) \
      Do(UCom) Do(URegistry) Do(UMacro) Do(UInno)

#define DECLARE_ROW(Name) extern const TCoClass CoClass##Name;
FOR_EACH_COCLASS(DECLARE_ROW)

#define POINT_TO_ROW(Name) &CoClass##Name,
static constexpr const TCoClass* Rows[] = {FOR_EACH_COCLASS(POINT_TO_ROW)};

constinit const TModuleFacts OwnModule = {L"Mendwork", 6, Rows};
