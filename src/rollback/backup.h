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

  STDMETHOD(BackupRegKeyValue)(unsigned long, BSTR, BSTR, GUID*) override { return NotYet(); }
  STDMETHOD(RestoreRegKeyValue)(GUID) override { return NotYet(); }
  STDMETHOD(BackupRegKey)(unsigned long, BSTR, VARIANT_BOOL, GUID*) override { return NotYet(); }
  STDMETHOD(RestoreRegKey)(GUID) override { return NotYet(); }
  STDMETHOD(BackupRegKeyValueLogged)(unsigned long, BSTR, BSTR, GUID*) override { return NotYet(); }
  STDMETHOD(BackupRegKeyLogged)(unsigned long, BSTR, VARIANT_BOOL, GUID*) override { return NotYet(); }

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

  /// The Logged pattern: the entry is recorded when the item is complete.
  void Record(long Code, const GUID& DataID);

  TComRef<IUDebugLog> DebugLog;
  TComRef<IUDialog> Dialog;
  TComRef<IUTransactionLog> TransactionLog;
};

namespace BackupCode {
constexpr long RegistryValue = 2, RegistryKey = 3, Files = 4;
}
/// The Name field of the backup object's debug-log lines.
inline constexpr wchar_t BackupLogName[] = L"UBackup";
