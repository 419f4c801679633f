#pragma once

#include "server/windows_api.h"

/// The instance handle of the module itself, as its resources and windows need it.
HINSTANCE ModuleInstance();
