#pragma once

#include "base/windows_api.h"

/// A call into the module, as long as it runs; calls inside it, on the same thread, are part of it. What the outermost
/// one looked up for all of them is given up at its end.
class TOutermostCall {
 public:
  TOutermostCall();
  ~TOutermostCall();
  TOutermostCall(const TOutermostCall&) = delete;
  TOutermostCall& operator=(const TOutermostCall&) = delete;

  /// The class object of the debug log, asked of COM once in a call; every line makes an object of its own by it, and
  /// to ask for each would take a sixth of an update. Raises the COM failure.
  static IClassFactory& DebugLogClass();
};
