#pragma once

#include "base/registry_place.h"
#include "server/interfaces.h"

#include <string>

/// The backup object as the rest of the module uses it: ANSI texts in and out, failures raised.
class TBackupClient {
 public:
  /// `Backup` outlives this object.
  explicit TBackupClient(IUBackup& Backup) : Backup(Backup) {}

  GUID SaveString(const std::string& Text) const;
  /// Refuses a text that the code page does not hold, as the store never has one.
  std::string LoadString(const GUID& DataID) const;
  /// The same for the name of a file. Refuses a text with a NUL: the system would take it for a shorter one, which
  /// names something else.
  std::string LoadFileName(const GUID& DataID) const;

  GUID SaveFiles(const std::string& Mask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                 VARIANT_BOOL UpperDirName) const;
  GUID SaveFile(const std::string& FileName) const;
  void LoadFiles(const GUID& DataID) const;

  /// A key with all it holds.
  GUID SaveKey(const TKeyPlace& Place) const;
  void LoadKey(const GUID& DataID) const;
  GUID SaveValue(const TValuePlace& Place) const;
  void LoadValue(const GUID& DataID) const;

 private:
  IUBackup& Backup;
};
