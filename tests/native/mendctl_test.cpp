#include "base/numbers.h"
#include "formats/backup_items.h"
#include "mendctl/commands.h"
#include "mendctl/console.h"
#include "support/raw_uninstall_log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr uint64_t SavedTime = 132000000000000000;  // 2019-04-17
constexpr uint32_t CurrentUser = 0x80000001;

std::string ContentOf(const fs::path& Path) {
  std::ifstream File(Path, std::ios::binary);
  return {std::istreambuf_iterator<char>(File), {}};
}

void Write(const fs::path& Path, const std::string& Content) {
  fs::create_directories(Path.parent_path());
  std::ofstream(Path, std::ios::binary) << Content;
}

/// A customer's folder: an update of two check points that was interrupted, with everything that an entry can be.
class Console : public testing::Test {
 protected:
  Console() {
    fs::remove_all(Root);
    Write(App / "App" / "app.ini", "[app]\nversion=2\nname=x\n");
    Write(App / "App" / "New.dll", "brought");
    fs::create_directories(App / "App" / "Kept");
    CheckPoint("{11111111-0000-0000-0000-000000000000}");
    Entry("URegistry", RegistryCode::KeyDeleted,
          Key("Software\\App",
              {Value("Software\\App", "Path", 1, {'C', ':', 0}), Value("Software\\App", "", 3, {1, 2, 3}),
               Value("Software\\App", "Count", 4, {7, 0, 0, 0})}));
    Entry("URegistry", RegistryCode::StringSet, Value("Software\\App", "M\xFCller", 2, {'%', 'x', '%', 0}));
    CheckPoint("{22222222-0000-0000-0000-000000000000}");
    Entry("UFile", FileCode::Overwritten, Set({SavedFile("C:\\App\\app.ini", "[app]\nversion=1\nname=x\n")}, {}, {}));
    Entry("UFile", FileCode::Created, Text("C:\\App\\new.dll"));
    Entry("UFile", FileCode::Deleted,
          Set({SavedFile("C:\\App\\gone.dat", "12345"), SavedFile("D:\\else.dat", "")}, {Text("C:\\App\\Kept")},
              {Set({SavedFile("C:\\App\\Sub\\deep.dat", "deep")}, {}, {})}));
    Entry("UCom", ComCode::ServerUnregistered, Text("C:\\App\\server.dll"));
    Entry("UBackup", BackupCode::KeyRights,
          Item(EncodeItem(TKeyRightsItem{CurrentUser, "Software\\App", "D:(A;;KA;;;WD)"})));
    Entry("{99999999-0000-0000-0000-000000000000}", 5, Text("foreign"));
    Write(Service / "update.prt", Log);
    Write(Service / "History" / InstalledFilesGroupId, RecordOf(InstalledFilesGroupId, 0, Text("C:\\App\\New.dll,b")));
    Text("nobody knows me");
    Write(Service / "Garbage" / "RKeys.grb", "2147483649 Software\\App\r\nnumber Software\\App\r\ncut o");
    Write(Base / "Uninstall" / "unins000.dat", RawUninstallLog());
    Write(Base / "Updates" / "Log" / "update.log", "2024.03.05 14:07:31 1 UFile Begin CopyFile a b\r\n");
    SetTimes();
  }
  ~Console() override { fs::remove_all(Root); }

  static std::string RawUninstallLog() {
    TRawLog Log;
    Log.NumRecs = 3;
    Log.Blocks =
        Block(FileRecord("C:\\App\\app.ini", 0) + Record(0x83, 1, "other") + FileRecord("C:\\App\\New.dll", 0));
    return Log.Bytes();
  }

  // ---- What it is made of

  TGuidBytes Item(const std::string& Bytes) {
    TGuidBytes Id{};
    Id[0] = static_cast<uint8_t>(++Items);
    Write(Service / "Backup" / GuidText(Id), Bytes);
    return Id;
  }
  TGuidBytes Text(const std::string& Characters) { return Item(EncodeItem(TStringItem()) + Characters); }
  TGuidBytes SavedFile(const std::string& Path, const std::string& Content) {
    return Item(EncodeItem(TSingleFileItem{Path, 0x21, SavedTime, SavedTime, SavedTime}) + Content);
  }
  TGuidBytes Set(std::vector<TGuidBytes> Files, std::vector<TGuidBytes> Folders, std::vector<TGuidBytes> Subsets) {
    return Item(EncodeItem(TFileSetItem{std::move(Files), std::move(Folders), std::move(Subsets)}));
  }
  TGuidBytes Value(const std::string& KeyName, const std::string& Name, uint32_t Type, std::vector<uint8_t> Data) {
    return Item(EncodeItem(TRegistryValueItem{CurrentUser, KeyName, Name, Type, std::move(Data)}));
  }
  TGuidBytes Key(const std::string& Name, std::vector<TGuidBytes> Values) {
    return Item(EncodeItem(TRegistryKeyItem{CurrentUser, Name, std::move(Values), {}}));
  }
  static std::string RecordOf(const std::string& Class, int32_t Code, const TGuidBytes& DataID) {
    const std::string Id = Class.starts_with('{') ? Class : IdOfClass(Class);
    const TLogRecordBytes Bytes = EncodeRecord({ParseGuid(Id).value(), Code, DataID});
    return {Bytes.begin(), Bytes.end()};
  }
  void Entry(const std::string& Class, int32_t Code, const TGuidBytes& DataID) { Log += RecordOf(Class, Code, DataID); }
  void CheckPoint(const char* Id) { Entry("UTransactionLog", CheckPointCode, ParseGuid(Id).value()); }
  void SetTimes() {
    const auto Time = std::chrono::file_clock::from_sys(
        std::chrono::sys_seconds(std::chrono::sys_days(std::chrono::year(2024) / 3 / 5)));
    for (const auto& Each : fs::recursive_directory_iterator(Root))
      if (Each.is_regular_file()) fs::last_write_time(Each.path(), Time);
  }

  // ---- What is asked of it

  /// Everything that is printed, and the status; folders by name.
  std::string Run(std::vector<std::string> Words, const std::string& Input = "", const fs::path& Of = {}) {
    Words.insert(Words.end(), {"--base", (Of.empty() ? Base : Of).string(), "--drive", "c=" + App.string()});
    std::istringstream In(Input);
    std::ostringstream Out, Err;
    Status = RunConsole(Words, In, Out, Err);
    return std::regex_replace(Out.str() + Err.str(), std::regex(Root.string()), "ROOT");
  }
  /// Holds a text against a file of the tests' folder; what was found is left beside the build when it differs.
  static void Expect(const std::string& Name, const std::string& Found) {
    if (Found == ContentOf(fs::path(MENDWORK_SOURCE_DIR) / "tests/mendctl" / Name)) return;
    Write(fs::path("mendctl") / Name, Found);
    ADD_FAILURE() << Name << " differs: see " << fs::absolute("mendctl") / Name;
  }

  const fs::path Root = fs::temp_directory_path() / ("mendctl-" + std::to_string(getpid()));
  const fs::path Base = Root / "Orvane", Service = Base / "Updates" / "Mendwork", App = Root / "c";
  std::string Log;
  int Items = 0, Status = 0;
};

TEST_F(Console, TellsAnInterruptedUpdateToPeopleAndToPrograms) {
  const std::vector<std::vector<std::string>> Commands = {{"status"},
                                                          {"show"},
                                                          {"show", "--all"},
                                                          {"show", "2"},
                                                          {"show", "7"},
                                                          {"plan"},
                                                          {"plan", "--to-check-point"},
                                                          {"verify"},
                                                          {"diff", "5"},
                                                          {"uninstall-log"},
                                                          {"prune", "--dry-run"}};
  std::string Told;
  for (const auto& Words : Commands) {
    std::string Line;
    for (const std::string& Word : Words) Line += " " + Word;
    const std::string Text = Run(Words);
    Told += "$ mendctl" + Line + "\n" + Text + "(status " + std::to_string(Status) + ")\n\n";
    std::vector<std::string> ForPrograms = Words;
    ForPrograms.emplace_back("--json");
    Expect("json/" + std::regex_replace(Line.substr(1), std::regex("[^a-z0-9]+"), "-") + ".json", Run(ForPrograms));
  }
  Expect("interrupted.txt", Told);
}

TEST_F(Console, ExtractsFilesAndRegistryContentAndCollectsWhatCanBeReadElsewhere) {
  Run({"extract", "7", (Root / "out").string()});
  EXPECT_EQ(0, Status);
  EXPECT_EQ("12345", ContentOf(Root / "out/C/App/gone.dat"));
  EXPECT_EQ("deep", ContentOf(Root / "out/C/App/Sub/deep.dat"));
  EXPECT_TRUE(fs::is_directory(Root / "out/C/App/Kept"));
  Run({"extract", "7", (Root / "out").string()});
  EXPECT_EQ(2, Status) << "nothing is written over";
  Run({"extract", "2", (Root / "out").string()});
  Expect("entry-2.reg", ContentOf(Root / "out/entry-2.reg"));

  Run({"collect", (Root / "all.zip").string()});
  EXPECT_EQ(0, Status);
  const std::string Unzip = "python3 -m zipfile -e " + (Root / "all.zip").string() + " " + (Root / "there").string();
  ASSERT_EQ(0, std::system(Unzip.c_str()));
  SetTimes();
  EXPECT_EQ(Run({"plan"}), Run({"plan"}, "", Root / "there"));
  EXPECT_EQ(ContentOf(Base / "Uninstall/unins000.dat"), ContentOf(Root / "there/Uninstall/unins000.dat"));
  size_t Found = 0;
  for (const auto& File : fs::recursive_directory_iterator(Root / "there"))
    Found += !File.is_directory() && ContentOf(File.path()).find("12345") != std::string::npos;
  EXPECT_EQ(0u, Found) << "the content of one of the application's files";
}

TEST_F(Console, MovesAnEntryAsideCommitsAndRemovesOnlyWhatNobodyReaches) {
  const size_t Before = 15 + 1;
  EXPECT_NE(std::string::npos, Run({"prune"}).find("1 item of "));
  TMachine Machine;
  const TContext Context{Machine, TStateFolder(Base, 32), TPaint(false)};
  EXPECT_THROW(SkipEntry(Context, 4), EWrongUse) << "a check point";
  EXPECT_TRUE(SkipEntry(Context, 5).ends_with("update.prt.skipped1"));
  const std::string Entry5 = Log.substr(4 * LogRecordSize, LogRecordSize);
  EXPECT_EQ(Entry5, ContentOf(Service / "update.prt.skipped1"));
  EXPECT_EQ(std::string(Log).erase(4 * LogRecordSize, LogRecordSize), ContentOf(Service / "update.prt"));
  EXPECT_NE(std::string::npos, Run({"prune"}).find("0 items of ")) << "what was skipped can still be extracted by hand";
  Run({"commit"}, "no\n");
  EXPECT_EQ(1, Status);
  EXPECT_TRUE(fs::exists(Service / "update.prt"));
  // A copy is what holds; committed is both or none.
  Write(Service / "update.prt.bkp", Log);
  Run({"commit"}, "y\n");
  EXPECT_EQ(0, Status);
  EXPECT_FALSE(fs::exists(Service / "update.prt") || fs::exists(Service / "update.prt.bkp"));
  Run({"prune"});
  std::set<std::string> Left;
  for (const fs::path& Path : FilesOf(Service / "Backup")) Left.insert(Path.filename());
  EXPECT_EQ(3u, Left.size()) << "the skipped entry's set and file, and the history's list, of " << Before;
  EXPECT_EQ(0u, Run({"status"}).find("Base folder")) << Run({"status"});
}

TEST_F(Console, TakesDamageOfEveryKindAsSomethingToTell) {
  const std::vector<std::vector<std::string>> Commands = {{"status"}, {"show", "--all"}, {"plan"},
                                                          {"verify"}, {"uninstall-log"}, {"diff", "7"}};
  std::vector<fs::path> Files;
  for (const auto& Each : fs::recursive_directory_iterator(Base))
    if (Each.is_regular_file()) Files.push_back(Each.path());
  for (const fs::path& File : Files) {
    const std::string Good = ContentOf(File);
    for (size_t At = 0; At < Good.size(); At += 1 + Good.size() / 5) {
      std::string Flipped = Good;
      Flipped[At] = static_cast<char>(~Flipped[At]);
      for (const std::string& Bad : {Good.substr(0, At), Flipped, std::string(Good.size(), '\0')}) {
        Write(File, Bad);
        for (const auto& Words : Commands) {
          const std::string Told = Run(Words);
          EXPECT_TRUE(Status == 0 || Status == 1 || Status == 3 || (Status == 2 && Words[0] == "diff"))
              << File << At << Told;
          EXPECT_FALSE(Told.empty());
        }
      }
    }
    Write(File, Good);
  }
  // A set that holds itself, and a record whose end is torn off.
  Write(Service / "Backup" / GuidText({9}), EncodeItem(TFileSetItem{{}, {}, {{9}}}));
  Write(Service / "update.prt", RecordOf("UFile", FileCode::Deleted, {9}) + "torn");
  SetTimes();
  Expect("damaged.txt", Run({"verify"}) + Run({"plan"}) + Run({"status"}));
}

TEST_F(Console, TellsWrongUseFromWhatCannotBeRead) {
  for (const auto& Words : std::vector<std::vector<std::string>>{
           {}, {"nonsense"}, {"show", "99"}, {"show", "x"}, {"rollback"}, {"--drive", "C", "show"}})
    EXPECT_EQ((Run(Words), 2), Status);
  EXPECT_EQ((Run({"status"}, "", Root / "nowhere"), 3), Status);
  EXPECT_EQ((Run({"status"}, "", App), 3), Status) << "a folder without state";
  EXPECT_EQ((Run({"--help"}), 0), Status);
  fs::resize_file(Service / "update.prt", uint64_t{2} << 30);  // of zeros that take no room
  EXPECT_EQ((Run({"show"}), 3), Status);
}

}  // namespace
