#include "rollback/backup_sandbox.h"
#include "rollback/records.h"

#include <algorithm>

namespace {

using TTexts = std::vector<std::string>;

class FileBackup : public TBackupSandbox {
 protected:
  GUID Save(const std::string& Mask, const std::string& Flags = "---") {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupFiles(Text(Mask), Is(Flags, 'R'), Is(Flags, 'D'), Is(Flags, 'U'), &DataID));
    return DataID;
  }
  static VARIANT_BOOL Is(const std::string& Flags, char Flag) {
    return Flags.find(Flag) == std::string::npos ? VARIANT_FALSE : VARIANT_TRUE;
  }
  /// The items of a set of one file and one folder, which is read by hand: three counted lists behind the tag.
  std::pair<std::string, std::string> PartsOf(const GUID& DataID) const {
    const std::string Bytes = Item(DataID);
    const std::string Counts = Bytes.substr(0, 8) + Bytes.substr(24, 4) + Bytes.substr(44);
    EXPECT_EQ(std::string("\4\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0", 16), Counts);
    TGuidBytes File, Folder;
    std::memcpy(File.data(), &Bytes.at(8), File.size());
    std::memcpy(Folder.data(), &Bytes.at(28), Folder.size());
    return {Item(GuidOf(File)), Item(GuidOf(Folder))};
  }
};

TEST_F(FileBackup, ItemsHaveTheseBytes) {
  Write(App("app.dll"), "content", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  const TTreeEntry Facts = TreeOf(App())["app.dll"];
  // The platform gives the write time as the creation time; the test below looks at the latter by itself.
  const TSingleFileItem Expected{App("app.dll"), Facts.Attributes, Facts.LastWrite, Facts.LastAccess, Facts.LastWrite};
  const auto [File, Folder] = PartsOf(Save(App("*.dll"), "U"));
  EXPECT_EQ(EncodeItem(Expected) + "content", File);
  EXPECT_EQ(std::string("\1\0\0\0", 4) + App(), Folder);
  for (const char* Mask : {"*.none", "missing\\*.*"})
    EXPECT_EQ(EncodeItem(TFileSetItem{}), Item(Save(App(Mask), "RD"))) << Mask;
}

TEST_F(FileBackup, ADriveRootKeepsItsBackslash) {
  const std::string Name = "C:\\mendwork-root-" + std::to_string(GetCurrentProcessId());
  Write(Name, "content");
  const auto [File, Folder] = PartsOf(Save(Name + "*", "U"));
  TItemWriter Path;
  Path(3u), Path(Name);
  EXPECT_EQ(Path.Bytes, File.substr(0, Path.Bytes.size()));
  EXPECT_EQ(std::string("\1\0\0\0C:\\", 7), Folder);
  EXPECT_TRUE(DeleteFileA(Name.c_str()));
  GUID DataID{};
  EXPECT_EQ(E_INVALIDARG, Backup->BackupFiles(Text("*.txt"), 0, 0, 0, &DataID)) << "which folder would that be?";
}

struct TFlagsRow {
  const char *Name, *Flags;
  bool FolderGone;  ///< whether the mask's folder is removed before the restore, or only emptied
  TTexts Restored;
};

class FileBackupFlags : public FileBackup, public testing::WithParamInterface<TFlagsRow> {};

TEST_P(FileBackupFlags, SayWhatComesBack) {
  const TFlagsRow& Row = GetParam();
  Write(App("a.txt"), "a", FILE_ATTRIBUTE_READONLY);
  Write(App("b.bin"), "not saved");
  Write(App("sub\\c.txt"), "", FILE_ATTRIBUTE_HIDDEN);
  Write(App("sub\\deep.er\\d.txt"), std::string(70000, 'd'), FILE_ATTRIBUTE_SYSTEM);
  MakeFolders(App("void"));
  TTree Expected = TreeOf(App());
  std::erase_if(Expected,
                [&](const auto& Entry) { return std::ranges::find(Row.Restored, Entry.first) == Row.Restored.end(); });
  const GUID DataID = Save(App("*.txt"), Row.Flags);
  for (int Time = 0; Time < 2; ++Time) {
    RemoveTree(App());
    if (!Row.FolderGone) MakeFolders(App());
    EXPECT_EQ(S_OK, Backup->RestoreFiles(DataID)) << ErrorText();
    EXPECT_EQ("", Difference(Expected, TreeOf(App())));
  }
  Write(App("a.txt"), "changed since");
  Write(App("later.txt"), "made since");
  EXPECT_EQ(S_OK, Backup->RestoreFiles(DataID));
  EXPECT_EQ("new: later.txt\n", Difference(Expected, TreeOf(App())));
}

const TTexts Deep = {"a.txt", "sub\\", "sub\\c.txt", "sub\\deep.er\\", "sub\\deep.er\\d.txt"};
const TTexts DeepAndEmpty = {"a.txt", "sub\\", "sub\\c.txt", "sub\\deep.er\\", "sub\\deep.er\\d.txt", "void\\"};

INSTANTIATE_TEST_SUITE_P(Rows, FileBackupFlags,
                         testing::Values(TFlagsRow{"none", "", true, {"a.txt"}},
                                         TFlagsRow{"names_and_upper_alone", "DU", true, {"a.txt"}},
                                         TFlagsRow{"recurse", "R", true, Deep},
                                         TFlagsRow{"recurse_and_upper", "RU", true, Deep},
                                         TFlagsRow{"recurse_and_names", "RD", false, DeepAndEmpty},
                                         TFlagsRow{"all", "RDU", true, DeepAndEmpty}),
                         [](const auto& Info) { return std::string(Info.param.Name); });

TEST_F(FileBackup, TheLoggedFormIsUndoneByTheTransactionLog) {
  Write(App("changed.txt"), "old", FILE_ATTRIBUTE_READONLY);
  Write(App("sub\\deleted.txt"), "old");
  const TTree Before = TreeOf(App());
  GUID DataID{};
  ASSERT_EQ(S_OK, Backup->BackupFilesLogged(Text(App("*.txt")), 1, 0, 0, &DataID));
  constexpr int FilesCode = 4;
  EXPECT_EQ(RecordOf(CLSID_UBackup, FilesCode, DataID), Read(Service("update.prt")));
  Write(App("changed.txt"), "new");
  RemoveTree(App("sub"));
  EXPECT_EQ(S_OK, RollBack());
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
}

FILETIME HandedCreation;
BOOL WINAPI GiveTimes(HANDLE, FILETIME* Creation, FILETIME* Access, FILETIME* LastWrite) {
  *Creation = {0x11111111, 0x01C00001};
  *Access = {0x22222222, 0x01C00002};
  *LastWrite = {0x33333333, 0x01C00003};
  return TRUE;
}
BOOL WINAPI TakeTimes(HANDLE File, const FILETIME* Creation, const FILETIME* Access, const FILETIME* LastWrite) {
  HandedCreation = *Creation;
  return SetFileTime(File, Creation, Access, LastWrite);
}

TEST_F(FileBackup, AllThreeTimesAreGivenBack) {
  Write(App("app.dll"), "");
  const TImportPatch Getting("GetFileTime", GiveTimes);
  const TImportPatch Setting("SetFileTime", TakeTimes);
  EXPECT_EQ(S_OK, Backup->RestoreFiles(Save(App("app.dll"))));
  EXPECT_EQ(0x11111111u, HandedCreation.dwLowDateTime);
  EXPECT_EQ(0x01C00001u, HandedCreation.dwHighDateTime);
  const TTreeEntry Facts = TreeOf(App())["app.dll"];
  EXPECT_EQ(0x01C0000222222222u, Facts.LastAccess);
  EXPECT_EQ(0x01C0000333333333u, Facts.LastWrite);
}

}  // namespace
