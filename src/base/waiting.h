#pragma once

#include "base/windows_api.h"

/// Waits that let messages in which other threads send to windows of this one. Who sends one waits for the answer: a
/// rollback that tells a window, or the system that ends the session, and with it the process.

/// Waits without limit. Gives what the wait ended with: WAIT_OBJECT_0, WAIT_ABANDONED, WAIT_FAILED.
DWORD WaitAnsweringMessages(HANDLE Object);

/// Waits for so long, or for less when a message came in.
void PauseAnsweringMessages(DWORD Milliseconds);
