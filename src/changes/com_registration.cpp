#include "changes/com_registration.h"

TAutoObjectBase* CreateUCom(TVersionedAutoObjectFactory& Factory) { return new TUCom(Factory); }
