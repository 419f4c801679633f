#pragma once

#include "retry/file_wrappers.h"
#include "rollback/logged_change.h"

#include <string>

/// Deletes files by mask and copies single files under a copy mode, plainly or logged. The logged forms save what the
/// change destroys and record it in the transaction log before anything is changed.
///
/// What goes wrong ends the operation at once; what it did before stays done, and a logged form can be rolled back. A
/// mask without a folder part, and a file copied onto itself, fail with E_INVALIDARG and change nothing.
class TUFile final : public TChangeObject<IUFile, IUDialog> {
 public:
  using TChangeObject::TChangeObject;

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
  /// Codes: 1 copied over a file, 2 files deleted, 3 copied to a new name.
  void Undo(long Code, const GUID& DataID) override;

  struct TDeleteFlags {
    VARIANT_BOOL RecurseSubDir, DeleteEmptyDir, DeleteUpperDir;
  };
  void DeleteMatching(const std::string& Mask, const TDeleteFlags& Flags) const;
  void DeleteSomeFiles(const std::string& Mask, const TDeleteFlags& Flags) const;
  void DeleteInSubfolders(const std::string& Mask, const TDeleteFlags& Flags) const;
  void DeleteEmptyDirectory(const std::string& Folder) const;

  struct TSource {
    DWORD Attributes;
    TOpenFile File;
    TFileTimes Times;
  };
  // The copies give the DataID of what was saved, all zero when nothing was.
  void CopySomeFile(const std::string& Source, const std::string& Dest, long CopyMode, TForm Form) const;
  GUID CopyOver(const std::string& Source, const std::string& Dest, long CopyMode, TForm Form) const;
  GUID CopyToNew(const std::string& Source, const std::string& Dest, TForm Form) const;
  bool DecideOverwrite(const std::string& Source, const std::string& Dest, long CopyMode) const;
  bool Ask(const std::string& Question) const;
  static TSource OpenSource(const std::string& Name);
  static void CopyContent(TSource& Source, const std::string& Dest);
};
