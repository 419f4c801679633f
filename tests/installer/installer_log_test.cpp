#include "stories/story.h"
#include "support/raw_uninstall_log.h"

namespace {

constexpr uint32_t ToDelete = 0, Server = 0x10, Library = 0x40;

/// A log with these records, as the installer leaves it.
TRawLog LogOf(uint32_t NumRecs, const std::string& Stream) {
  return {.NumRecs = NumRecs, .Reserved = "reserved" + std::string(100, 'r'), .Blocks = BlocksOf(Stream)};
}
/// The log after an update that brought these records.
TRawLog After(TRawLog Raw, uint32_t Added, const std::string& Stream) {
  Raw.NumRecs += Added;
  Raw.Version = 45;
  Raw.Blocks += BlocksOf(Stream);
  return Raw;
}

std::string ListsOf(IUInno& Object) {
  TBstr Files, Servers;
  EXPECT_EQ(S_OK, Object.GetFileList(Files.Out()));
  EXPECT_EQ(S_OK, Object.GetCOMList(Servers.Out()));
  return Take(Files) + " | " + Take(Servers);
}

class InstallerLog : public TStory {
 protected:
  HRESULT AddFile(const std::string& Name) { return Object->AddFile(Text(Name)); }
  HRESULT AddCOM(const std::string& Name) { return Object->AddCOM(Text(Name)); }
  std::string LogName() const { return Base("Uninstall\\unins000.dat"); }
  /// They are read without the lock.
  void TellLists() { Step(ListsOf(*Object), S_OK); }
  /// Runs ProcessInno and tells its lines, and what is in the lists then.
  void Process(const std::string& What) {
    Step(What, Object->ProcessInno());
    TellLists();
  }

  TComRef<IUInno> Object = Make<IUInno>(CLSID_UInno);
};

TEST_F(InstallerLog, ListsANameOnceAndMakesUpForAFailedSave) {
  Step("file", AddFile("C:\\App\\a \xE4.dll"));
  Step("same file", AddFile("c:\\app\\A \xC4.DLL"));
  Step("server", AddCOM("b.dll"));
  Step("same server", AddCOM("B.dll"));
  const TFault Fault("WriteFile", {0, 1, ERROR_DISK_FULL});
  Step("file that cannot be saved", AddFile("say \"hi\", b-dll"));
  TellLists();
  for (const char* Again : {"again", "and again"}) Step(Again, AddFile("SAY \"hi\", b-dll"));
  TellLists();
  EXPECT_EQ(E_POINTER, Object->GetFileList(nullptr));
}

TEST_F(InstallerLog, GetsWhatTheUpdateBrought) {
  std::string Stream = FileRecord("C:\\App\\old.dll", ToDelete);
  uint32_t Count = 1;
  for (; Stream.size() < 10000; ++Count) Stream += FileRecord("C:\\App\\" + std::to_string(Stream.size()), ToDelete);
  TRawLog Old = LogOf(Count, Stream);
  Old.Version = 7;
  Old.Flags = 0x12340001;
  for (const char* Id : {Id32, Id64}) {
    Old.Id = Id;
    Old.ApplicationId = Padded("{App}", 30) + "behind the NUL";
    Write(LogName(), Old.Bytes() + "behind the log's end");
    for (const char* Name : {"C:\\App\\x.dll", "C:\\App\\new.txt"}) AddFile(Name);
    for (const char* Name : {"c:\\app\\X.DLL", "types.TLB", "types2.tlb", "App.TLB\\plain"}) AddCOM(Name);
    const TRawLog New = After(Old, 5,
                              FileRecord("C:\\App\\new.txt", ToDelete) + FileRecord("c:\\app\\X.DLL", Server) +
                                  FileRecord("types.TLB", Library) + FileRecord("types2.tlb", Server) +
                                  FileRecord("App.TLB\\plain", Server));
    // The second time everything is there already.
    for (const char* Time : {"brought", "nothing new"}) {
      Process(Time);
      UndoAll();
      EXPECT_TRUE(New.Bytes() == Read(LogName())) << Id;
    }
  }
}

TEST_F(InstallerLog, DoesNotGetAgainWhatItHas) {
  for (const char* Name : {"plain", "kept", "server", "library", "both", "values", "type", "second"}) {
    AddFile(Name);
    if (std::string(Name) != "kept" && std::string(Name) != "plain") AddCOM(std::string(Name) + ".COM");
  }
  const TRawLog Old =
      LogOf(14, FileRecord("PLAIN", ToDelete) + FileRecord("server.com", Server) + FileRecord("Server", Server) +
                    FileRecord("library.com", Library) + FileRecord("LIBRARY", Library) +
                    FileRecord("both.com", ToDelete) + FileRecord("values", 0x50) + FileRecord("values.com", 0x11) +
                    FileRecord("values.com", 1) + Record(0x81, 0, FileRecord("type", 0).substr(10)) +
                    Record(0x82, 0, "\5first\6second\xFF") +     // only the first string counts
                    Record(0x82, 0, "\4kept\xFE\xFF\xFF\xFF") +  // damaged behind it
                    Record(0x82, 0, "\5kept") + Record(0x82, 0, ""));
  Write(LogName(), Old.Bytes());
  Process("some are there");
  std::string Added;
  for (const auto& [End, Kind] : {std::pair{"", ToDelete}, {".COM", Server}})
    for (const char* Name : {"both", "values", "type", "second"}) Added += FileRecord(std::string(Name) + End, Kind);
  EXPECT_TRUE(After(Old, 8, Added).Bytes() == Read(LogName()));
}

TEST_F(InstallerLog, StaysAsItIsWhenItIsNotUnderstoodOrACallFails) {
  AddFile("OLD");
  AddFile("new");
  Process("no folder");
  MakeFolders(Base("Uninstall"));
  Process("no file");
  EXPECT_EQ("<no file>", Read(LogName()));
  const TRawLog Good = LogOf(1, FileRecord("old", ToDelete));
  TRawLog Damaged = Good, Later = Good, GoesOn = Good;
  Damaged.Blocks.back() ^= 1;
  Later.Version = 46;
  GoesOn.Blocks += Block("?");
  for (const auto& [What, Raw] : {std::pair{"damaged", Damaged}, {"later", Later}, {"it goes on", GoesOn}}) {
    Write(LogName(), Raw.Bytes());
    Process(What);
    EXPECT_TRUE(Raw.Bytes() == Read(LogName())) << What;
  }
  Write(LogName(), Good.Bytes());
  // A code without a text; a file that is held as long as the first phase looks, ten times: the second one reads for
  // itself what it must keep.
  for (const auto& [Function, Plan] : {std::pair{"WriteFile", TFaultPlan{0, 1, ERROR_DISK_FULL}},
                                       {"WriteFile", {1, 1, ERROR_DISK_FULL}},
                                       {"SetEndOfFile", {0, 1, ERROR_DISK_FULL}},
                                       {"FlushFileBuffers", {0, 1, ERROR_DISK_FULL}},
                                       {"ReadFile", {0, 2, 0x2FFFFFFF}},
                                       {"CreateFileA", {0, 10, ERROR_SHARING_VIOLATION}}}) {
    const TFault Fault(Function, Plan);
    Process(Function);
    EXPECT_EQ(Good.Bytes().substr(448), Read(LogName()).substr(448, Good.Blocks.size())) << Function;
  }
  EXPECT_EQ(After(Good, 1, FileRecord("new", ToDelete)).Bytes(), Read(LogName()));
}

class SavedLists : public TStory {};

TEST_F(SavedLists, AreRestoredByTheFirstObjectThatCan) {
  const GUID Files = Stored("damaged"), Servers = Stored(std::string("\1\0\0\0", 4) + "c");
  History->Put(Guid("{5C1E8A42-7D3B-4F69-A0E2-91B4C6D8F031}"), 0, Files);
  History->Put(Guid("{A7D03F9E-26C4-4B85-9E71-3F0B8C52D6A4}"), 0, Servers);
  Begin();
  TComRef<IUInno> Inno;
  for (const char* Time : {"damaged", "mended"}) {
    Step(Time, CoCreateInstance(CLSID_UInno, nullptr, CLSCTX_INPROC_SERVER, IID_IUInno, Inno.OutVoid()));
    Write(ItemPath(Files), std::string("\1\0\0\0", 4) + "a.dll, \"b c.dll\"");
  }
  Tell(ListsOf(*Inno));
}

}  // namespace
