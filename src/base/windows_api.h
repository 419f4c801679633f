#pragma once

// The one road to the Windows headers: lean, without the min and max macros.

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include <windows.h>
// The headers below need the types of the one above.
#include <objbase.h>
#include <ocidl.h>
#include <oleauto.h>
#include <olectl.h>

// The header renames CopyFile to CopyFileA; here it is the name of an automation method. Win32 calls are written with
// their A or W throughout.
#undef CopyFile
