#pragma once

#include "rollback/backup_store.h"
#include "server/automation.h"

#include <vector>

/// The backup object: saves pieces of machine state as items of the backup store and gives them back. A Logged
/// operation also records the item in the transaction log, so that a rollback writes the saved state back.
///
/// An item of another kind, and one whose counts or lengths do not fit its file, is shown to the user ("Internal error
/// #n.") and fails with 0x800403FF; nothing is restored from it.
class TUBackup final : public TAutoObject<IUBackup> {
 public:
  using TAutoObject::TAutoObject;
  void Initialize() override;

  /// Codes: 2 registry value, 3 registry key, 4 files; any other is ignored.
  STDMETHOD(Rollback)(long Code, GUID DataID) override;

  /// Characters that the ANSI code page lacks come back as its replacement character.
  STDMETHOD(BackupString)(BSTR Str, GUID* DataID) override;
  STDMETHOD(RestoreString)(GUID DataID, BSTR* Str) override;
  /// Fails with E_INVALIDARG for a size below 0, or a null buffer with a size.
  STDMETHOD(BackupData)(void* DataBuf, long DataSize, GUID* DataID) override;
  /// The caller frees the buffer with CoTaskMemFree.
  STDMETHOD(RestoreData)(GUID DataID, void** DataBuf, long* DataSize) override;

  /// Saves the files that the mask finds, as one file set; see file_backup.cpp. A mask without a folder part fails.
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

  GUID SaveString(std::wstring_view Str);
  std::wstring LoadString(const GUID& DataID);

  GUID SaveFiles(const std::string& Mask, const TFileSetFlags& Flags);
  void SaveSubfolders(const std::string& Mask, const TFileSetFlags& Flags, TFileSetItem& Set);
  GUID SaveFile(const std::string& Path);
  void LoadFiles(const GUID& DataID, std::vector<GUID>& Ancestors);
  void LoadFile(const GUID& DataID);

  GUID SaveValue(DWORD RootKey, const std::string& KeyName, const std::string& ValueName);
  void LoadValue(const GUID& DataID);
  GUID SaveKey(DWORD RootKey, const std::string& KeyName, VARIANT_BOOL RecurseSubKey);
  /// `Checked` says that the items of the key's parts have been read and found good.
  void LoadKey(const GUID& DataID, bool Checked);

  /// The Logged pattern: the entry is recorded when the item is complete.
  void Record(long Code, const GUID& DataID);

  TComRef<IUDebugLog> DebugLog;
  TComRef<IUDialog> Dialog;
  TComRef<IUTransactionLog> TransactionLog;
};

namespace BackupCode {
constexpr long RegistryValue = 2, RegistryKey = 3, Files = 4;
}
/// A caller's Boolean as -1 or 0, which is how this object's lines write it.
inline VARIANT_BOOL Normal(VARIANT_BOOL Flag) { return Flag ? VARIANT_TRUE : VARIANT_FALSE; }
/// The Name field of the backup object's debug-log lines.
inline constexpr wchar_t BackupLogName[] = L"UBackup";
