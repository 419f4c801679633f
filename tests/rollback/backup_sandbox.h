#pragma once

#include "formats/backup_items.h"
#include "support/sandbox_test.h"

/// A sandbox with the backup object, and the items of its store.
class TBackupSandbox : public TSandboxTest {
 protected:
  std::string ItemPath(const GUID& DataID) const { return Service("Backup\\" + GuidText(DataID)); }
  std::string Item(const GUID& DataID) const { return Read(ItemPath(DataID)); }
  /// An item with these bytes, or fields, as if it had been saved.
  GUID Stored(const std::string& Content) {
    const GUID DataID = NumberedGuid(++Items);
    Write(ItemPath(DataID), Content);
    return DataID;
  }
  template <class TItem>
  TGuidBytes Part(const TItem& Fields) {
    return BytesOf(Stored(EncodeItem(Fields)));
  }

  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);

 private:
  int Items = 0;
};
