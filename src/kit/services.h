#pragma once

#include "base/handles.h"
#include "kit/interfaces.h"
#include "server/active_objects.h"

/// Mendwork's objects as the kit uses them: each is made, or found active, when it is needed first. They keep the
/// dialogs and the debug log that they found then.
class TServices {
 public:
  IUFile& File() { return Known(FileObject, CLSID_UFile); }
  IUBackup& Backup() { return Known(BackupObject, CLSID_UBackup); }
  IUTransactionLog& Transactions() { return Known(TransactionsObject, CLSID_UTransactionLog); }

 private:
  template <class TInterface>
  static TInterface& Known(TComRef<TInterface>& Object, const CLSID& ClassId) {
    if (!Object) Object = ActiveOrNew<TInterface>(ClassId);
    return *Object;
  }

  TComRef<IUFile> FileObject;
  TComRef<IUBackup> BackupObject;
  TComRef<IUTransactionLog> TransactionsObject;
};
