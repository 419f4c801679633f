#pragma once

#include "base/handles.h"
#include "server/coclass_table.h"
#include "server/com_server.h"
#include "server/connection_point.h"
#include "server/dispatch.h"

#include <memory>
#include <string>

/// The class object of one automation class: creates its objects and keeps its registration, under a ProgID with a
/// version number that yields the version-independent ProgID to newer copies of the module.
class TVersionedAutoObjectFactory final : public IClassFactory {
 public:
  /// Fetches the class's type information from the server's type library. Raises the COM failure.
  TVersionedAutoObjectFactory(TComServer& Server, const TCoClass& Row, int Version);

  const TCoClass& Class() const { return Row; }
  TComServer& Server() const { return Owner; }
  ITypeInfo& InterfaceInfo() const { return *Interface; }
  const TDispatchTable& Dispatch() const { return *Table; }
  /// The version-independent ProgID, as the source of error information.
  const wchar_t* WideProgId() const { return WideId.c_str(); }

  /// Server name, dot, coclass name: Mendwork.UFile.
  std::string GetVersionIndependentProgID() const;
  /// The same with the version number: Mendwork.UFile.6. Empty when the version-independent one is.
  std::string GetProgID() const;

  /// Writes or removes the class's entries under HKEY_CLASSES_ROOT. On register, the version-independent entries are
  /// written only when their CurVer names an older version or nothing; on unregister they go only when their CurVer
  /// names this version. Raises the first failure; what is missing on removal is none.
  void UpdateRegistry(bool Register);

  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    return AnswerQuery<IClassFactory>(this, Iid, Result);
  }
  // Lives as long as the server object; who holds it keeps the module in memory.
  STDMETHOD_(ULONG, AddRef)() override {
    Owner.CountFactory(+1);
    return 2;
  }
  STDMETHOD_(ULONG, Release)() override {
    Owner.CountFactory(-1);
    return 1;
  }
  STDMETHOD(CreateInstance)(IUnknown* Outer, REFIID Iid, void** Result) override;
  STDMETHOD(LockServer)(BOOL Lock) override;

 private:
  void RegisterClass() const;
  void UnregisterClass() const;
  void RegisterVersionIndependent() const;
  int RegisteredVersion() const;
  std::string ClassKey() const;

  TComServer& Owner;
  const TCoClass& Row;
  const int Version;
  std::string Description;  ///< the coclass's help string
  std::wstring WideId;
  TComRef<ITypeInfo> Interface;
  std::unique_ptr<TDispatchTable> Table;
};
