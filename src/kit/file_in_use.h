#pragma once

#include "kit/interfaces.h"

#include <string>
#include <vector>

/// The files that the text of a box names, when it tells that one of them is in use (system errors 5, 32 and 33; 5 is
/// also that of a program that runs); else none.
std::vector<std::wstring> FilesInUse(const std::wstring& Text);

/// Asks what becomes of a failure with Retry and Cancel. When it is about a file in use, and the system knows who holds
/// it, they are named, and can be asked to end; while a rollback runs, the text says what Cancel leaves. Gives IDRETRY
/// or IDCANCEL. `Dialog` shows it, Mendwork's own.
long AskAboutFile(IUDialog& Dialog, BSTR Text, BSTR Caption, long MsgType);

/// A rollback that runs, as long as this object lives.
class TRollbackRuns {
 public:
  TRollbackRuns();
  ~TRollbackRuns();
  TRollbackRuns(const TRollbackRuns&) = delete;
  TRollbackRuns& operator=(const TRollbackRuns&) = delete;

  /// Whether one runs in this process, as far as the kit knows: one that a kit object began, or that is at an entry of
  /// the kit.
  static bool Any();
};
