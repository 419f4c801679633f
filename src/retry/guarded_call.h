#pragma once

#include "base/windows_api.h"

/// Runs a step into code that may end in a structured exception instead of returning, which is also what another
/// compiler's C++ exception is here. Gives the exception's code, 0 when the step returned. After an exception, what the
/// code had open stays open; the step itself must own nothing, for nothing of it is destroyed.
///
/// One thing cannot be caught: a 32-bit module built by this compiler ends the process when a C++ exception leaves it,
/// since its own runtime finds no frame of its own to go on with.
DWORD RunGuarded(void (*Step)(void*), void* Data);

template <class TStep>
DWORD RunGuarded(TStep Step) {
  return RunGuarded([](void* Data) { (*static_cast<TStep*>(Data))(); }, &Step);
}
