#pragma once

#include "base/windows_api.h"

#include <string>

struct TProgramResult {
  DWORD Status;
  std::string Output;  ///< standard output and error
};

/// Runs one of Windows' own programs, of this program's bitness, to its end: RunSystemProgram("regsvr32.exe", "/s
/// ..."). `WhileItRuns` is called again and again meanwhile. Ends it and fails the test after two minutes.
TProgramResult RunSystemProgram(const std::string& Name, const std::string& Arguments, void (*WhileItRuns)() = nullptr);

/// Mendwork.dll as it was built with this program, registered or not.
std::string BuiltModulePath();
