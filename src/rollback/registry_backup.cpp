// Registry items: the part of the backup object that saves values and keys, and writes them back.

#include "base/guid.h"
#include "base/text.h"
#include "retry/registry_wrappers.h"
#include "rollback/backup.h"
#include "rollback/backup_store.h"
#include "server/arguments.h"

#include <array>
#include <cstring>

namespace {

// The functions for ANSI text hand out a replacement character for what the code page lacks, and drop half a character.
// What they cannot carry could not be written back, so it is not saved, and the logged change that asked is not made.

/// `Enumerate` is RegEnumValueW or RegEnumKeyExW, whose calls have the same form here.
template <class TEnumerate>
void RequireExactName(const TOpenKey& Key, DWORD Index, const std::string& Name, TEnumerate Enumerate) {
  constexpr size_t LongestName = 16383;  // of a value, in characters; those of keys are shorter
  std::array<wchar_t, LongestName + 1> Stored{};
  DWORD Length = static_cast<DWORD>(Stored.size());
  const LSTATUS Status = Enumerate(Key.Get(), Index, Stored.data(), &Length, nullptr, nullptr, nullptr, nullptr);
  if (Status != ERROR_SUCCESS || ToWide(Name) != std::wstring_view(Stored.data(), Length))
    FailureStep(ERROR_NO_UNICODE_TRANSLATION, FormatMessageText(MsgNameNotSaved, Name, Key.Name));
}

void RequireExactData(const TOpenKey& Key, const TRegistryValueItem& Value) {
  if (Value.Type != REG_SZ && Value.Type != REG_EXPAND_SZ && Value.Type != REG_MULTI_SZ) return;  // never converted
  const std::wstring Name = ToWide(Value.Name);
  const std::wstring Text = ToWide({reinterpret_cast<const char*>(Value.Data.data()), Value.Data.size()});
  const size_t Size = Text.size() * sizeof(wchar_t);
  std::vector<BYTE> Stored(Size + 1);
  DWORD StoredSize = static_cast<DWORD>(Stored.size());
  const LSTATUS Status = RegQueryValueExW(Key.Get(), Name.c_str(), nullptr, nullptr, Stored.data(), &StoredSize);
  if (Status != ERROR_SUCCESS || StoredSize != Size || std::memcmp(Stored.data(), Text.data(), Size) != 0)
    FailureStep(ERROR_NO_UNICODE_TRANSLATION, FormatMessageText(MsgValueNotSaved, Value.Name, Key.Name));
}

}  // namespace

HRESULT TUBackup::BackupRegKeyValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) {
  return Give(DataID, [&] { return SaveValue(ValueArgument(RootKey, KeyName, ValueName)); });
}

HRESULT TUBackup::BackupRegKeyValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) {
  return Give(DataID, [&] {
    return Routine("BackupRegKeyValueLogged", {RootKey, KeyName, ValueName}, [&] {
      return SaveLogged(BackupCode::RegistryValue,
                        [&] { return SaveValue(ValueArgument(RootKey, KeyName, ValueName)); });
    });
  });
}

GUID TUBackup::SaveValue(const TValuePlace& Place) const {
  return Routine("BackupRegKeyValue", {Place.Key.Root, Place.Key.Name, Place.Name}, [&] {
    TOpenKey Key = RetryRegOpenKeyEx(Place.Key, KEY_ALL_ACCESS);
    TRegistryValueItem Value{Place.Key.Root, Place.Key.Name, Place.Name, REG_NONE, {}};
    DWORD Type = REG_NONE, Size = 0;
    RetryGetDataSizeAndType(Key, Place.Name, Type, Size);
    Value.Data.resize(Size);
    RetryGetData(Key, Place.Name, Value.Data.data(), Size, Type);
    Value.Data.resize(Size);  // it may have shrunk meanwhile
    Value.Type = Type;
    RequireExactData(Key, Value);
    const GUID DataID = SaveItem(Value, Place.Key.Text());
    RetryRegCloseKey(Key);
    return DataID;
  });
}

HRESULT TUBackup::RestoreRegKeyValue(GUID DataID) {
  return SafeCall([&] { LoadValue(DataID); });
}

void TUBackup::LoadValue(const GUID& DataID) const {
  Routine("RestoreRegKeyValue", {DataID}, [&](TRoutine& Lines) {
    auto Value = LoadItem<TRegistryValueItem>(DataID, Use<IUDialog>(), MsgInternalError3);
    if (!IsInCodePage(Value.KeyName) || !IsInCodePage(Value.Name)) FailWithBox(Use<IUDialog>(), MsgInternalError3);
    const DWORD Size = static_cast<DWORD>(Value.Data.size());
    // The system adds a terminator to a string without one when the byte behind it happens to be zero. It must not: the
    // value comes back as it was.
    constexpr uint8_t NoTerminator = 0xFF;
    Value.Data.push_back(NoTerminator);
    TOpenKey Key = RetryRegCreateKeyEx({Value.RootKey, Value.KeyName}, KEY_ALL_ACCESS);
    RetryRegSetValueEx(Key, Value.Name, Value.Data.data(), Size, Value.Type);
    RetryRegFlushKey(Key);
    RetryRegCloseKey(Key);
    Lines.EndsWith({Value.RootKey, Value.KeyName, Value.Name});
  });
}

HRESULT TUBackup::BackupRegKey(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) {
  return Give(DataID, [&] { return SaveKey(KeyArgument(RootKey, KeyName), BooleanArgument(RecurseSubKey)); });
}

HRESULT TUBackup::BackupRegKeyLogged(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) {
  return Give(DataID, [&] {
    const VARIANT_BOOL Recurse = BooleanArgument(RecurseSubKey);
    return Routine("BackupRegKeyLogged", {RootKey, KeyName, Recurse}, [&] {
      return SaveLogged(BackupCode::RegistryKey, [&] { return SaveKey(KeyArgument(RootKey, KeyName), Recurse); });
    });
  });
}

GUID TUBackup::SaveKey(const TKeyPlace& Place, VARIANT_BOOL RecurseSubKey) const {
  return Routine("BackupRegKey", {Place.Root, Place.Name, RecurseSubKey}, [&] {
    TOpenKey Key = RetryRegOpenKeyEx(Place, KEY_ALL_ACCESS);
    const TKeyInfo Info = RetryGetKeyInfo(Key);
    TRegistryKeyItem Saved{Place.Root, Place.Name, {}, {}};
    // From the last index to the first, and written back in that order.
    for (DWORD Left = Info.ValueCount; Left > 0; --Left) {
      const std::string Name = RetryRegEnumValue(Key, Left - 1, Info.LongestValueName);
      RequireExactName(Key, Left - 1, Name, RegEnumValueW);
      Saved.Values.push_back(BytesOf(SaveValue({Place, Name})));
    }
    for (DWORD Left = RecurseSubKey ? Info.SubkeyCount : 0; Left > 0; --Left) {
      const std::string Name = RetryRegEnumKeyEx(Key, Left - 1, Info.LongestSubkeyName);
      RequireExactName(Key, Left - 1, Name, RegEnumKeyExW);
      Saved.Subkeys.push_back(BytesOf(SaveKey(Place.Below(Name), RecurseSubKey)));
    }
    const GUID DataID = SaveItem(Saved, Key.Name);
    RetryRegCloseKey(Key);
    return DataID;
  });
}

HRESULT TUBackup::RestoreRegKey(GUID DataID) {
  return SafeCall([&] { LoadKey(DataID); });
}

void TUBackup::CheckKey(const GUID& DataID, std::set<TGuidBytes>& Seen) const {
  constexpr bool Quiet = true;
  if (!Seen.insert(BytesOf(DataID)).second) FailWithBox(Use<IUDialog>(), MsgInternalError4);
  const auto Saved = LoadItem<TRegistryKeyItem>(DataID, Use<IUDialog>(), MsgInternalError4, Quiet);
  if (!IsInCodePage(Saved.KeyName)) FailWithBox(Use<IUDialog>(), MsgInternalError4);
  for (const TGuidBytes& Value : Saved.Values)
    LoadItem<TRegistryValueItem>(GuidOf(Value), Use<IUDialog>(), MsgInternalError3, Quiet);
  for (const TGuidBytes& Subkey : Saved.Subkeys) CheckKey(GuidOf(Subkey), Seen);
}

void TUBackup::LoadKey(const GUID& DataID, bool Checked) const {
  Routine("RestoreRegKey", {DataID}, [&](TRoutine& Lines) {
    std::set<TGuidBytes> Seen;
    if (!Checked) CheckKey(DataID, Seen);
    const auto Saved = LoadItem<TRegistryKeyItem>(DataID, Use<IUDialog>(), MsgInternalError4);
    // Made first, so that a key without values comes back too.
    TOpenKey Key = RetryRegCreateKeyEx({Saved.RootKey, Saved.KeyName}, KEY_ALL_ACCESS);
    RetryRegFlushKey(Key);
    RetryRegCloseKey(Key);
    for (const TGuidBytes& Value : Saved.Values) LoadValue(GuidOf(Value));
    for (const TGuidBytes& Subkey : Saved.Subkeys) LoadKey(GuidOf(Subkey), true);
    Lines.EndsWith({Saved.RootKey, Saved.KeyName});
  });
}
