// Registry items: the part of the backup object that saves values and keys, and writes them back.

#include "retry/registry_wrappers.h"
#include "rollback/backup.h"
#include "server/arguments.h"

#include <array>
#include <cstring>
#include <set>

namespace {

constexpr size_t LongestName = 16383;  ///< of a value, in characters; those of keys are shorter

/// The functions for ANSI text hand out a replacement character for what the code page lacks, and drop half a
/// character. What they cannot carry could not be written back, so it is not saved, and the logged change that asked is
/// not made.
[[noreturn]] void RefuseLoss(const std::string& What, const std::string& Key) {
  FailureStep(ERROR_NO_UNICODE_TRANSLATION,
              What + " of the registry key '" + Key + "' cannot be saved: the system's code page does not hold it.");
}

/// `Enumerate` is RegEnumValueW or RegEnumKeyExW, whose calls have the same form here.
template <class TEnumerate>
void RequireExactName(const std::string& Key, HKEY Handle, DWORD Index, const std::string& Name, TEnumerate Enumerate) {
  std::array<wchar_t, LongestName + 1> Stored;
  DWORD Length = static_cast<DWORD>(Stored.size());
  const LSTATUS Status = Enumerate(Handle, Index, Stored.data(), &Length, nullptr, nullptr, nullptr, nullptr);
  if (Status != ERROR_SUCCESS || ToWide(Name) != std::wstring_view(Stored.data(), Length))
    RefuseLoss("The name '" + Name + "'", Key);
}

void RequireExactData(const std::string& Key, HKEY Handle, const TRegistryValueItem& Value) {
  if (Value.Type != REG_SZ && Value.Type != REG_EXPAND_SZ && Value.Type != REG_MULTI_SZ) return;  // never converted
  const std::wstring Name = ToWide(Value.Name);
  const std::wstring Text = ToWide({reinterpret_cast<const char*>(Value.Data.data()), Value.Data.size()});
  const size_t Size = Text.size() * sizeof(wchar_t);
  std::vector<BYTE> Stored(Size + 1);
  DWORD StoredSize = static_cast<DWORD>(Stored.size());
  const LSTATUS Status = RegQueryValueExW(Handle, Name.c_str(), nullptr, nullptr, Stored.data(), &StoredSize);
  if (Status != ERROR_SUCCESS || StoredSize != Size || std::memcmp(Stored.data(), Text.data(), Size) != 0)
    RefuseLoss("The value '" + Value.Name + "'", Key);
}

constexpr TMessage DamageOf(const TRegistryValueItem&) { return MsgInternalError3; }
constexpr TMessage DamageOf(const TRegistryKeyItem&) { return MsgInternalError4; }

/// Reads a whole item. One that cannot have been written by a save is shown to the user and ends the restore.
template <class TItem>
TItem ReadItem(IUDialog& Dialog, const GUID& DataID, bool Quiet = false) {
  TItem Result;
  TStoredItem Item(DataID, Quiet);
  if (!Item.HasKind(TItem::Kind) || !Item.ReadFields(Result) || Item.Remaining() != 0 || !Result.Plausible())
    FailWithBox(Dialog, DamageOf(Result));
  Item.Close();
  return Result;
}

/// Reads every part of a key before anything of it is written, so that damage leaves the registry as it is. A tree
/// holds each key once; one that is met again contains itself, and would never end.
void CheckKey(IUDialog& Dialog, const GUID& DataID, std::set<TGuidBytes>& Seen) {
  if (!Seen.insert(BytesOf(DataID)).second) FailWithBox(Dialog, MsgInternalError4);
  const auto Saved = ReadItem<TRegistryKeyItem>(Dialog, DataID, true);
  for (const TGuidBytes& Value : Saved.Values) ReadItem<TRegistryValueItem>(Dialog, GuidOf(Value), true);
  for (const TGuidBytes& Subkey : Saved.Subkeys) CheckKey(Dialog, GuidOf(Subkey), Seen);
}

}  // namespace

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
  RequireExactData(Key, Handle.Get(), Value);
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
  TRegistryValueItem Value = ReadItem<TRegistryValueItem>(*Dialog, DataID);
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
    RequireExactName(Key, Handle.Get(), Left - 1, Name, RegEnumValueW);
    Saved.Values.push_back(BytesOf(SaveValue(RootKey, KeyName, Name)));
  }
  for (DWORD Left = RecurseSubKey ? Info.SubkeyCount : 0; Left > 0; --Left) {
    const std::string Name = RetryRegEnumKeyEx(Key, Handle.Get(), Left - 1, Info.LongestSubkeyName);
    RequireExactName(Key, Handle.Get(), Left - 1, Name, RegEnumKeyExW);
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
  return SafeCall([&] { LoadKey(DataID, false); });
}

void TUBackup::LoadKey(const GUID& DataID, bool Checked) {
  TLogScope Log(DebugLog.Get(), BackupLogName, LogText("RestoreRegKey", DataID));
  if (!Checked) {
    std::set<TGuidBytes> Seen;
    CheckKey(*Dialog, DataID, Seen);
  }
  const auto Saved = ReadItem<TRegistryKeyItem>(*Dialog, DataID);
  const std::string Key = KeyText(Saved.RootKey, Saved.KeyPath);
  // Made first, so that a key without values comes back too.
  TRegistryKey Handle = RetryRegCreateKeyEx(Saved.RootKey, Saved.KeyPath, KEY_ALL_ACCESS);
  RetryRegFlushKey(Key);
  RetryRegCloseKey(Key, Handle);
  for (const TGuidBytes& Value : Saved.Values) LoadValue(GuidOf(Value));
  for (const TGuidBytes& Subkey : Saved.Subkeys) LoadKey(GuidOf(Subkey), true);
  Log.End(LogText("RestoreRegKey", Saved.RootKey, Saved.KeyPath));
}
