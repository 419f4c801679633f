#include "rollback/history.h"

TAutoObjectBase* CreateUHistory(TVersionedAutoObjectFactory& Factory) { return new TUHistory(Factory); }
