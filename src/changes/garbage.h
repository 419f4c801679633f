#pragma once

#include "server/automation.h"

#include <string>

/// Lists of things to be removed later: files, folders, registry keys and registry values, one list file each in the
/// "Garbage" folder, shared by all processes and outliving them. Nothing here can be rolled back.
///
/// What the lists cannot hold is refused with E_INVALIDARG: an empty name, one with a line break, a root that is none,
/// and for a value a key path with a blank, which ends the path there.
/// Removal reaches nothing outside what is listed: a folder that is a link is removed as a link, its target stays; a
/// line without a key path, or with a root that is none, is passed over. A drive root is a folder like any other: what
/// it holds is removed.
class TUGarbage final : public TAutoObject<IUGarbage> {
 public:
  using TAutoObject::TAutoObject;
  void Initialize() override;

  STDMETHOD(PutFile)(BSTR FileName) override;
  STDMETHOD(PutDirectory)(BSTR DirName) override;
  STDMETHOD(PutRegKey)(unsigned long RootKey, BSTR KeyName) override;
  STDMETHOD(PutRegKeyValue)(unsigned long RootKey, BSTR KeyName, BSTR ValueName) override;
  /// Removes what the lists name, and the lists. Shows nothing. An entry that cannot be removed is dropped; a list that
  /// cannot be read or understood stays whole for the next call.
  STDMETHOD(Garbage)() override;

 private:
  void WriteToGrbFile(const char* ListName, const std::string& Line);

  TComRef<IUDebugLog> DebugLog;
};
