#pragma once

#include "retry/file_wrappers.h"
#include "retry/folder_walk.h"
#include "rollback/logged_change.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

/// Deletes files by mask and copies single files under a copy mode, plainly or logged. The logged forms save what the
/// change destroys and record it in the transaction log before anything is changed.
///
/// What goes wrong ends the operation at once; what it did before stays done, and a logged form can be rolled back.
/// These fail and change nothing, with E_INVALIDARG unless another code is told: a mask without a folder part, or one
/// that reaches the system's own folders; a wildcard in the name of a copy; a file copied onto itself (another name of
/// the same file is none); in the logged forms a name that is not a full one, a file that is a link (0x80040981), and
/// what the code page has no name for (0x80040659). A plain deletion takes links to files like files, deletes what it
/// can name, and then fails with 0x80040659 when something was left. Folders that are links are never entered or
/// removed.
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
  /// One deletion on its walk.
  struct TDeletion {
    TDeleteFlags Flags;
    /// What a logged deletion keeps to: what was not found when it was saved stays. Nothing in a plain one.
    std::optional<std::set<std::string>> Saved = std::nullopt;
    std::vector<std::wstring> Left = {};  ///< what could not be named

    bool MayDelete(const std::string& Name) const { return !Saved || Saved->contains(Name); }
    void Leave(const std::string& Folder, const std::vector<TUnnamed>& Unnamed, bool Folders);
  };
  void DeleteMatching(const std::string& Mask, TDeletion& Deletion) const;
  void DeleteSomeFiles(const std::string& Mask, TDeletion& Deletion, bool Subfolder) const;
  void DeleteInSubfolders(const std::string& Mask, TDeletion& Deletion) const;
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
