#include "changes/macros.h"

TAutoObjectBase* CreateUMacro(TVersionedAutoObjectFactory& Factory) { return new TUMacro(Factory); }
