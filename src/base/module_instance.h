#pragma once

#include "base/windows_api.h"

/// The instance handle of the module itself, as its resources and windows need it.
HINSTANCE ModuleInstance();
