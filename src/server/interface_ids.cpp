// Defines the identifiers that Mendwork_TLB.h declares; once for the module.

#define INITGUID
#include "server/interfaces.h"
