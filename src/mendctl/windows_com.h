#pragma once

#include "base/failure.h"
#include "base/text.h"
#include "mendctl/machine.h"

#include <objbase.h>

#include <string>
#include <string_view>

/// COM on this thread, for as long as this lives.
class TApartment {
 public:
  TApartment() { CheckSystemCall(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)); }
  ~TApartment() { CoUninitialize(); }
  TApartment(const TApartment&) = delete;
  TApartment& operator=(const TApartment&) = delete;
};

/// A text of the library's, for what the console prints.
inline std::string Utf8(std::wstring_view Text) { return TMachine().ToUtf8(LossyAnsi(Text)); }
