#include "installer/installer_log.h"

TAutoObjectBase* CreateUInno(TVersionedAutoObjectFactory& Factory) { return new TUInno(Factory); }
