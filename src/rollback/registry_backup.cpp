// Registry items: the part of the backup object that saves values and keys, and writes them back.

#include "retry/registry_wrappers.h"
#include "rollback/backup.h"
#include "server/arguments.h"

#include <algorithm>

HRESULT TUBackup::BackupRegKeyValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall(
      [&] { *DataID = SaveValue(RootKeyArgument(RootKey), KeyNameArgument(KeyName), ValueNameArgument(ValueName)); });
}

HRESULT TUBackup::BackupRegKeyValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), BackupLogName, LogText("BackupRegKeyValueLogged", RootKey, KeyName, ValueName));
    const GUID NewId = SaveValue(RootKeyArgument(RootKey), KeyNameArgument(KeyName), ValueNameArgument(ValueName));
    Record(BackupCode::RegistryValue, NewId);
    *DataID = NewId;
    Log.End(LogText("BackupRegKeyValueLogged", NewId));
  });
}

GUID TUBackup::SaveValue(DWORD RootKey, const std::string& KeyName, const std::string& ValueName) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("BackupRegKeyValue", RootKey, KeyName, ValueName));
  const std::string Key = KeyText(RootKey, KeyName);
  TRegistryKey Handle = RetryRegOpenKeyEx(RootKey, KeyName, KEY_ALL_ACCESS);
  TRegistryValueItem Value{RootKey, KeyName, ValueName, REG_NONE, {}};
  DWORD Type = REG_NONE, Size = 0;
  RetryGetDataSizeAndType(Key, Handle.Get(), ValueName, Type, Size);
  Value.Data.resize(Size);
  RetryGetData(Key, Handle.Get(), ValueName, Value.Data.data(), Size, Type);
  Value.Data.resize(Size);  // it may have shrunk meanwhile
  Value.Type = Type;
  TNewItem Item;
  Item.Write(EncodeItem(Value));
  const GUID DataID = Item.Finish();
  RetryRegCloseKey(Key, Handle);
  Log.End(LogText("BackupRegKeyValue", DataID));
  return DataID;
}

HRESULT TUBackup::RestoreRegKeyValue(GUID DataID) {
  return SafeCall([&] { LoadValue(DataID); });
}

void TUBackup::LoadValue(const GUID& DataID) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("RestoreRegKeyValue", DataID));
  TRegistryValueItem Value;
  TStoredItem Item(DataID);
  if (!Item.HasKind(RegistryValueKind) || !Item.ReadFields(Value) || Item.Remaining() != 0 || !Value.Plausible())
    FailWithBox(*Dialog, MsgInternalError3);
  Item.Close();
  const std::string Key = KeyText(Value.RootKey, Value.KeyPath);
  const DWORD Size = static_cast<DWORD>(Value.Data.size());
  // The system adds a terminator to a string without one when the byte behind it happens to be zero. It must not: the
  // value comes back as it was.
  constexpr uint8_t NoTerminator = 0xFF;
  Value.Data.push_back(NoTerminator);
  TRegistryKey Handle = RetryRegCreateKeyEx(Value.RootKey, Value.KeyPath, KEY_ALL_ACCESS);
  RetryRegSetValueEx(Key, Handle.Get(), Value.Name, Value.Data.data(), Size, Value.Type);
  RetryRegFlushKey(Key);
  RetryRegCloseKey(Key, Handle);
  Log.End(LogText("RestoreRegKeyValue", Value.RootKey, Value.KeyPath, Value.Name));
}

HRESULT TUBackup::BackupRegKey(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall(
      [&] { *DataID = SaveKey(RootKeyArgument(RootKey), KeyNameArgument(KeyName), Normal(RecurseSubKey)); });
}

HRESULT TUBackup::BackupRegKeyLogged(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) {
  if (!DataID) return E_POINTER;
  return SafeCall([&] {
    const VARIANT_BOOL Recurse = Normal(RecurseSubKey);
    TLogScope Log(DebugLog.Get(), BackupLogName, LogText("BackupRegKeyLogged", RootKey, KeyName, Recurse));
    const GUID NewId = SaveKey(RootKeyArgument(RootKey), KeyNameArgument(KeyName), Recurse);
    Record(BackupCode::RegistryKey, NewId);
    *DataID = NewId;
    Log.End(LogText("BackupRegKeyLogged", NewId));
  });
}

GUID TUBackup::SaveKey(DWORD RootKey, const std::string& KeyName, VARIANT_BOOL RecurseSubKey) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("BackupRegKey", RootKey, KeyName, RecurseSubKey));
  const std::string Key = KeyText(RootKey, KeyName);
  TRegistryKey Handle = RetryRegOpenKeyEx(RootKey, KeyName, KEY_ALL_ACCESS);
  const TKeyInfo Info = RetryGetKeyInfo(Key, Handle.Get());
  TRegistryKeyItem Saved{RootKey, KeyName, {}, {}};
  // From the last index to the first, and written back in that order.
  for (DWORD Left = Info.ValueCount; Left > 0; --Left) {
    const std::string Name = RetryRegEnumValue(Key, Handle.Get(), Left - 1, Info.LongestValueName);
    Saved.Values.push_back(BytesOf(SaveValue(RootKey, KeyName, Name)));
  }
  for (DWORD Left = RecurseSubKey ? Info.SubkeyCount : 0; Left > 0; --Left) {
    const std::string Name = RetryRegEnumKeyEx(Key, Handle.Get(), Left - 1, Info.LongestSubkeyName);
    // Below the root itself a path begins without a backslash.
    const std::string Subkey = KeyName.empty() ? Name : KeyName + "\\" + Name;
    Saved.Subkeys.push_back(BytesOf(SaveKey(RootKey, Subkey, RecurseSubKey)));
  }
  TNewItem Item;
  Item.Write(EncodeItem(Saved));
  const GUID DataID = Item.Finish();
  RetryRegCloseKey(Key, Handle);
  Log.End(LogText("BackupRegKey", DataID));
  return DataID;
}

HRESULT TUBackup::RestoreRegKey(GUID DataID) {
  return SafeCall([&] {
    std::vector<GUID> Ancestors;
    LoadKey(DataID, Ancestors);
  });
}

/// `Ancestors` are the keys that are being restored around this one; see LoadFiles.
void TUBackup::LoadKey(const GUID& DataID, std::vector<GUID>& Ancestors) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("RestoreRegKey", DataID));
  const bool Contained = std::find(Ancestors.begin(), Ancestors.end(), DataID) != Ancestors.end();
  TRegistryKeyItem Saved;
  TStoredItem Item(DataID);
  if (Contained || !Item.HasKind(RegistryKeyKind) || !Item.ReadFields(Saved) || Item.Remaining() != 0 ||
      !Saved.Plausible())
    FailWithBox(*Dialog, MsgInternalError4);
  Item.Close();
  const std::string Key = KeyText(Saved.RootKey, Saved.KeyPath);
  // Made first, so that a key without values comes back too.
  TRegistryKey Handle = RetryRegCreateKeyEx(Saved.RootKey, Saved.KeyPath, KEY_ALL_ACCESS);
  RetryRegFlushKey(Key);
  RetryRegCloseKey(Key, Handle);
  Ancestors.push_back(DataID);
  for (const TGuidBytes& Value : Saved.Values) LoadValue(GuidOf(Value));
  for (const TGuidBytes& Subkey : Saved.Subkeys) LoadKey(GuidOf(Subkey), Ancestors);
  Ancestors.pop_back();
  Log.End(LogText("RestoreRegKey", Saved.RootKey, Saved.KeyPath));
}
