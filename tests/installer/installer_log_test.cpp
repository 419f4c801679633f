#include "support/module_calls.h"
#include "support/process.h"
#include "support/raw_uninstall_log.h"
#include "support/sandbox_test.h"

namespace {

constexpr char FileGroup[] = "{5C1E8A42-7D3B-4F69-A0E2-91B4C6D8F031}";
constexpr char ComGroup[] = "{A7D03F9E-26C4-4B85-9E71-3F0B8C52D6A4}";
constexpr uint32_t Plain = 0, Server = 0x10, Library = 0x40;

/// A log with these records, as the installer leaves it.
TRawLog LogOf(uint32_t NumRecs, const std::string& Stream) {
  TRawLog Raw{.NumRecs = NumRecs, .Blocks = BlocksOf(Stream)};
  Raw.Reserved = "reserved" + std::string(100, 'r');
  return Raw;
}
/// The log after an update that brought these records.
TRawLog After(TRawLog Raw, uint32_t Added, const std::string& Stream) {
  Raw.NumRecs += Added;
  Raw.Version = 45;
  Raw.Blocks += BlocksOf(Stream);
  return Raw;
}

/// What ProcessInno writes about a failure in one of its phases, or in both; the system's message as those lines have
/// it.
TWords Told(const char* Phases, const std::string& Reason) {
  TWords Lines;
  for (; *Phases; ++Phases) Lines.push_back("Exception Inno unins000 " + std::string(1, *Phases) + "_2" + Reason);
  return Lines;
}
TWords Told(const char* Phases, DWORD Code) {
  std::string Text = SystemText(Code);
  while (Text.back() <= ' ' || Text.back() == '.') Text.pop_back();
  return Told(Phases, Text);
}

class InstallerLog : public TSandboxTest {
 protected:
  explicit InstallerLog(TLogChoice Choice = LogInMemory) : TSandboxTest(Choice) {}

  HRESULT AddFile(const std::string& Name) { return Object->AddFile(Text(Name)); }
  HRESULT AddCOM(const std::string& Name) { return Object->AddCOM(Text(Name)); }
  /// Both lists, parted by " | ".
  static std::string ListsOf(IUInno& Object) {
    TBstr Files, Servers;
    EXPECT_EQ(S_OK, Object.GetFileList(Files.Out()));
    EXPECT_EQ(S_OK, Object.GetCOMList(Servers.Out()));
    return Take(Files) + " | " + Take(Servers);
  }
  std::string Lists() { return ListsOf(*Object); }
  std::string LogName() const { return Base("Uninstall\\unins000.dat"); }
  /// Runs ProcessInno, which always succeeds, and gives its Exception lines.
  TWords Process() {
    Log().Lines.clear();
    EXPECT_EQ(S_OK, Object->ProcessInno()) << ErrorText();
    TWords Lines = Log().Texts("UInno");
    EXPECT_EQ("Begin ProcessInno", Lines.front());
    EXPECT_EQ("End ProcessInno", Lines.back());
    std::erase_if(Lines, [](const std::string& Line) { return !Line.starts_with("Exception "); });
    return Lines;
  }
  size_t RecordsOf(const char* Group) const {
    return Exists(Service("History\\") + Group) ? Read(Service("History\\") + Group).size() / 36 : 0;
  }

  TComRef<IUInno> Object = Make<IUInno>(CLSID_UInno);
};

TEST_F(InstallerLog, ListsANameOnceAndMakesUpForAFailedSave) {
  EXPECT_EQ(S_OK, AddFile("C:\\App\\a \xE4.dll"));
  EXPECT_EQ((TWords{"Begin AddFile C:\\App\\a \xE4.dll", "End AddFile"}), Log().Texts("UInno"));
  EXPECT_EQ(S_OK, AddFile("c:\\app\\A \xC4.DLL"));
  EXPECT_EQ(S_OK, AddCOM("b.dll"));
  EXPECT_EQ(S_OK, AddCOM("B.dll"));
  {
    const TFault Fault("WriteFile", {0, 1, ERROR_DISK_FULL});
    EXPECT_EQ(static_cast<HRESULT>(0x80040200 + ERROR_DISK_FULL), AddFile("say \"hi\", b-dll"));
    EXPECT_EQ(SystemText(ERROR_DISK_FULL), ErrorText());
  }
  EXPECT_EQ("\"C:\\App\\a \xE4.dll\",\"say \"\"hi\"\", b-dll\" | b.dll", Lists());
  EXPECT_EQ(1u, RecordsOf(FileGroup));
  for (int Time = 0; Time < 2; ++Time) {
    EXPECT_EQ(S_OK, AddFile("SAY \"hi\", b-dll"));
    EXPECT_EQ(2u, RecordsOf(FileGroup));
  }
  EXPECT_EQ(1u, RecordsOf(ComGroup));
}

TEST_F(InstallerLog, GetsWhatTheUpdateBrought) {
  std::string Stream = FileRecord("C:\\App\\old.dll", Plain);
  uint32_t Count = 1;
  for (; Stream.size() < 10000; ++Count) Stream += FileRecord("C:\\App\\" + std::to_string(Stream.size()), Plain);
  TRawLog Old = LogOf(Count, Stream);
  Old.Version = 7;
  for (const char* Id : {Id32, Id64}) {
    Old.Id = Id;
    Old.ApplicationId = Padded("{App}", 30) + "behind the NUL";
    Write(LogName(), Old.Bytes() + "behind the log's end");
    for (const char* Name : {"C:\\App\\x.dll", "C:\\App\\new.txt", "C:\\App\\Y.dll"}) EXPECT_EQ(S_OK, AddFile(Name));
    for (const char* Name : {"c:\\app\\X.DLL", "C:\\App\\types.TLB", "C:\\App\\types2.tlb", "C:\\App.TLB\\plain"})
      EXPECT_EQ(S_OK, AddCOM(Name));
    EXPECT_EQ(TWords(), Process());
    const TRawLog New = After(Old, 6,
                              FileRecord("C:\\App\\new.txt", Plain) + FileRecord("C:\\App\\Y.dll", Plain) +
                                  FileRecord("c:\\app\\X.DLL", Server) + FileRecord("C:\\App\\types.TLB", Library) +
                                  FileRecord("C:\\App\\types2.tlb", Server) + FileRecord("C:\\App.TLB\\plain", Server));
    // Nothing is put into the transaction log, and the second time everything is there already.
    EXPECT_EQ(S_OK, RollBack());
    for (const char* Left : {"C:\\App\\new.txt,C:\\App\\Y.dll | c:\\app\\X.DLL,C:\\App\\types.TLB,C:\\App\\types2.tlb,"
                             "C:\\App.TLB\\plain",
                             " | "}) {
      EXPECT_TRUE(New.Bytes() == Read(LogName()));
      EXPECT_EQ(Left, Lists());
      EXPECT_EQ(TWords(), Process());
    }
  }
}

TEST_F(InstallerLog, DoesNotGetAgainWhatItHas) {
  for (const char* Name : {"plain", "kept", "server", "library", "both", "other values", "other type", "second"}) {
    AddFile(Name);
    if (std::string(Name) != "kept" && std::string(Name) != "plain") AddCOM(std::string(Name) + ".COM");
  }
  const TRawLog Old = LogOf(
      14, FileRecord("PLAIN", Plain) + FileRecord("server.com", Server) + FileRecord("Server", Server) +
              FileRecord("library.com", Library) + FileRecord("LIBRARY", Library) + FileRecord("both.com", Plain) +
              FileRecord("other values", 0x50) + FileRecord("other values.com", 0x11) +
              FileRecord("other values.com", 1) + Record(0x81, 0, FileRecord("other type", 0).substr(10)) +
              Record(0x82, 0, "\5first\6second\xFF") +     // only the first string counts
              Record(0x82, 0, "\4kept\xFE\xFF\xFF\xFF") +  // damaged behind it
              Record(0x82, 0, "\5kept") + Record(0x82, 0, ""));
  Write(LogName(), Old.Bytes());
  EXPECT_EQ(TWords(), Process());
  EXPECT_EQ("both,\"other values\",\"other type\",second | both.COM,\"other values.COM\",\"other type.COM\",second.COM",
            Lists());
  std::string Added;
  for (const auto& [End, Kind] : {std::pair{"", Plain}, {".COM", Server}})
    for (const char* Name : {"both", "other values", "other type", "second"})
      Added += FileRecord(std::string(Name) + End, Kind);
  EXPECT_TRUE(After(Old, 8, Added).Bytes() == Read(LogName()));
}

TEST_F(InstallerLog, StaysAsItIsWhenItIsMissingOrNotUnderstood) {
  AddFile("OLD");
  AddFile("new");
  EXPECT_EQ(Told("12", ERROR_PATH_NOT_FOUND), Process());
  EXPECT_FALSE(Exists(Base("Uninstall")));
  MakeFolders(Base("Uninstall"));
  EXPECT_EQ(Told("12", ERROR_FILE_NOT_FOUND), Process());
  EXPECT_EQ(0u, TreeOf(Base("Uninstall")).size());
  const TRawLog Good = LogOf(1, FileRecord("old", Plain));
  TRawLog Damaged = Good, Later = Good, GoesOn = Good;
  Damaged.Blocks.back() ^= 1;
  Later.Version = 46;
  GoesOn.Blocks += Block("?");  // its records can be read, but more behind them would be cut off
  for (const auto& [Raw, Phases, Left] :
       {std::tuple{Damaged, "12", "OLD,new | "}, {Later, "12", "OLD,new | "}, {GoesOn, "2", "new | "}}) {
    Write(LogName(), Raw.Bytes());
    EXPECT_EQ(Told(Phases, ""), Process());
    EXPECT_TRUE(Raw.Bytes() == Read(LogName()));
    EXPECT_EQ(Left, Lists());
  }
}

TEST_F(InstallerLog, KeepsItsRecordsWhenItIsHeldOpenOrACallFails) {
  const TRawLog Old = LogOf(1, FileRecord("old", Plain));
  Write(LogName(), Old.Bytes());
  AddFile("new");
  {
    const TFileHandle Holder(
        CreateFileA(LogName().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(Told("12", ERROR_SHARING_VIOLATION), Process());
  }
  for (const auto& [Function, Skip] :
       {std::pair{"WriteFile", 0}, {"WriteFile", 1}, {"SetEndOfFile", 0}, {"FlushFileBuffers", 0}}) {
    const TFault Fault(Function, {Skip, 1, ERROR_DISK_FULL});
    EXPECT_EQ(Told("2", ERROR_DISK_FULL), Process()) << Function;
    EXPECT_EQ(Old.Bytes(), Read(LogName()).substr(0, Old.Bytes().size())) << Function;
  }
  {
    // A code without a text.
    const TFault Fault("ReadFile", {0, 2, 0x2FFFFFFF});
    EXPECT_EQ(Told("12", "File I/O error 805306367"), Process());
  }
  // Held only while the first phase looks: the second one reads for itself what it must keep.
  const TFault Fault("CreateFileA", {.Times = 1, .Code = ERROR_SHARING_VIOLATION});
  EXPECT_EQ(Told("1", ERROR_SHARING_VIOLATION), Process());
  EXPECT_EQ(After(Old, 1, FileRecord("new", Plain)).Bytes(), Read(LogName()));
}

TEST_F(InstallerLog, TriesAgainToRestoreItsLists) {
  const std::string Item = Service("Backup\\" + GuidText(NumberedGuid(5)));
  ASSERT_EQ(S_OK, Make<IUHistory>(CLSID_UHistory)->Put(Guid(ComGroup), 0, NumberedGuid(5)));
  Object = {};
  CoFreeUnusedLibrariesEx(0, 0);
  Write(Item, "damaged");
  EXPECT_TRUE(FAILED(CoCreateInstance(CLSID_UInno, nullptr, CLSCTX_INPROC_SERVER, IID_IUInno, Object.OutVoid())));
  Write(Item, std::string("\1\0\0\0", 4) + "a.dll, \"b c.dll\"");
  Object = Make<IUInno>(CLSID_UInno);
  EXPECT_EQ(" | a.dll,\"b c.dll\"", Lists());
}

/// Other processes are at work here; see NoDoubles.
class SharedInstallerLog : public InstallerLog {
 protected:
  SharedInstallerLog() : InstallerLog(NoDoubles) {}

 public:
  using InstallerLog::ListsOf;
};

/// change-lists CALL LISTS: calls a method when let go; whether the lists are these then.
const TRole ChangeLists("change-lists", [](const TWords& Words, TScriptedDialog&) {
  const auto Inno = Make<IUInno>(CLSID_UInno);
  TellReady();
  WaitForContinue();
  const HRESULT Result = Words.at(0) == "AddFile" ? Inno->AddFile(Text("new")) : Inno->ProcessInno();
  return SUCCEEDED(Result) && SharedInstallerLog::ListsOf(*Inno) == Words.at(1) ? 0 : 1;
});

TEST_F(SharedInstallerLog, IsChangedUnderTheLockAndShownWithout) {
  EXPECT_EQ(S_OK, AddFile("C:\\Program Files\\\xE4.dll"));
  EXPECT_EQ(S_OK, AddCOM("c, \"d\""));
  const std::string Names = "\"C:\\Program Files\\\xE4.dll\"", Servers = " | \"c, \"\"d\"\"\"";
  const TKernelHandle Lock(CreateSemaphoreA(nullptr, 1, 1, GuidText(CLSID_UInno).c_str()));
  for (const char* Call : {"AddFile", "ProcessInno"}) {
    TChild Child({"change-lists", Call, Names + ",new" + Servers});
    ASSERT_TRUE(Child.WaitUntilReady());
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(Lock.Get(), 0));
    Child.Continue();
    Sleep(300);
    EXPECT_FALSE(Child.HasEnded()) << Call;
    EXPECT_EQ(Names + Servers, Lists());
    ReleaseSemaphore(Lock.Get(), 1, nullptr);
    EXPECT_EQ(0u, Child.Wait()) << Call;
  }
  EXPECT_EQ(E_POINTER, Object->GetFileList(nullptr));
}

}  // namespace
