#pragma once

#include "server/automation.h"

#include <functional>
#include <string>

/// Deletes registry keys and values, and writes string, DWORD and binary values, plainly or logged. A logged form saves
/// and records only what exists: a value or key that it creates is not removed by a rollback.
///
/// Names that the registry or the ANSI code page does not take, a root that is none, and sizes below 0 fail with
/// E_INVALIDARG and change nothing; so does deleting a key without a name, which would empty the root itself.
class TURegistry final : public TAutoObject<IURegistry> {
 public:
  using TAutoObject::TAutoObject;
  void Initialize() override;

  /// Codes: 0 a key, 1 to 4 a value; any other is ignored.
  STDMETHOD(Rollback)(long Code, GUID DataID) override;

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
  /// The place of a value, as the caller gave it.
  struct TValuePlace {
    unsigned long RootKey;
    BSTR KeyName, ValueName;
  };
  void WriteValue(const TValuePlace& Place, DWORD Type, const void* Data, size_t Size);
  /// The frame of a logged operation on a value: save and record the value when it exists, then run `Plain`.
  void SaveValueThen(const TValuePlace& Place, long Code, const std::function<HRESULT()>& Plain);

  TComRef<IUDebugLog> DebugLog;
  TComRef<IUBackup> Backup;
  TComRef<IUTransactionLog> TransactionLog;
};
