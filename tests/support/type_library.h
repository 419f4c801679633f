#pragma once

#include "base/windows_api.h"

#include <string>

/// A small type library in a file of its own: {3F0C6A52-7B1E-4D9A-8C35-51A2E7D4B960}, version 3.7, of this program's
/// bitness, with one interface; `HelpFile` may be empty.
void MakeTypeLibrary(const std::string& Path, const std::string& HelpFile = "");
constexpr char MadeLibraryId[] = "{3F0C6A52-7B1E-4D9A-8C35-51A2E7D4B960}";
constexpr WORD MadeLibraryMajor = 3, MadeLibraryMinor = 7;
constexpr SYSKIND OwnKind = sizeof(void*) == 4 ? SYS_WIN32 : SYS_WIN64;
