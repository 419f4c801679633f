#pragma once

// The automation interfaces, behind the Windows headers as this project wants them.

#include "base/windows_api.h"
// The header above comes first: it keeps the name CopyFile for the interface.
#include "server/Mendwork_TLB.h"
