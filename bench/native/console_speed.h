#pragma once

#include "program.h"

/// The console as it is handed out (MENDCTL names it in the environment) over a made state: a log of 10,000 entries,
/// each a file that was overwritten, and so a store of 20,000 items. The value is the slowest run in seconds.
TResult ConsoleSpeed(bool Quick, const char* Command);
