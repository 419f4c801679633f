#pragma once

#include "server/windows_api.h"

#include <stdexcept>
#include <string>

/// Something that foreign code raised instead of returning: a structured exception, which is also what another
/// compiler's C++ exception is here.
class EForeignException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Calls a function of a module that this project did not write, and gives its result. An exception that leaves it is
/// raised as EForeignException instead of ending the process; what the function had open is then lost.
HRESULT CallGuarded(HRESULT(STDAPICALLTYPE* Function)(), const std::string& Name);
