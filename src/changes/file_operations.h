#pragma once

#include "retry/file_wrappers.h"
#include "server/automation.h"

/// Deletes files by mask and copies single files under a copy mode, plainly or logged. The logged forms save what the
/// change destroys and record it in the transaction log before anything is changed.
///
/// What goes wrong ends the operation at once; what it did before stays done, and a logged form can be rolled back. A
/// mask without a folder part, and a file copied onto itself, fail with E_INVALIDARG and change nothing.
class TUFile final : public TAutoObject<IUFile> {
 public:
  using TAutoObject::TAutoObject;
  void Initialize() override;

  /// Codes: 1 copied over a file, 2 files deleted, 3 copied to a new name; any other is ignored.
  STDMETHOD(Rollback)(long Code, GUID DataID) override;
  /// DeleteEmptyDir takes the subfolders that the recursion empties, DeleteUpperDir the mask's own folder when it is
  /// empty by then. Empty folders are looked at only in the recursion.
  STDMETHOD(DeleteFiles)
  (BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir, VARIANT_BOOL DeleteUpperDir) override;
  /// Carries content, attributes and the three times over. CopyMode says what happens to an existing destination; see
  /// the table in copy_mode.h. The logged form creates missing folders, the plain one does not.
  STDMETHOD(CopyFile)(BSTR SourceFileName, BSTR DestFileName, long CopyMode) override;
  STDMETHOD(DeleteFilesLogged)
  (BSTR FileNameMask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DeleteEmptyDir, VARIANT_BOOL DeleteUpperDir) override;
  STDMETHOD(CopyFileLogged)(BSTR SourceFileName, BSTR DestFileName, long CopyMode) override;

 private:
  struct TDeleteFlags {
    VARIANT_BOOL RecurseSubDir, DeleteEmptyDir, DeleteUpperDir;
  };
  void DeleteMatching(BSTR FileNameMask, const TDeleteFlags& Flags);
  void DeleteSomeFiles(const std::string& Mask, const TDeleteFlags& Flags);
  void DeleteInSubfolders(const std::string& Mask, const TDeleteFlags& Flags);
  void DeleteEmptyDirectory(const std::string& Folder);

  struct TSource {
    DWORD Attributes;
    TFileHandle Handle;
    TFileTimes Times;
  };
  void CopySomeFile(const std::string& Source, const std::string& Dest, long CopyMode, bool Logged);
  bool DecideOverwrite(const std::string& Source, const std::string& Dest, long CopyMode);
  bool Ask(const std::string& Question);
  GUID ClearExisting(const std::string& Dest, bool Logged);
  GUID PrepareNew(const std::string& Dest, bool Logged);
  TSource OpenSource(const std::string& Name);
  void CopyContent(const std::string& SourceName, TSource& Source, const std::string& Dest);
  void Record(long Code, const GUID& DataID);

  TComRef<IUDebugLog> DebugLog;
  TComRef<IUDialog> Dialog;
  TComRef<IUBackup> Backup;
  TComRef<IUTransactionLog> TransactionLog;
};
