#include "changes/registry_operations.h"

TAutoObjectBase* CreateURegistry(TVersionedAutoObjectFactory& Factory) { return new TURegistry(Factory); }
