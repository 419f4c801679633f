#include "server/coclass_table.h"

#include "server/interfaces.h"

// The rooms above define these; nothing else of them is known here.
#define DECLARE_CREATOR(Name) TAutoObjectBase* Create##Name(TVersionedAutoObjectFactory& Factory)
DECLARE_CREATOR(UDebugLog);
DECLARE_CREATOR(UDialog);
DECLARE_CREATOR(UBackup);
DECLARE_CREATOR(UCanRollback);
DECLARE_CREATOR(UTransactionLog);
DECLARE_CREATOR(UHistory);
DECLARE_CREATOR(UFile);
DECLARE_CREATOR(UGarbage);
DECLARE_CREATOR(UCom);
DECLARE_CREATOR(URegistry);
DECLARE_CREATOR(UMacro);
DECLARE_CREATOR(UInno);
void StartDebugLog();
void StopDebugLog();
void StartDialogs();
void StopDialogs();
void StartTransactionLog();
void StopTransactionLog();
void StartHistory();
void StopHistory();
void StartGarbage();
void StopGarbage();
void StartMacros();
void StopMacros();
void StartInstallerLog();
void StopInstallerLog();

namespace {

#define COCLASS(Name, Start, Stop) \
  { #Name, CLSID_##Name, IID_I##Name, DIID_I##Name##Events, Create##Name, Start, Stop }
const TCoClass Table[] = {
    COCLASS(UDebugLog, StartDebugLog, StopDebugLog),
    COCLASS(UDialog, StartDialogs, StopDialogs),
    COCLASS(UBackup, nullptr, nullptr),
    COCLASS(UCanRollback, nullptr, nullptr),
    COCLASS(UTransactionLog, StartTransactionLog, StopTransactionLog),
    COCLASS(UHistory, StartHistory, StopHistory),
    COCLASS(UFile, nullptr, nullptr),
    COCLASS(UGarbage, StartGarbage, StopGarbage),
    COCLASS(UCom, nullptr, nullptr),
    COCLASS(URegistry, nullptr, nullptr),
    COCLASS(UMacro, StartMacros, StopMacros),
    COCLASS(UInno, StartInstallerLog, StopInstallerLog),
};

}  // namespace

std::span<const TCoClass> CoClasses() { return Table; }
