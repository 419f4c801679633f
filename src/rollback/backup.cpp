#include "rollback/backup.h"

#include "retry/module_wrappers.h"
#include "server/arguments.h"
#include "server/environment.h"

void TUBackup::Initialize() {
  PrepareDataFolders();
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Dialog = ActiveOrNew<IUDialog>(CLSID_UDialog);
  TransactionLog = ActiveOrNew<IUTransactionLog>(CLSID_UTransactionLog);
}

HRESULT TUBackup::Rollback(long Code, GUID DataID) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), BackupLogName, LogText("Rollback", Code, DataID));
    if (Code == BackupCode::RegistryValue) CheckCall(RestoreRegKeyValue(DataID));
    if (Code == BackupCode::RegistryKey) CheckCall(RestoreRegKey(DataID));
    if (Code == BackupCode::Files) CheckCall(RestoreFiles(DataID));
    Log.End(LogText("Rollback"));
  });
}

void TUBackup::Record(long Code, const GUID& DataID) { CheckCall(TransactionLog->Put(CLSID_UBackup, Code, DataID)); }

HRESULT TUBackup::BackupString(BSTR Str, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall([&] { *DataID = SaveString(ViewOf(Str)); });
}

GUID TUBackup::SaveString(std::wstring_view Str) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("BackupString", Str));
  TItemWriter Tag;
  Tag(static_cast<uint32_t>(StringKind));
  TNewItem Item;
  Item.Write(Tag.Bytes);
  Item.Write(ToAnsi(Str));
  const GUID DataID = Item.Finish();
  Log.End(LogText("BackupString", DataID));
  return DataID;
}

HRESULT TUBackup::RestoreString(GUID DataID, BSTR* Str) {
  if (!Str) return E_POINTER;
  *Str = nullptr;
  return SafeCall([&] { *Str = MakeBstr(LoadString(DataID)).Detach(); });
}

std::wstring TUBackup::LoadString(const GUID& DataID) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("RestoreString", DataID));
  TStoredItem Item(DataID);
  if (!Item.HasKind(StringKind)) FailWithBox(*Dialog, MsgInternalError1);
  std::string Text(Item.SizeAfterTag(), '\0');
  Item.Read(Text.data(), static_cast<uint32_t>(Text.size()));
  Item.Close();
  const std::wstring Str = ToWide(Text);
  Log.End(LogText("RestoreString", std::wstring_view(Str)));
  return Str;
}

HRESULT TUBackup::BackupData(void* DataBuf, long DataSize, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), BackupLogName, LogText("BackupData", DataSize));
    RequireBuffer(DataBuf, DataSize);
    TItemWriter Tag;
    Tag(static_cast<uint32_t>(RawDataKind));
    TNewItem Item;
    Item.Write(Tag.Bytes);
    Item.Write(DataBuf, static_cast<size_t>(DataSize));
    const GUID NewId = Item.Finish();
    Log.End(LogText("BackupData", NewId));
    *DataID = NewId;
  });
}

HRESULT TUBackup::RestoreData(GUID DataID, void** DataBuf, long* DataSize) {
  if (!DataBuf || !DataSize) return E_POINTER;
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), BackupLogName, LogText("RestoreData", DataID));
    *DataBuf = nullptr;
    TStoredItem Item(DataID);
    if (!Item.HasKind(RawDataKind)) FailWithBox(*Dialog, MsgInternalError2);
    const uint32_t Size = Item.SizeAfterTag();
    *DataSize = static_cast<long>(Size);
    TTaskMemory Memory = RetryCoTaskMemAlloc(Size);
    Item.Read(Memory.Get(), Size);
    Item.Close();
    Log.End(LogText("RestoreData"));
    *DataBuf = Memory.Detach();
  });
}

TAutoObjectBase* CreateUBackup(TVersionedAutoObjectFactory& Factory) { return new TUBackup(Factory); }
