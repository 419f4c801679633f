#include "changes/garbage.h"

TAutoObjectBase* CreateUGarbage(TVersionedAutoObjectFactory& Factory) { return new TUGarbage(Factory); }
