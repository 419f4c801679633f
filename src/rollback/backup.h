#pragma once

#include "base/guid_text.h"
#include "base/registry_place.h"
#include "formats/backup_items.h"
#include "formats/entry_codes.h"
#include "retry/registry_wrappers.h"
#include "rollback/logged_change.h"
#include "server/logged_object.h"

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The backup object: saves pieces of machine state as items of the backup store and gives them back. A Logged
/// operation also records the item in the transaction log, so that a rollback writes the saved state back.
///
/// An item of another kind, and one whose counts or lengths do not fit its file, is shown to the user ("Internal error
/// #n.") and fails with 0x800403FF; nothing is restored from it.
class TUBackup final : public TLoggedObject<IUBackup, IUDialog, IUTransactionLog> {
 public:
  using TLoggedObject::TLoggedObject;
  void Initialize() override;

  /// Codes: 2 registry value, 3 registry key, 4 files, 16 access rights of a key; any other is ignored.
  STDMETHOD(Rollback)(long Code, GUID DataID) override;

  /// Characters that the ANSI code page lacks come back as its replacement character.
  STDMETHOD(BackupString)(BSTR Str, GUID* DataID) override;
  STDMETHOD(RestoreString)(GUID DataID, BSTR* Str) override;
  /// Fails with E_INVALIDARG for a size below 0, or a null buffer with a size.
  STDMETHOD(BackupData)(void* DataBuf, long DataSize, GUID* DataID) override;
  /// The caller frees the buffer with CoTaskMemFree.
  STDMETHOD(RestoreData)(GUID DataID, void** DataBuf, long* DataSize) override;

  /// Saves the files that the mask finds, as one file set; see file_backup.cpp. Fails with E_INVALIDARG for a mask that
  /// is no full name, or reaches the system's own folders; with 0x80040659 when it finds what the code page has no name
  /// for, with 0x80040981 when it finds a link to a file. Links to folders are neither entered nor
  /// saved, but for a folder that the mask itself names.
  STDMETHOD(BackupFiles)
  (BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames, VARIANT_BOOL UpperDirName,
   GUID* DataID) override;
  /// Brings folders, then files, then subfolders back; leaves alone what was created since.
  STDMETHOD(RestoreFiles)(GUID DataID) override;
  STDMETHOD(BackupFilesLogged)
  (BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames, VARIANT_BOOL UpperDirName,
   GUID* DataID) override;

  /// Saves one value of a key; an empty name is the default value. Fails through the retry layer when there is none.
  /// Names and texts that the ANSI code page does not hold cannot be saved; that fails with 0x80040659.
  STDMETHOD(BackupRegKeyValue)(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) override;
  /// Writes the value back over whatever is there, creating the key when it is missing.
  STDMETHOD(RestoreRegKeyValue)(GUID DataID) override;
  /// Saves the values of a key and, when asked, its subkeys with theirs.
  STDMETHOD(BackupRegKey)(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) override;
  /// Merges the saved values and subkeys into what is there; deletes nothing. Nothing is written when the item of any
  /// part is damaged.
  STDMETHOD(RestoreRegKey)(GUID DataID) override;
  STDMETHOD(BackupRegKeyValueLogged)(unsigned long RootKey, BSTR KeyName, BSTR ValueName, GUID* DataID) override;
  STDMETHOD(BackupRegKeyLogged)(unsigned long RootKey, BSTR KeyName, VARIANT_BOOL RecurseSubKey, GUID* DataID) override;

 private:
  struct TFileSetFlags {
    VARIANT_BOOL RecurseSubDir, DirNames, UpperDirName;
  };

  // The same on converted arguments, with the methods' lines: save makes an item, load brings its state back.
  GUID SaveString(std::wstring_view Str) const;
  std::string LoadString(const GUID& DataID) const;

  GUID SaveMask(BSTR FileNameMask, const TFileSetFlags& Flags) const;
  /// `Subfolder` says that the walk led to the mask's folder, and no caller.
  GUID SaveFiles(const std::string& Mask, const TFileSetFlags& Flags, bool Subfolder = false) const;
  void SaveSubfolders(const std::string& Mask, const TFileSetFlags& Flags, TFileSetItem& Set) const;
  GUID SaveFile(const std::string& Path) const;
  /// `Ancestors` are the sets that are being loaded around this one: a damaged set that contains itself would never
  /// end.
  void LoadFiles(const GUID& DataID, std::vector<GUID> Ancestors = {}) const;
  /// `Depth` says how many of the file's folders the saving walk found by itself: none of them was a link.
  void LoadFile(const GUID& DataID, size_t Depth) const;

  // What a caller named is saved in the spelling, and in the hive of HKEY_CLASSES_ROOT, that the registry has it in,
  // and begun again when it changes meanwhile.
  GUID SaveNamedValue(const TValuePlace& Place) const;
  GUID SaveNamedKey(const TKeyPlace& Place, VARIANT_BOOL RecurseSubKey) const;
  /// `Stored` is where the value comes back to; `Found` says that the registry itself gave its name.
  GUID SaveValue(const TValuePlace& Place, const TKeyPlace& Stored, bool Found) const;
  void LoadValue(const GUID& DataID) const;
  /// The keys of a walk, as they were when it came to them.
  using TSeenKeys = std::vector<std::pair<TKeyPlace, TKeyInfo>>;
  GUID SaveKey(const TKeyPlace& Place, const TKeyPlace& Stored, VARIANT_BOOL RecurseSubKey, TSeenKeys& Seen) const;
  /// `Checked` says that the items of the key's parts have been read and found good.
  void LoadKey(const GUID& DataID, bool Checked = false) const;
  /// Reads every part of a key before anything of it is written, so that damage leaves the registry as it is. A tree
  /// holds each key once; one that is met again contains itself, and would never end.
  void CheckKey(const GUID& DataID, std::set<TGuidBytes>& Seen) const;

  /// Saves, records, and gives the item: nothing is changed by this object itself.
  template <class TSave>
  GUID SaveLogged(long Code, TSave Save) const {
    return MakeLoggedChange(Use<IUTransactionLog>(), CLSID_UBackup, Code, Save, [] {});
  }
};
