#pragma once

#include "server/logged_object.h"

#include <string>

/// Lists of things to be removed later: files, folders, registry keys and registry values, one list file each in the
/// "Garbage" folder, shared by all processes and outliving them. Nothing here can be rolled back.
///
/// What the lists cannot hold is refused with E_INVALIDARG: an empty name, one with a line break, a file or folder that
/// is not named in full (another process removes it, from another current folder), a root that is none,
/// and for a value a key path with a blank, which ends the path there.
///
/// Removal reaches nothing outside what is listed. Passed over are: an empty line in the lists of files and folders (in
/// those of the registry it ends the list, like any line that does not begin with a number), a file or folder without a
/// root, a line with a NUL, which the system would take for a shorter one, a key without a path, which would be the
/// whole root, and a root that is none. A folder that is a link to another place stays as it is, with what lies behind
/// it. A drive root is a folder like any other: what it holds is removed, the drive stays. A last line without an end
/// is no line: it was cut off while it was written, and may name a folder above the one that was meant; the debug log
/// has it before the list goes.
class TUGarbage final : public TLoggedObject<IUGarbage> {
 public:
  using TLoggedObject::TLoggedObject;
  void Initialize() override;

  STDMETHOD(PutFile)(BSTR FileName) override;
  STDMETHOD(PutDirectory)(BSTR DirName) override;
  STDMETHOD(PutRegKey)(unsigned long RootKey, BSTR KeyName) override;
  STDMETHOD(PutRegKeyValue)(unsigned long RootKey, BSTR KeyName, BSTR ValueName) override;
  /// Removes what the lists name, and the lists. Shows nothing. An entry that cannot be removed is dropped; a list that
  /// cannot be read or understood stays whole for the next call.
  STDMETHOD(Garbage)() override;

 private:
  void WriteToGrbFile(const char* ListName, const std::string& Line) const;
};
