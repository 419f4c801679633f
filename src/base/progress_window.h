#pragma once

#include "base/windows_api.h"

/// The updater's progress window, or null: owner of the message boxes and target of the rollback message.
HWND FindProgressWindow();
