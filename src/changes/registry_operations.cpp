#include "changes/registry_operations.h"

#include "retry/registry_wrappers.h"
#include "server/arguments.h"
#include "server/environment.h"

namespace {

constexpr wchar_t LogName[] = L"URegistry";

namespace RegistryCode {
constexpr long KeyDeleted = 0, ValueDeleted = 1, BinarySet = 2, DwordSet = 3, StringSet = 4;
}

/// The key that a deletion names. A name without any part is the root itself.
std::string DeletableKeyArgument(BSTR KeyName) {
  const std::string Name = KeyNameArgument(KeyName);
  if (Name.find_first_not_of('\\') == std::string::npos)
    throw EFailure(E_INVALIDARG, L"The registry key to be deleted must have a name.");
  return Name;
}

}  // namespace

void TURegistry::Initialize() {
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Backup = ActiveOrNew<IUBackup>(CLSID_UBackup);
  TransactionLog = ActiveOrNew<IUTransactionLog>(CLSID_UTransactionLog);
}

HRESULT TURegistry::Rollback(long Code, GUID DataID) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("Rollback", Code, DataID));
    if (Code == RegistryCode::KeyDeleted) CheckCall(Backup->RestoreRegKey(DataID));
    if (Code >= RegistryCode::ValueDeleted && Code <= RegistryCode::StringSet)
      CheckCall(Backup->RestoreRegKeyValue(DataID));
    Log.End(LogText("Rollback"));
  });
}

// ---- Plain operations

HRESULT TURegistry::DeleteRegKey(unsigned long RootKey, BSTR KeyName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("DeleteRegKey", KeyName, RootKey));
    RetrySHDeleteKey(RootKeyArgument(RootKey), DeletableKeyArgument(KeyName));
    Log.End(LogText("DeleteRegKey"));
  });
}

HRESULT TURegistry::DeleteRegKeyValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("DeleteRegKeyValue", KeyName, RootKey, ValueName));
    RetryRegDeleteValue(RootKeyArgument(RootKey), KeyNameArgument(KeyName), ValueNameArgument(ValueName));
    Log.End(LogText("DeleteRegKeyValue"));
  });
}

HRESULT TURegistry::SetStringValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("SetStringValue", KeyName, RootKey, ValueName, Value));
    const std::string Data = ToAnsi(ViewOf(Value));
    WriteValue({RootKey, KeyName, ValueName}, REG_SZ, Data.c_str(), Data.size() + 1);
    Log.End(LogText("SetStringValue"));
  });
}

HRESULT TURegistry::SetDwordValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("SetDwordValue", KeyName, RootKey, ValueName, Value));
    WriteValue({RootKey, KeyName, ValueName}, REG_DWORD, &Value, sizeof(DWORD));
    Log.End(LogText("SetDwordValue"));
  });
}

HRESULT TURegistry::SetBinaryValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value, long ValueSize) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("SetBinaryValue", KeyName, RootKey, ValueName, ValueSize));
    RequireBuffer(Value, ValueSize);
    WriteValue({RootKey, KeyName, ValueName}, REG_BINARY, Value, static_cast<size_t>(ValueSize));
    Log.End(LogText("SetBinaryValue"));
  });
}

void TURegistry::WriteValue(const TValuePlace& Place, DWORD Type, const void* Data, size_t Size) {
  const DWORD RootKey = RootKeyArgument(Place.RootKey);
  const std::string KeyName = KeyNameArgument(Place.KeyName), ValueName = ValueNameArgument(Place.ValueName);
  // Closed by its owner, plainly: the value is written by then, and a failing close would only confuse.
  const TRegistryKey Key = RetryRegCreateKeyEx(RootKey, KeyName, KEY_ALL_ACCESS);
  RetryRegSetValueEx(KeyText(RootKey, KeyName), Key.Get(), ValueName, Data, static_cast<DWORD>(Size), Type);
}

// ---- Logged operations

HRESULT TURegistry::DeleteRegKeyLogged(unsigned long RootKey, BSTR KeyName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("DeleteRegKeyLogged", KeyName, RootKey));
    if (RetryRegKeyExists(RootKeyArgument(RootKey), DeletableKeyArgument(KeyName))) {
      GUID DataID{};
      CheckCall(Backup->BackupRegKey(RootKey, KeyName, VARIANT_TRUE, &DataID));
      CheckCall(TransactionLog->Put(CLSID_URegistry, RegistryCode::KeyDeleted, DataID));
    }
    CheckCall(DeleteRegKey(RootKey, KeyName));
    Log.End(LogText("DeleteRegKeyLogged"));
  });
}

void TURegistry::SaveValueThen(const TValuePlace& Place, long Code, const std::function<HRESULT()>& Plain) {
  if (RetryRegKeyValueExists(RootKeyArgument(Place.RootKey), KeyNameArgument(Place.KeyName),
                             ValueNameArgument(Place.ValueName))) {
    GUID DataID{};
    CheckCall(Backup->BackupRegKeyValue(Place.RootKey, Place.KeyName, Place.ValueName, &DataID));
    CheckCall(TransactionLog->Put(CLSID_URegistry, Code, DataID));
  }
  CheckCall(Plain());
}

HRESULT TURegistry::DeleteRegKeyValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("DeleteRegKeyValueLogged", KeyName, RootKey, ValueName));
    SaveValueThen({RootKey, KeyName, ValueName}, RegistryCode::ValueDeleted,
                  [&] { return DeleteRegKeyValue(RootKey, KeyName, ValueName); });
    Log.End(LogText("DeleteRegKeyValueLogged"));
  });
}

HRESULT TURegistry::SetStringValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("SetStringValueLogged", KeyName, RootKey, ValueName, Value));
    SaveValueThen({RootKey, KeyName, ValueName}, RegistryCode::StringSet,
                  [&] { return SetStringValue(RootKey, KeyName, ValueName, Value); });
    Log.End(LogText("SetStringValueLogged"));
  });
}

HRESULT TURegistry::SetDwordValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("SetDwordValueLogged", KeyName, RootKey, ValueName, Value));
    SaveValueThen({RootKey, KeyName, ValueName}, RegistryCode::DwordSet,
                  [&] { return SetDwordValue(RootKey, KeyName, ValueName, Value); });
    Log.End(LogText("SetDwordValueLogged"));
  });
}

HRESULT TURegistry::SetBinaryValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value,
                                         long ValueSize) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("SetBinaryValueLogged", KeyName, RootKey, ValueName, ValueSize));
    RequireBuffer(Value, ValueSize);
    SaveValueThen({RootKey, KeyName, ValueName}, RegistryCode::BinarySet,
                  [&] { return SetBinaryValue(RootKey, KeyName, ValueName, Value, ValueSize); });
    Log.End(LogText("SetBinaryValueLogged"));
  });
}

TAutoObjectBase* CreateURegistry(TVersionedAutoObjectFactory& Factory) { return new TURegistry(Factory); }
