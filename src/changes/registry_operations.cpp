#include "changes/registry_operations.h"

#include "base/failure.h"
#include "base/numbers.h"
#include "base/text.h"
#include "formats/entry_codes.h"
#include "retry/registry_wrappers.h"
#include "rollback/key_rights.h"
#include "server/arguments.h"

namespace {

/// The key that a deletion names. A name without any part is the root itself.
TKeyPlace DeletableKeyArgument(unsigned long RootKey, BSTR KeyName) {
  TKeyPlace Place = KeyArgument(RootKey, KeyName);
  if (!Place.IsBelowRoot()) Refuse(MsgDeletedKeyNeedsName);
  return Place;
}

}  // namespace

void TURegistry::Undo(long Code, const GUID& DataID) {
  if (Code == RegistryCode::KeyDeleted) Store().LoadKey(DataID);
  if (Code >= RegistryCode::ValueDeleted && Code <= RegistryCode::StringSet) Store().LoadValue(DataID);
}

void TURegistry::DeleteKey(TForm Form, unsigned long RootKey, BSTR KeyName) const {
  Perform(Form, "DeleteRegKey", RegistryCode::KeyDeleted, {KeyName, RootKey}, [&] {
    const TKeyPlace Place = DeletableKeyArgument(RootKey, KeyName);
    return TPreparedChange{[=, this]() -> std::optional<GUID> {
                             if (!RetryRegKeyExists(Place)) return std::nullopt;
                             const GUID DataID = Store().SaveKey(Place);
                             RecordKeyRights(Use<IUTransactionLog>(), Place);
                             return DataID;
                           },
                           [=](TRoutine&) { RetrySHDeleteKey(Place); }};
  });
}

TPreparedChange TURegistry::ChangeOf(const TValuePlace& Place,
                                     const std::function<void(const TValuePlace&)>& Act) const {
  return {[=, this] { return RetryRegKeyValueExists(Place) ? std::optional(Store().SaveValue(Place)) : std::nullopt; },
          [=](TRoutine&) { Act(Place); }};
}

TPreparedChange TURegistry::WriteOf(const TValuePlace& Place, DWORD Type, std::string Data) const {
  return ChangeOf(Place, [Type, Data = std::move(Data)](const TValuePlace& To) {
    // Closed by its owner, plainly: the value is written by then, and a failing close would only confuse.
    RetryWriteValue(To, Data.data(), static_cast<DWORD>(Data.size()), Type);
  });
}

void TURegistry::DeleteValue(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName) const {
  Perform(Form, "DeleteRegKeyValue", RegistryCode::ValueDeleted, {KeyName, RootKey, ValueName},
          [&] { return ChangeOf(ValueArgument(RootKey, KeyName, ValueName), RetryRegDeleteValue); });
}

void TURegistry::SetString(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) const {
  Perform(Form, "SetStringValue", RegistryCode::StringSet, {KeyName, RootKey, ValueName, Value},
          [&] { return WriteOf(ValueArgument(RootKey, KeyName, ValueName), REG_SZ, TextArgument(Value) + '\0'); });
}

void TURegistry::SetDword(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) const {
  Perform(Form, "SetDwordValue", RegistryCode::DwordSet, {KeyName, RootKey, ValueName, Value}, [&] {
    std::string Data;
    AppendNumber(Data, uint32_t{Value});
    return WriteOf(ValueArgument(RootKey, KeyName, ValueName), REG_DWORD, Data);
  });
}

void TURegistry::SetBinary(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value,
                           long ValueSize) const {
  Perform(Form, "SetBinaryValue", RegistryCode::BinarySet, {KeyName, RootKey, ValueName, ValueSize}, [&] {
    RequireBuffer(Value, ValueSize);
    return WriteOf(ValueArgument(RootKey, KeyName, ValueName), REG_BINARY,
                   std::string(static_cast<const char*>(Value), static_cast<size_t>(ValueSize)));
  });
}

// ---- The methods

HRESULT TURegistry::DeleteRegKey(unsigned long RootKey, BSTR KeyName) {
  return SafeCall([&] { DeleteKey(TForm::Plain, RootKey, KeyName); });
}
HRESULT TURegistry::DeleteRegKeyLogged(unsigned long RootKey, BSTR KeyName) {
  return SafeCall([&] { DeleteKey(TForm::Logged, RootKey, KeyName); });
}
HRESULT TURegistry::DeleteRegKeyValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  return SafeCall([&] { DeleteValue(TForm::Plain, RootKey, KeyName, ValueName); });
}
HRESULT TURegistry::DeleteRegKeyValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  return SafeCall([&] { DeleteValue(TForm::Logged, RootKey, KeyName, ValueName); });
}
HRESULT TURegistry::SetStringValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) {
  return SafeCall([&] { SetString(TForm::Plain, RootKey, KeyName, ValueName, Value); });
}
HRESULT TURegistry::SetStringValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) {
  return SafeCall([&] { SetString(TForm::Logged, RootKey, KeyName, ValueName, Value); });
}
HRESULT TURegistry::SetDwordValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) {
  return SafeCall([&] { SetDword(TForm::Plain, RootKey, KeyName, ValueName, Value); });
}
HRESULT TURegistry::SetDwordValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) {
  return SafeCall([&] { SetDword(TForm::Logged, RootKey, KeyName, ValueName, Value); });
}
HRESULT TURegistry::SetBinaryValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value, long ValueSize) {
  return SafeCall([&] { SetBinary(TForm::Plain, RootKey, KeyName, ValueName, Value, ValueSize); });
}
HRESULT TURegistry::SetBinaryValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value,
                                         long ValueSize) {
  return SafeCall([&] { SetBinary(TForm::Logged, RootKey, KeyName, ValueName, Value, ValueSize); });
}

COCLASS(URegistry, TURegistry);
