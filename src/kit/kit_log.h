#pragma once

#include "kit/log_file.h"
#include "kit/stand_in.h"

/// Stands in for Mendwork's debug log: the same lines in a file of this process, docs/formats/debug-log.md. A line
/// that tells of a failure is in the file when the call returns, and with it all before it.
class TKitLog final : public TStandIn<IUDebugLog> {
 public:
  /// Makes the folder when it is missing. `Limit` as TLogFile takes it. Raises the system's failure.
  TKitLog(TComServer& Server, const std::wstring& Folder, int64_t Limit);

  STDMETHOD(Put)(long Id, BSTR Name, BSTR Action, BSTR Text) override;

 private:
  TLogFile File;
  const std::wstring FailureAction;
};
