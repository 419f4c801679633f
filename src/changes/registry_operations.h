#pragma once

#include "base/registry_place.h"
#include "rollback/logged_change.h"

#include <functional>
#include <string>

/// Deletes registry keys and values, and writes string, DWORD and binary values, plainly or logged. A logged form saves
/// and records only what exists: a value or key that it creates is not removed by a rollback.
///
/// Names that the registry or the ANSI code page does not take, a root that is none, and sizes below 0 fail with
/// E_INVALIDARG and change nothing; so does deleting a key without a name, which would empty the root itself.
class TURegistry final : public TChangeObject<IURegistry> {
 public:
  using TChangeObject::TChangeObject;

  STDMETHOD(DeleteRegKey)(unsigned long RootKey, BSTR KeyName) override;
  STDMETHOD(DeleteRegKeyValue)(unsigned long RootKey, BSTR KeyName, BSTR ValueName) override;
  /// REG_SZ, in the ANSI code page and with its terminator. The writes create every missing part of the key's path.
  STDMETHOD(SetStringValue)(unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) override;
  STDMETHOD(SetDwordValue)(unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) override;
  STDMETHOD(SetBinaryValue)
  (unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value, long ValueSize) override;

  STDMETHOD(DeleteRegKeyLogged)(unsigned long RootKey, BSTR KeyName) override;
  STDMETHOD(DeleteRegKeyValueLogged)(unsigned long RootKey, BSTR KeyName, BSTR ValueName) override;
  STDMETHOD(SetStringValueLogged)(unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) override;
  STDMETHOD(SetDwordValueLogged)(unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) override;
  STDMETHOD(SetBinaryValueLogged)
  (unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value, long ValueSize) override;

 private:
  /// Codes: 0 a key, 1 to 4 a value.
  void Undo(long Code, const GUID& DataID) override;

  // Both forms of each operation, on the arguments as the caller gave them.
  void DeleteKey(TForm Form, unsigned long RootKey, BSTR KeyName) const;
  void DeleteValue(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName) const;
  void SetString(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName, BSTR Value) const;
  void SetDword(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName, unsigned long Value) const;
  void SetBinary(TForm Form, unsigned long RootKey, BSTR KeyName, BSTR ValueName, void* Value, long ValueSize) const;

  /// A prepared change of one value, which is saved when it exists.
  TPreparedChange ChangeOf(const TValuePlace& Place, const std::function<void(const TValuePlace&)>& Act) const;
  TPreparedChange WriteOf(const TValuePlace& Place, DWORD Type, std::string Data) const;
};
