#include "rollback/backup_items.h"
#include "rollback/log_record.h"
#include "support/sandbox.h"

#include <algorithm>

namespace {

using TTexts = std::vector<std::string>;

class FileBackup : public TSandbox {
 protected:
  GUID Save(const std::string& Mask, const std::string& Flags = "---") {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupFiles(Text(Mask), Is(Flags, 'R'), Is(Flags, 'D'), Is(Flags, 'U'), &DataID));
    return DataID;
  }
  static VARIANT_BOOL Is(const std::string& Flags, char Flag) {
    return Flags.find(Flag) == std::string::npos ? VARIANT_FALSE : VARIANT_TRUE;
  }
  std::string Item(const GUID& DataID) const { return Read(Service("Backup\\" + GuidText(DataID))); }
  TFileSetItem Set(const GUID& DataID) const {
    // Read by hand: three counted lists behind the tag.
    const std::string Bytes = Item(DataID);
    TFileSetItem Result;
    size_t At = ItemTagSize;
    for (auto* List : {&Result.Files, &Result.Folders, &Result.Subsets}) {
      uint32_t Count = 0;
      std::memcpy(&Count, &Bytes.at(At), sizeof Count);
      List->resize(Count);
      if (Count > 0) std::memcpy(List->data(), &Bytes.at(At + sizeof Count), Count * sizeof(TGuidBytes));
      At += sizeof Count + Count * sizeof(TGuidBytes);
    }
    EXPECT_EQ(Bytes.size(), At);
    EXPECT_EQ(std::string("\4\0\0\0", 4), Bytes.substr(0, ItemTagSize));
    return Result;
  }
  TTexts Names() const {
    TTexts Result;
    for (const auto& [Name, Entry] : TreeOf(App())) Result.push_back(Name);
    return Result;
  }

  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
};

TEST_F(FileBackup, ItemsHaveTheseBytes) {
  Write(App("app.dll"), "content", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  const TTreeEntry Facts = TreeOf(App())["app.dll"];
  const TFileSetItem Saved = Set(Save(App("*.dll"), "U"));
  ASSERT_EQ(1u, Saved.Files.size());
  ASSERT_EQ(1u, Saved.Folders.size());
  EXPECT_EQ(0u, Saved.Subsets.size());
  EXPECT_EQ(std::string("\1\0\0\0", 4) + App(), Item(GuidOf(Saved.Folders[0])));
  TItemWriter Expected;
  // The platform gives the write time as the creation time; the test below looks at the latter by itself.
  Expected(3u), Expected(App("app.dll")), Expected(uint32_t{Facts.Attributes}), Expected(Facts.LastWrite);
  Expected(Facts.LastAccess), Expected(Facts.LastWrite);
  EXPECT_EQ(Expected.Bytes + "content", Item(GuidOf(Saved.Files[0])));

  const std::string Nothing = std::string("\4\0\0\0", 4) + std::string(12, '\0');
  EXPECT_EQ(Nothing, Item(Save(App("*.none"))));
  EXPECT_EQ(Nothing, Item(Save(App("missing\\*.*"), "RD")));
}

TEST_F(FileBackup, WritesTheseLines) {
  Write(App("app.dll"), "content");
  const GUID DataID = Save(App("*.dll"), "RD");
  ASSERT_EQ(S_OK, Backup->RestoreFiles(DataID));
  const std::string Id = GuidText(DataID), FileId = GuidText(Set(DataID).Files.at(0));
  EXPECT_EQ((TTexts{"Begin BackupFiles " + App("*.dll") + " -1 -1 0", "Begin BackupFile " + App("app.dll"),
                    "End BackupFile " + FileId, "End BackupFiles " + Id, "Begin RestoreFiles " + Id,
                    "Begin RestoreFile " + FileId, "End RestoreFile " + FileId, "End RestoreFiles"}),
            Log().Texts("UBackup"));
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
    EXPECT_EQ(Row.Restored, Names());
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

TEST_F(FileBackup, FolderNamesAloneDoNotMakeTheirParents) {
  MakeFolders(App("void"));
  const GUID Lonely = Save(App("*.*"), "RD"), Whole = Save(App("*.*"), "U");
  RemoveTree(App());
  EXPECT_EQ(static_cast<HRESULT>(0x80040203), Backup->RestoreFiles(Lonely));
  ASSERT_EQ(1u, Dialog().Boxes.size());
  EXPECT_EQ(0u, Dialog().Boxes[0].Text.find("Cannot create folder '" + App("void") + "'.\r\n\r\n"));
  EXPECT_EQ(S_OK, Backup->RestoreFiles(Whole));
  EXPECT_EQ(S_OK, Backup->RestoreFiles(Lonely));
  EXPECT_EQ((TTexts{"void\\"}), Names());
}

TEST_F(FileBackup, TheLoggedFormIsUndoneByTheTransactionLog) {
  Write(App("changed.txt"), "old", FILE_ATTRIBUTE_READONLY);
  Write(App("sub\\deleted.txt"), "old");
  const TTree Before = TreeOf(App());
  GUID DataID{}, CheckPoint{};
  ASSERT_EQ(S_OK, Backup->BackupFilesLogged(Text(App("*.txt")), 1, 0, 0, &DataID));
  EXPECT_EQ("Begin BackupFilesLogged " + App("*.txt") + " -1 0 0", Log().Texts("UBackup").front());
  EXPECT_EQ("End BackupFilesLogged " + GuidText(DataID), Log().Texts("UBackup").back());
  constexpr int FilesCode = 4;
  const TLogRecordBytes Entry = EncodeRecord({BytesOf(CLSID_UBackup), FilesCode, BytesOf(DataID)});
  EXPECT_EQ(std::string(Entry.begin(), Entry.end()), Read(Service("update.prt")));
  Write(App("changed.txt"), "new");
  RemoveTree(App("sub"));
  EXPECT_EQ(S_OK, Make<IUTransactionLog>(CLSID_UTransactionLog)->Rollback(VARIANT_FALSE, &CheckPoint));
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
  const TImportPatch Getting(Module(), "GetFileTime", reinterpret_cast<void*>(GiveTimes));
  const TImportPatch Setting(Module(), "SetFileTime", reinterpret_cast<void*>(TakeTimes));
  EXPECT_EQ(S_OK, Backup->RestoreFiles(Save(App("app.dll"))));
  EXPECT_EQ(0x11111111u, HandedCreation.dwLowDateTime);
  EXPECT_EQ(0x01C00001u, HandedCreation.dwHighDateTime);
  const TTreeEntry Facts = TreeOf(App())["app.dll"];
  EXPECT_EQ(0x01C0000222222222u, Facts.LastAccess);
  EXPECT_EQ(0x01C0000333333333u, Facts.LastWrite);
}

TFileHandle Holder;

TEST_F(FileBackup, AFileThatSomebodyHoldsIsAskedFor) {
  Write(App("app.dll"), "content");
  const TNoPauses NoPauses;
  Holder.Reset(CreateFileA(App("app.dll").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(Holder);
  GUID DataID = NumberedGuid(7);
  EXPECT_EQ(static_cast<HRESULT>(0x80040220), Backup->BackupFiles(Text(App("*.*")), 0, 0, 0, &DataID));
  EXPECT_EQ(GuidText(NumberedGuid(7)), GuidText(DataID));
  const std::string Reason = SystemText(ERROR_SHARING_VIOLATION);
  EXPECT_EQ(Reason, ErrorText());
  const TScriptedDialog::TBox Box{
      "Cannot open '" + App("app.dll") + "'.\r\n\r\nError: '" + Reason + "' (Error code: 20).", "Error", 21};
  EXPECT_EQ((std::vector{Box}), Dialog().Boxes);
  EXPECT_EQ("Exception 32 " + Reason, Log().Texts("Common").back());

  Dialog().Answer({IDRETRY});
  Dialog().OnBox = [] { Holder.Reset(); };
  EXPECT_EQ(1u, Set(Save(App("*.*"))).Files.size());
  EXPECT_EQ((std::vector{Box, Box}), Dialog().Boxes);
}

TEST_F(FileBackup, ADriveRootKeepsItsBackslash) {
  const std::string Name = "C:\\mendwork-root-" + std::to_string(GetCurrentProcessId());
  Write(Name, "content");
  const TFileSetItem Saved = Set(Save(Name + "*", "U"));
  ASSERT_EQ(1u, Saved.Files.size());
  ASSERT_EQ(1u, Saved.Folders.size());
  TItemWriter Path;
  Path(3u), Path(Name);
  EXPECT_EQ(Path.Bytes, Item(GuidOf(Saved.Files[0])).substr(0, Path.Bytes.size()));
  EXPECT_EQ(std::string("\1\0\0\0C:\\", 7), Item(GuidOf(Saved.Folders[0])));
  EXPECT_TRUE(DeleteFileA(Name.c_str()));
  GUID DataID{};
  EXPECT_EQ(E_INVALIDARG, Backup->BackupFiles(Text("*.txt"), 0, 0, 0, &DataID)) << "which folder would that be?";
}

}  // namespace
