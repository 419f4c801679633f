#pragma once

#include "rollback/logged_change.h"

/// Registers and unregisters COM servers and type libraries, plainly or logged. No registry state is saved: the undoing
/// of a registration is the matching unregistration by the file itself. Every module and library is let go before a
/// call returns, whatever it did; a structured exception that leaves a module's function is a failure like any other
/// (see RunGuarded for the one that cannot be caught). A file name must have an exact form in the ANSI code page, but
/// for RegTLB: any other is refused with E_INVALIDARG before anything is recorded.
class TUCom final : public TChangeObject<IUCom> {
 public:
  using TChangeObject::TChangeObject;

  /// Fails with 0x800401FE when DllRegisterServer gives anything but S_OK, S_FALSE included.
  STDMETHOD(RegServer)(BSTR FileName) override;
  /// Never fails because of the module: it may be missing, refuse to load, or fail.
  STDMETHOD(UnRegServer)(BSTR FileName) override;
  STDMETHOD(RegTLB)(BSTR FileName) override;
  /// Unregisters what the file itself says that it is. Fails only without the system's function for it.
  STDMETHOD(UnRegTLB)(BSTR FileName) override;
  STDMETHOD(RegServerLogged)(BSTR FileName) override;
  STDMETHOD(RegTLBLogged)(BSTR FileName) override;
  STDMETHOD(UnRegServerLogged)(BSTR FileName) override;
  STDMETHOD(UnRegTLBLogged)(BSTR FileName) override;
  /// These four take a file whose extension is exactly ".TLB", in upper case, as a type library, any other as a server.
  STDMETHOD(Reg)(BSTR FileName) override;
  STDMETHOD(UnReg)(BSTR FileName) override;
  STDMETHOD(RegLogged)(BSTR FileName) override;
  STDMETHOD(UnRegLogged)(BSTR FileName) override;

 private:
  void Undo(long Code, const GUID& DataID) override;
  /// One of the operations, by its code in the transaction log.
  void PerformOn(BSTR FileName, TForm Form, long Code) const;
  HRESULT ChangeFile(TForm Form, long Code, BSTR FileName);
  HRESULT ChangeByExtension(const char* Name, TForm Form, long ForLibrary, long ForServer, BSTR FileName);
};
