#include "base/text.h"
#include "support/memory_file.h"
#include "support/module_calls.h"
#include "support/process.h"
#include "support/raw_uninstall_log.h"
#include "support/sandbox_test.h"

#include <sstream>

namespace {

using TLines = std::vector<std::string>;

constexpr char FileGroup[] = "{5C1E8A42-7D3B-4F69-A0E2-91B4C6D8F031}";
constexpr char ComGroup[] = "{A7D03F9E-26C4-4B85-9E71-3F0B8C52D6A4}";
constexpr uint32_t Plain = 0, Server = 0x10, Library = 0x40;
constexpr HRESULT DiskFull = static_cast<HRESULT>(0x80040200 + ERROR_DISK_FULL);

/// The message as the lines of ProcessInno have it.
std::string Trimmed(DWORD Code) {
  std::string Text = SystemText(Code);
  while (!Text.empty() && (Text.back() <= ' ' || Text.back() == '.')) Text.pop_back();
  return Text;
}

/// What ProcessInno writes about a log that neither of its phases can read.
TLines InBothPhases(const std::string& Reason) {
  return {"Exception Inno unins000 1_2" + Reason, "Exception Inno unins000 2_2" + Reason};
}

/// A log with these records, as the installer leaves it.
TRawLog LogOf(uint32_t NumRecs, const std::string& Stream) {
  TRawLog Raw;
  Raw.NumRecs = NumRecs;
  Raw.Blocks = BlocksOf(Stream);
  Raw.Reserved = "reserved" + std::string(100, 'r');
  return Raw;
}
/// The log after an update that brought these records.
TRawLog After(TRawLog Raw, uint32_t Added, const std::string& Stream) {
  Raw.NumRecs += Added;
  if (Added > 0) Raw.Version = 45;
  Raw.Blocks += BlocksOf(Stream);
  return Raw;
}

class InstallerLogs : public TSandboxTest {
 protected:
  explicit InstallerLogs(TLogChoice Choice = LogInMemory) : TSandboxTest(Choice) {}

  HRESULT AddFile(const std::string& Name) { return Object->AddFile(Text(Name)); }
  HRESULT AddCOM(const std::string& Name) { return Object->AddCOM(Text(Name)); }
  /// Both lists, parted by " | ".
  std::string Lists() {
    TBstr Files, Servers;
    EXPECT_EQ(S_OK, Object->GetFileList(Files.Out()));
    EXPECT_EQ(S_OK, Object->GetCOMList(Servers.Out()));
    return Take(Files) + " | " + Take(Servers);
  }
  std::string LogName() const { return Base("Uninstall\\unins000.dat"); }
  void Plant(const TRawLog& Raw) { Write(LogName(), Raw.Bytes()); }
  /// Runs ProcessInno, which always succeeds, and gives its Exception lines.
  TLines Process() {
    Log().Lines.clear();
    EXPECT_EQ(S_OK, Object->ProcessInno()) << ErrorText();
    TLines Lines = Log().Texts("UInno");
    EXPECT_EQ("Begin ProcessInno", Lines.front());
    EXPECT_EQ("End ProcessInno", Lines.back());
    std::erase_if(Lines, [](const std::string& Line) { return !Line.starts_with("Exception "); });
    return Lines;
  }
  size_t RecordsOf(const char* Group) const {
    const std::string Name = Service("History\\" + std::string(Group));
    return Exists(Name) ? Read(Name).size() / 36 : 0;
  }

  TComRef<IUInno> Object;
};

/// The usual case: the object is there from the start.
class InstallerLog : public InstallerLogs {
 protected:
  InstallerLog() { Object = Make<IUInno>(CLSID_UInno); }
};

TEST_F(InstallerLog, ANameIsListedOnce) {
  ASSERT_EQ(S_OK, AddFile("C:\\App\\a \xE4.dll"));
  ASSERT_EQ(S_OK, AddFile("c:\\app\\A \xC4.DLL"));
  ASSERT_EQ(S_OK, AddFile("b.dll"));
  ASSERT_EQ(S_OK, AddCOM("b.dll"));
  ASSERT_EQ(S_OK, AddCOM("B.dll"));
  ASSERT_EQ(S_OK, AddFile("say \"hi\", b-dll"));
  EXPECT_EQ("\"C:\\App\\a \xE4.dll\",b.dll,\"say \"\"hi\"\", b-dll\" | b.dll", Lists());
  EXPECT_EQ(3u, RecordsOf(FileGroup));
  EXPECT_EQ(1u, RecordsOf(ComGroup));
}

TEST_F(InstallerLog, WhatTheUpdateBroughtIsAppended) {
  std::string Stream = FileRecord("C:\\App\\old.dll", Plain);
  while (Stream.size() < 10000) Stream += FileRecord("C:\\App\\" + std::to_string(Stream.size()), Plain);
  TRawLog Old = LogOf(0, Stream);
  for (size_t At = 0; At < Stream.size(); ++Old.NumRecs) At += 10 + static_cast<uint8_t>(Stream[At + 6]);
  Old.Version = 7;
  for (const bool Is64Bit : {false, true}) {
    if (Is64Bit) Old.Id = Id64;
    Old.ApplicationId = Padded("{App}", 30) + "behind the NUL";
    Write(LogName(), Old.Bytes() + "behind the log's end");
    for (const char* Name : {"C:\\App\\x.dll", "C:\\App\\new.txt", "C:\\App\\Y.dll"}) ASSERT_EQ(S_OK, AddFile(Name));
    for (const char* Name : {"c:\\app\\X.DLL", "C:\\App\\types.TLB", "C:\\App\\types2.tlb", "C:\\App.TLB\\plain"})
      ASSERT_EQ(S_OK, AddCOM(Name));
    EXPECT_EQ(TLines(), Process());
    const TRawLog New = After(Old, 6,
                              FileRecord("C:\\App\\new.txt", Plain) + FileRecord("C:\\App\\Y.dll", Plain) +
                                  FileRecord("c:\\app\\X.DLL", Server) + FileRecord("C:\\App\\types.TLB", Library) +
                                  FileRecord("C:\\App\\types2.tlb", Server) + FileRecord("C:\\App.TLB\\plain", Server));
    EXPECT_TRUE(New.Bytes() == Read(LogName()));
    EXPECT_EQ(
        "C:\\App\\new.txt,C:\\App\\Y.dll | "
        "c:\\app\\X.DLL,C:\\App\\types.TLB,C:\\App\\types2.tlb,C:\\App.TLB\\plain",
        Lists());
    // Nothing is put into the transaction log; a rollback does not undo it.
    EXPECT_FALSE(Exists(Service("update.prt")));
    GUID CheckPoint{};
    ASSERT_EQ(S_OK, Make<IUTransactionLog>(CLSID_UTransactionLog)->Rollback(VARIANT_FALSE, &CheckPoint));
    EXPECT_TRUE(New.Bytes() == Read(LogName()));
    // Once more: everything is there already.
    EXPECT_EQ(TLines(), Process());
    EXPECT_TRUE(New.Bytes() == Read(LogName()));
    EXPECT_EQ(" | ", Lists());
  }
}

TEST_F(InstallerLog, WhatTheLogHasIsNotAppendedAgain) {
  const char* const Names[] = {"plain", "server", "library", "both", "other values", "other type", "second", "kept"};
  for (const char* Name : Names) {
    AddFile(Name);
    if (std::string(Name) != "kept" && std::string(Name) != "plain") AddCOM(std::string(Name) + ".COM");
  }
  const std::string Stream =
      FileRecord("PLAIN", Plain) + FileRecord("server.com", Server) + FileRecord("Server", Server) +
      FileRecord("library.com", Library) + FileRecord("LIBRARY", Library) + FileRecord("both.com", Plain) +
      FileRecord("other values", 0x50) + FileRecord("other values.com", 0x11) + FileRecord("other values.com", 1) +
      Record(0x81, 0, FileRecord("other type", 0).substr(10)) +
      Record(0x82, 0, "\5first\6second\xFF") +     // only the first string counts
      Record(0x82, 0, "\4kept\xFE\xFF\xFF\xFF") +  // damaged behind it
      Record(0x82, 0, "\5kept") + Record(0x82, 0, "");
  TRawLog Old = LogOf(14, Stream);
  Plant(Old);
  EXPECT_EQ(TLines(), Process());
  EXPECT_EQ(
      "both,\"other values\",\"other type\",second | "
      "both.COM,\"other values.COM\",\"other type.COM\",second.COM",
      Lists());
  const TRawLog New =
      After(Old, 8,
            FileRecord("both", Plain) + FileRecord("other values", Plain) + FileRecord("other type", Plain) +
                FileRecord("second", Plain) + FileRecord("both.COM", Server) + FileRecord("other values.COM", Server) +
                FileRecord("other type.COM", Server) + FileRecord("second.COM", Server));
  EXPECT_TRUE(New.Bytes() == Read(LogName()));
}

TEST_F(InstallerLog, WithoutALogNothingIsCreated) {
  AddFile("a");
  EXPECT_EQ(InBothPhases(Trimmed(ERROR_PATH_NOT_FOUND)), Process());
  EXPECT_FALSE(Exists(Base("Uninstall")));
  MakeFolders(Base("Uninstall"));
  EXPECT_EQ(InBothPhases(Trimmed(ERROR_FILE_NOT_FOUND)), Process());
  EXPECT_EQ(0u, TreeOf(Base("Uninstall")).size());
  EXPECT_EQ("a | ", Lists());
}

TEST_F(InstallerLog, ALogThatIsNotUnderstoodIsLeftAsItIs) {
  AddFile("OLD");
  AddFile("new");
  const TRawLog Good = LogOf(1, FileRecord("old", Plain));
  TRawLog Damaged = Good, Later = Good, GoesOn = Good;
  Damaged.Blocks.back() ^= 1;
  Later.Version = 46;
  for (const TRawLog& Raw : {Damaged, Later}) {
    Plant(Raw);
    EXPECT_EQ(InBothPhases(""), Process());
    EXPECT_TRUE(Raw.Bytes() == Read(LogName()));
    EXPECT_EQ("OLD,new | ", Lists());
  }
  // Its records can be read, but more behind them would be cut off.
  GoesOn.Blocks += Block("?");
  Plant(GoesOn);
  EXPECT_EQ((TLines{"Exception Inno unins000 2_2"}), Process());
  EXPECT_TRUE(GoesOn.Bytes() == Read(LogName()));
  EXPECT_EQ("new | ", Lists());
}

TEST_F(InstallerLog, ALogThatIsHeldOpenIsNotChanged) {
  const TRawLog Old = LogOf(1, FileRecord("old", Plain));
  Plant(Old);
  AddFile("new");
  {
    const TFileHandle Holder(
        CreateFileA(LogName().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(InBothPhases(Trimmed(ERROR_SHARING_VIOLATION)), Process());
  }
  EXPECT_TRUE(Old.Bytes() == Read(LogName()));
  // Held only while the first phase looks: the second one reads for itself what it must keep.
  {
    const TFault Fault("CreateFileA", {.Times = 1, .Code = ERROR_SHARING_VIOLATION});
    EXPECT_EQ((TLines{"Exception Inno unins000 1_2" + Trimmed(ERROR_SHARING_VIOLATION)}), Process());
  }
  EXPECT_TRUE(After(Old, 1, FileRecord("new", Plain)).Bytes() == Read(LogName()));
}

TEST_F(InstallerLog, AFailedWriteLeavesTheOldRecords) {
  TRawLog Old = LogOf(1, FileRecord("old", Plain));
  Plant(Old);
  AddFile("new");
  for (const auto& [Function, Skip] :
       {std::pair{"WriteFile", 0}, {"WriteFile", 1}, {"SetEndOfFile", 0}, {"FlushFileBuffers", 0}}) {
    const TFault Fault(Function, {Skip, 1, ERROR_DISK_FULL});
    EXPECT_EQ((TLines{"Exception Inno unins000 2_2" + Trimmed(ERROR_DISK_FULL)}), Process()) << Function;
    EXPECT_TRUE(Old.Bytes() == Read(LogName()).substr(0, Old.Bytes().size())) << Function;
  }
  {
    // A code without a text.
    const TFault Fault("ReadFile", {0, 2, 0x2FFFFFFF});
    EXPECT_EQ(InBothPhases("File I/O error 805306367"), Process());
  }
  EXPECT_EQ(TLines(), Process());
  EXPECT_TRUE(After(Old, 1, FileRecord("new", Plain)).Bytes() == Read(LogName()));
}

TEST_F(InstallerLog, AFailedSaveIsRaisedAndMadeUpForByTheNextCall) {
  ASSERT_EQ(S_OK, AddFile("a"));
  {
    const TFault Fault("WriteFile", {0, 1, ERROR_DISK_FULL});
    EXPECT_EQ(DiskFull, AddFile("b"));
    EXPECT_EQ(SystemText(ERROR_DISK_FULL), ErrorText());
  }
  EXPECT_EQ("a,b | ", Lists());
  EXPECT_EQ(1u, RecordsOf(FileGroup));
  ASSERT_EQ(S_OK, AddFile("B"));
  EXPECT_EQ(2u, RecordsOf(FileGroup));
  ASSERT_EQ(S_OK, AddFile("b"));
  EXPECT_EQ(2u, RecordsOf(FileGroup));
}

TEST_F(InstallerLog, TheListsAreReadWithoutTheLock) {
  AddFile("a");
  const TKernelHandle Lock(CreateSemaphoreA(nullptr, 1, 1, GuidText(CLSID_UInno).c_str()));
  ASSERT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), GetLastError());
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(Lock.Get(), 0));
  EXPECT_EQ("a | ", Lists());
  ReleaseSemaphore(Lock.Get(), 1, nullptr);
  EXPECT_EQ(E_POINTER, Object->GetFileList(nullptr));
  EXPECT_EQ(E_POINTER, Object->GetCOMList(nullptr));
}

TEST_F(InstallerLogs, AnObjectThatCannotRestoreFailsAndTheNextOneTriesAgain) {
  const std::string Item = Service("Backup\\" + GuidText(NumberedGuid(5)));
  const GUID Ids[] = {Guid(ComGroup), NumberedGuid(5)};
  const std::string Record = std::string(reinterpret_cast<const char*>(&Ids[0]), 16) + std::string(4, '\0') +
                             std::string(reinterpret_cast<const char*>(&Ids[1]), 16);
  Write(Service("History\\" + std::string(ComGroup)), Record);
  Write(Item, "damaged");
  TComRef<IUInno> None;
  EXPECT_TRUE(FAILED(CoCreateInstance(CLSID_UInno, nullptr, CLSCTX_INPROC_SERVER, IID_IUInno, None.OutVoid())));
  Write(Item, std::string("\1\0\0\0", 4) + "a.dll, \"b c.dll\"");
  Object = Make<IUInno>(CLSID_UInno);
  EXPECT_EQ(" | a.dll,\"b c.dll\"", Lists());
}

/// Other processes are at work here; see NoDoubles.
class SharedInstallerLog : public InstallerLogs {
 protected:
  SharedInstallerLog() : InstallerLogs(NoDoubles) { Object = Make<IUInno>(CLSID_UInno); }
};

/// match-lists LISTS: whether the lists of a new process are these.
const TRole MatchLists("match-lists", [](const TWords& Words, TScriptedDialog&) {
  const auto Inno = Make<IUInno>(CLSID_UInno);
  TBstr Files, Servers;
  if (FAILED(Inno->GetFileList(Files.Out())) || FAILED(Inno->GetCOMList(Servers.Out()))) return 1;
  return Words.at(0) == Take(Files) + " | " + Take(Servers) ? 0 : 1;
});

/// process-inno EVENT N: calls ProcessInno; the event happens at the N-th call of the module inside.
const TRole ProcessInno("process-inno", [](const TWords& Words, TScriptedDialog&) {
  const auto Inno = Make<IUInno>(CLSID_UInno);
  PlanEvent(Words.at(0), std::stoi(Words.at(1)), AllCalls);
  const HRESULT Result = Inno->ProcessInno();
  PlanEvent("nothing", 0);
  return FAILED(Result) ? 1 : 0;
});

/// bring-to-log FOLDER: makes FOLDER the base folder, adds what its names.txt lists (one "file:NAME" or "server:NAME" a
/// line), calls ProcessInno, and writes what the log holds then to records.txt: type, ExtraValue and the data in
/// hexadecimal, a record a line.
const TRole BringToLog("bring-to-log", [](const TWords& Words, TScriptedDialog&) {
  const std::string& Folder = Words.at(0);
  RegSetKeyValueA(HKEY_CURRENT_USER, "Software\\Orvane\\Core", nullptr, REG_SZ, Folder.c_str(),
                  static_cast<DWORD>(Folder.size() + 1));
  const auto Inno = Make<IUInno>(CLSID_UInno);
  std::istringstream Names(Read(Folder + "\\names.txt"));
  for (std::string Line; std::getline(Names, Line);) {
    const size_t Colon = Line.find(':');
    const Text Name(Line.substr(Colon + 1));
    if (FAILED(Line.substr(0, Colon) == "server" ? Inno->AddCOM(Name) : Inno->AddFile(Name))) return 1;
  }
  if (FAILED(Inno->ProcessInno())) return 1;
  TUninstallLog Log;
  LoadFrom(Read(Folder + "\\Uninstall\\unins000.dat"), Log);
  std::string Dump;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next) {
    Dump += std::to_string(Rec->RecordType) + " " + std::to_string(Rec->ExtraValue) + " ";
    for (const auto Byte : Rec->Data())
      for (const int Half : {Byte >> 4 & 15, Byte & 15}) Dump += "0123456789abcdef"[Half];
    Dump += "\n";
  }
  Write(Folder + "\\records.txt", Dump);
  return 0;
});

TEST_F(SharedInstallerLog, ANewProcessFindsTheLists) {
  AddFile("C:\\Program Files\\\xE4.dll");
  AddFile("b.dll");
  AddCOM("c, \"d\"");
  const std::string Files = "\"C:\\Program Files\\\xE4.dll\",b.dll", Servers = "\"c, \"\"d\"\"\"";
  EXPECT_EQ(Files + " | " + Servers, Lists());
  EXPECT_EQ(0u, TChild({"match-lists", Files + " | " + Servers}).Wait());
}

TEST_F(SharedInstallerLog, AProcessThatDiesLeavesTheOldRecordsOrAll) {
  std::string OldStream, NewStream;
  uint32_t OldCount = 0, NewCount = 0;
  for (; OldStream.size() < 5000; ++OldCount) OldStream += FileRecord("old " + std::to_string(OldCount), Plain);
  for (; NewStream.size() < 5000; ++NewCount) {
    const std::string Name = std::string(150, 'n') + std::to_string(NewCount);
    ASSERT_EQ(S_OK, AddFile(Name));
    NewStream += FileRecord(Name, Plain);
  }
  const TRawLog Old = LogOf(OldCount, OldStream);
  const std::string Before = Old.Bytes(), AfterAll = After(Old, NewCount, NewStream).Bytes();
  int Found[2] = {0, 0};
  for (const char* Event : {"before", "after", "torn"}) {
    int Point = 0;
    for (DWORD Status = DiedStatus; Status == DiedStatus;) {
      SCOPED_TRACE(std::string(Event) + " " + std::to_string(++Point));
      Write(LogName(), Before + "behind the end");
      Status = TChild({"process-inno", Event, std::to_string(Point)}).Wait();
      ASSERT_TRUE(Status == 0 || Status == DiedStatus) << Status;
      const std::string Left = Read(LogName());
      TUninstallLog Loaded;
      ASSERT_NO_THROW(LoadFrom(Left, Loaded));
      ASSERT_TRUE(Loaded.EndsWithLastRecord());
      const bool IsNew = Left == AfterAll;
      ASSERT_TRUE(IsNew || (Status == DiedStatus && Left.substr(0, Before.size()) == Before));
      ++Found[IsNew];
      ASSERT_EQ(0u, TChild({"process-inno", "nothing", "0"}).Wait());
      ASSERT_TRUE(Read(LogName()) == AfterAll) << "the next run completes it";
    }
    EXPECT_LE(*Event == 't' ? 2 : 20, Point - 1);
  }
  EXPECT_LT(10, Found[0]);
  EXPECT_LT(5, Found[1]);
}

}  // namespace
