#pragma once

#include "server/interfaces.h"
#include "server/log_text.h"

#include <string>

/// The debug-log lines of one routine: its Begin line at construction, its End line when told, both under one call id
/// of its own. A routine that fails, or that ends early by design, leaves no End line.
/// Raises what the debug log's Put raises.
class TLogScope {
 public:
  /// Writes through `Log`; a null one means a fresh look-up for every line, as the retry layer does.
  TLogScope(IUDebugLog* Log, const wchar_t* Name, const std::wstring& Begin);

  void End(const std::wstring& Text);
  /// A line with an action of the routine's own.
  void Line(const std::wstring& Action, const std::wstring& Text);

 private:
  IUDebugLog* Log;
  const wchar_t* Name;
  long Id;
};
