// Registry items: the part of the backup object that saves values and keys, and writes them back.

#include "base/failure.h"
#include "base/guid.h"
#include "base/text.h"
#include "retry/registry_wrappers.h"
#include "rollback/backup.h"
#include "rollback/backup_store.h"
#include "server/arguments.h"

#include <optional>

namespace {

/// What a save is begun again for: somebody changed what it was reading.
struct EChangedMeanwhile {};

bool IsText(DWORD Type) { return Type == REG_SZ || Type == REG_EXPAND_SZ || Type == REG_MULTI_SZ; }

std::wstring_view WideView(const std::string& Bytes) {
  return {reinterpret_cast<const wchar_t*>(Bytes.data()), Bytes.size() / sizeof(wchar_t)};
}

// The functions for ANSI text hand out a replacement character for what the code page lacks, and drop half a character.
// What they cannot carry could not be written back, so it is not saved, and the logged change that asked is not made.

void RequireExactName(const TOpenKey& Key, const std::string& Name, const std::optional<std::wstring>& Stored) {
  if (!Stored) throw EChangedMeanwhile();
  if (ToWide(Name) == *Stored) return;
  if (ExactAnsi(*Stored)) throw EChangedMeanwhile();
  FailureStep(ERROR_NO_UNICODE_TRANSLATION, FormatWideMessage(MsgNameNotSaved, *Stored, ToWide(Key.Name)));
}

void RequireExactData(const TOpenKey& Key, const TRegistryValueItem& Value) {
  if (!IsText(Value.Type)) return;  // never converted
  const std::optional<std::string> Stored = RetryStoredData(Key, Value.Name);
  if (!Stored) throw EChangedMeanwhile();
  if (Stored->size() % sizeof(wchar_t) != 0)
    FailureStep(ERROR_INVALID_DATA, FormatMessageText(MsgHalfCharacter, Value.Name, Key.Name));
  const std::wstring_view Text = WideView(*Stored);
  if (ToWide({reinterpret_cast<const char*>(Value.Data.data()), Value.Data.size()}) == Text) return;
  if (ExactAnsi(Text)) throw EChangedMeanwhile();
  FailureStep(ERROR_NO_UNICODE_TRANSLATION, FormatMessageText(MsgValueNotSaved, Value.Name, Key.Name));
}

/// Runs a save until nothing changed meanwhile. When that does not happen, the user hears of it, and can end what
/// writes there.
template <class TSave>
GUID SaveUnchanged(const TKeyPlace& Place, TSave Save) {
  constexpr int Tries = 3;
  GUID DataID{};
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            for (int TriesLeft = Tries; TriesLeft > 0; --TriesLeft) {
              try {
                DataID = Save();
                return TOutcome{true};
              } catch (const EChangedMeanwhile&) {
              }
            }
            return TOutcome{false, ERROR_BUSY};
          },
          MsgKeyKeepsChanging, Place.Text());
  return DataID;
}

bool IsUnchanged(const TKeyInfo& Before, const TKeyInfo& Now) {
  return Before.SubkeyCount == Now.SubkeyCount && Before.ValueCount == Now.ValueCount &&
         CompareFileTime(&Before.LastWrite, &Now.LastWrite) == 0;
}

/// Windows writes some texts in its own way: `%ProgramFiles%` becomes another one for a 32-bit program. That the value
/// is not what it was is told.
void TellRewritten(const TOpenKey& Key, const TRegistryValueItem& Value, const TRoutine& Lines) {
  if (!IsText(Value.Type)) return;
  const std::wstring Wanted = ToWide({reinterpret_cast<const char*>(Value.Data.data()), Value.Data.size()});
  const std::optional<std::string> Stored = RetryStoredData(Key, Value.Name);
  if (!Stored || WideView(*Stored) != Wanted)
    Lines.Line(L"Differs", FormatWideMessage(MsgValueRewritten, ToWide(Value.Name), ToWide(Key.Name)));
}

/// HKEY_CLASSES_ROOT shows two hives as one, the user's over the machine's. What is deleted there goes from the user's
/// when that has it, and what is created there goes into the machine's, so a key of the user's is saved under its own
/// place.
TKeyPlace OwnHive(const TKeyPlace& Place) {
  constexpr DWORD ClassesRoot = 0x80000000, CurrentUser = 0x80000001, LocalMachine = 0x80000002;
  if (Place.Root != ClassesRoot || !Place.IsBelowRoot()) return Place;
  const std::string Name = "Software\\Classes\\" + Place.Name;
  TKeyPlace User{CurrentUser, Name};
  if (!RetryKeyInfoAt(User)) return Place;
  if (RetryKeyInfoAt({LocalMachine, Name})) Refuse(MsgKeyOfTwoHives, ToWide(Place.Text()));
  return User;
}

}  // namespace

HRESULT TUBackup::BackupRegKeyValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) {
  return Give(DataID, [&] { return SaveNamedValue(ValueArgument(RootKey, KeyName, ValueName)); });
}

HRESULT TUBackup::BackupRegKeyValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) {
  return Give(DataID, [&] {
    return Routine("BackupRegKeyValueLogged", {RootKey, KeyName, ValueName}, [&] {
      return SaveLogged(BackupCode::RegistryValue,
                        [&] { return SaveNamedValue(ValueArgument(RootKey, KeyName, ValueName)); });
    });
  });
}

GUID TUBackup::SaveNamedValue(const TValuePlace& Place) const {
  return SaveUnchanged(Place.Key, [&] { return SaveValue(Place, StoredSpelling(OwnHive(Place.Key)), false); });
}

GUID TUBackup::SaveValue(const TValuePlace& Place, const TKeyPlace& Stored, bool Found) const {
  return Routine("BackupRegKeyValue", {Place.Key.Root, Place.Key.Name, Place.Name}, [&] {
    TOpenKey Key = RetryRegOpenKeyEx(Place.Key, KEY_ALL_ACCESS);
    TRegistryValueItem Value{Stored.Root, Stored.Name, Place.Name, REG_NONE, {}};
    DWORD Type = REG_NONE;
    const std::string Data = RetryReadValue(Key, Place.Name, Type);
    Value.Data.assign(Data.begin(), Data.end());
    Value.Type = Type;
    RequireExactData(Key, Value);
    if (!Found) Value.Name = StoredSpelling(Key, Place.Name);
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
    TOpenKey Key = RetryWriteValue({{Value.RootKey, Value.KeyName}, Value.Name}, Value.Data.data(), Size, Value.Type);
    Value.Data.pop_back();
    TellRewritten(Key, Value, Lines);
    RetryRegFlushKey(Key);
    RetryRegCloseKey(Key);
    Lines.EndsWith({Value.RootKey, Value.KeyName, Value.Name});
  });
}

HRESULT TUBackup::BackupRegKey(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) {
  return Give(DataID, [&] { return SaveNamedKey(KeyArgument(RootKey, KeyName), BooleanArgument(RecurseSubKey)); });
}

HRESULT TUBackup::BackupRegKeyLogged(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) {
  return Give(DataID, [&] {
    const VARIANT_BOOL Recurse = BooleanArgument(RecurseSubKey);
    return Routine("BackupRegKeyLogged", {RootKey, KeyName, Recurse}, [&] {
      return SaveLogged(BackupCode::RegistryKey, [&] { return SaveNamedKey(KeyArgument(RootKey, KeyName), Recurse); });
    });
  });
}

GUID TUBackup::SaveNamedKey(const TKeyPlace& Place, VARIANT_BOOL RecurseSubKey) const {
  return SaveUnchanged(Place, [&] {
    TSeenKeys Seen;
    const GUID DataID = SaveKey(Place, StoredSpelling(OwnHive(Place)), RecurseSubKey, Seen);
    for (const auto& [Key, Before] : Seen)
      if (const std::optional<TKeyInfo> Now = RetryKeyInfoAt(Key); !Now || !IsUnchanged(Before, *Now))
        throw EChangedMeanwhile();
    return DataID;
  });
}

GUID TUBackup::SaveKey(const TKeyPlace& Place, const TKeyPlace& Stored, VARIANT_BOOL RecurseSubKey,
                       TSeenKeys& Seen) const {
  return Routine("BackupRegKey", {Place.Root, Place.Name, RecurseSubKey}, [&] {
    // The deletion would follow it, and what it leads to was not named.
    if (Place.IsBelowRoot() && RetryIsKeyLink(Place))
      FailureStep(ERROR_CANT_RESOLVE_FILENAME, FormatMessageText(MsgLinkNotSaved, Place.Text()));
    TOpenKey Key = RetryRegOpenKeyEx(Place, KEY_ALL_ACCESS);
    const TKeyInfo Info = RetryGetKeyInfo(Key);
    Seen.emplace_back(Place, Info);
    TRegistryKeyItem Saved{Stored.Root, Stored.Name, {}, {}};
    // From the last index to the first, and written back in that order.
    for (DWORD Left = Info.ValueCount; Left > 0; --Left) {
      const std::string Name = RetryRegEnumValue(Key, Left - 1, Info.LongestValueName);
      RequireExactName(Key, Name, RetryStoredValueName(Key, Left - 1));
      Saved.Values.push_back(BytesOf(SaveValue({Place, Name}, Stored, true)));
    }
    for (DWORD Left = RecurseSubKey ? Info.SubkeyCount : 0; Left > 0; --Left) {
      const std::string Name = RetryRegEnumKeyEx(Key, Left - 1, Info.LongestSubkeyName);
      RequireExactName(Key, Name, RetryStoredKeyName(Key, Left - 1));
      Saved.Subkeys.push_back(BytesOf(SaveKey(Place.Below(Name), Stored.Below(Name), RecurseSubKey, Seen)));
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
