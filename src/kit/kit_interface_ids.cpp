// Defines the identifiers that MendworkKit_TLB.h declares; once for the module.

#define INITGUID
#include "kit/interfaces.h"
