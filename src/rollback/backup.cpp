#include "rollback/backup.h"

#include "base/data_folders.h"
#include "base/text.h"
#include "retry/module_wrappers.h"
#include "rollback/backup_store.h"
#include "rollback/key_rights.h"
#include "server/arguments.h"

void TUBackup::Initialize() {
  PrepareDataFolders();
  TLoggedObject::Initialize();
}

HRESULT TUBackup::Rollback(long Code, GUID DataID) {
  return Method("Rollback", {Code, DataID}, [&] {
    if (Code == BackupCode::RegistryValue) LoadValue(DataID);
    if (Code == BackupCode::RegistryKey) LoadKey(DataID);
    if (Code == BackupCode::Files) LoadFiles(DataID);
    if (Code == BackupCode::KeyRights) LoadKeyRights(DataID, Use<IUDialog>());
  });
}

HRESULT TUBackup::BackupString(BSTR Str, GUID* DataID) {
  return Give(DataID, [&] { return SaveString(ViewOf(Str)); });
}

GUID TUBackup::SaveString(std::wstring_view Str) const {
  return Routine("BackupString", {Str}, [&] {
    const std::string Text = LossyAnsi(Str);
    TNewItem Item{TStringItem(), Text};
    Item.Append(Text.data(), Text.size());
    return Item.Finish();
  });
}

HRESULT TUBackup::RestoreString(GUID DataID, BSTR* Str) {
  return Give(Str, [&] { return ToWide(LoadString(DataID)); });
}

std::string TUBackup::LoadString(const GUID& DataID) const {
  return Routine("RestoreString", {DataID}, [&] {
    TStoredItem Item(DataID);
    if (!Item.HasKind(StringKind)) FailWithBox(Use<IUDialog>(), MsgInternalError1);
    std::string Text(Item.SizeAfterTag(), '\0');
    Item.Read(Text.data(), static_cast<uint32_t>(Text.size()));
    Item.Close();
    return Text;
  });
}

HRESULT TUBackup::BackupData(void* DataBuf, long DataSize, GUID* DataID) {
  return Give(DataID, [&] {
    return Routine("BackupData", {DataSize}, [&] {
      RequireBuffer(DataBuf, DataSize);
      TNewItem Item{TRawDataItem(), ""};
      Item.Append(DataBuf, static_cast<size_t>(DataSize));
      return Item.Finish();
    });
  });
}

HRESULT TUBackup::RestoreData(GUID DataID, void** DataBuf, long* DataSize) {
  if (!DataBuf || !DataSize) return RefuseNullPointer();
  return Give(DataBuf, [&] {
    TTaskMemory Memory;
    Routine("RestoreData", {DataID}, [&] {
      TStoredItem Item(DataID);
      if (!Item.HasKind(RawDataKind)) FailWithBox(Use<IUDialog>(), MsgInternalError2);
      const uint32_t Size = Item.SizeAfterTag();
      *DataSize = static_cast<long>(Size);
      Memory = RetryCoTaskMemAlloc(Size);
      Item.Read(Memory.Get(), Size);
      Item.Close();
    });
    return Memory.Detach();
  });
}

COCLASS(UBackup, TUBackup);
