#pragma once

// The interfaces of the kit and those of Mendwork, behind the Windows headers as this project wants them.

#include "server/interfaces.h"
// The header above comes first.
#include "kit/MendworkKit_TLB.h"
