#include "rollback/backup_client.h"

#include "base/failure.h"
#include "base/handles.h"
#include "base/text.h"
#include "server/arguments.h"

namespace {

TBstr BstrOf(const std::string& Ansi) { return MakeBstr(ToWide(Ansi)); }

}  // namespace

GUID TBackupClient::SaveString(const std::string& Text) const {
  GUID DataID{};
  CheckCall(Backup.BackupString(BstrOf(Text).Get(), &DataID));
  return DataID;
}

std::string TBackupClient::LoadString(const GUID& DataID) const {
  TBstr Text;
  CheckCall(Backup.RestoreString(DataID, Text.Out()));
  return TextArgument(Text.Get());
}

std::string TBackupClient::LoadFileName(const GUID& DataID) const {
  std::string Name = LoadString(DataID);
  if (Name.find('\0') != std::string::npos) Refuse(MsgNameWithNul, ToWide(Name.c_str()));
  // What stands for bytes that are no characters of this code page.
  constexpr wchar_t Replacement = 0xFFFD;
  if (ToWide(Name).find(Replacement) != std::wstring::npos) Refuse(MsgNotInCodePage, ToWide(Name));
  return Name;
}

GUID TBackupClient::SaveFiles(const std::string& Mask, VARIANT_BOOL RecurseSubDir, VARIANT_BOOL DirNames,
                              VARIANT_BOOL UpperDirName) const {
  GUID DataID{};
  CheckCall(Backup.BackupFiles(BstrOf(Mask).Get(), RecurseSubDir, DirNames, UpperDirName, &DataID));
  return DataID;
}

GUID TBackupClient::SaveFile(const std::string& FileName) const {
  return SaveFiles(FileName, VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE);
}

void TBackupClient::LoadFiles(const GUID& DataID) const { CheckCall(Backup.RestoreFiles(DataID)); }

GUID TBackupClient::SaveKey(const TKeyPlace& Place) const {
  GUID DataID{};
  CheckCall(Backup.BackupRegKey(Place.Root, BstrOf(Place.Name).Get(), VARIANT_TRUE, &DataID));
  return DataID;
}

void TBackupClient::LoadKey(const GUID& DataID) const { CheckCall(Backup.RestoreRegKey(DataID)); }

GUID TBackupClient::SaveValue(const TValuePlace& Place) const {
  GUID DataID{};
  CheckCall(Backup.BackupRegKeyValue(Place.Key.Root, BstrOf(Place.Key.Name).Get(), BstrOf(Place.Name).Get(), &DataID));
  return DataID;
}

void TBackupClient::LoadValue(const GUID& DataID) const { CheckCall(Backup.RestoreRegKeyValue(DataID)); }
