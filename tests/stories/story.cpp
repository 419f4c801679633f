#include "stories/story.h"

#include "base/numbers.h"
#include "support/process.h"

#include <algorithm>
#include <sstream>

namespace {

TMemoryLog* Lines = nullptr;
void Note(const std::string& What) { Lines->Lines.push_back({0, "", What, ""}); }

DWORD WINAPI NoteWait(HANDLE Handle, DWORD Milliseconds) {
  const DWORD Result = WaitForSingleObject(Handle, Milliseconds);
  Note("waits");
  return Result;
}
BOOL WINAPI NoteRelease(HANDLE Semaphore, LONG Count, LONG* Before) {
  Note("gives the semaphore");
  return ReleaseSemaphore(Semaphore, Count, Before);
}
BOOL WINAPI NoteLeave(HANDLE Mutex) {
  Note("gives the mutex");
  return ReleaseMutex(Mutex);
}

/// Not every platform keeps the creation time, so it is given here, and told on its way back.
BOOL WINAPI GetTimes(HANDLE File, FILETIME* Creation, FILETIME* Access, FILETIME* LastWrite) {
  const BOOL Result = GetFileTime(File, Creation, Access, LastWrite);
  *Creation = {0x12345678, 0x01C12345};
  return Result;
}
BOOL WINAPI NoteTimes(HANDLE File, const FILETIME* Creation, const FILETIME* Access, const FILETIME* LastWrite) {
  Note("created at " + std::to_string(Creation->dwHighDateTime) + " " + std::to_string(Creation->dwLowDateTime));
  return SetFileTime(File, Creation, Access, LastWrite);
}

void Replace(std::string& Text, const std::string& What, const std::string& By) {
  for (size_t At = 0; !What.empty() && (At = Text.find(What, At)) != std::string::npos; At += By.size())
    Text.replace(At, What.size(), By);
}

/// What is the same in two routines that do the same.
std::string WithoutGuids(std::string Text) {
  for (size_t At = 0; (At = Text.find('{', At)) != std::string::npos;) Text.erase(At, 38);
  return Text;
}

/// The class that a GUID names, or "".
std::string ClassName(const std::string& Id) {
  LPOLESTR Name = nullptr;
  if (FAILED(ProgIDFromCLSID(Guid(Id.c_str()), &Name))) return "";
  const TTaskMemory Memory(Name);
  std::string Words = LossyAnsi(Name);  // Mendwork.CLASS.VERSION
  return Words.substr(0, Words.rfind('.')).substr(Words.find('.') + 1);
}

}  // namespace

TStory::TStory()
    : Waits("WaitForSingleObject", NoteWait),
      Releases("ReleaseSemaphore", NoteRelease),
      Leaves("ReleaseMutex", NoteLeave),
      Gets("GetFileTime", GetTimes),
      Sets("SetFileTime", NoteTimes) {
  Lines = &Log();
  Begin();
}

void ExpectText(const std::string& Folder, const std::string& Name, const std::string& Found) {
  const std::string Path = "Z:" MENDWORK_TEST_FILES "/" + Folder + "/" + Name;
  const std::string Wanted = Exists(Path) ? Read(Path) : "", Left = BuiltFile("tests\\" + Folder + "\\" + Name);
  if (Wanted == Found) return;
  Write(Left, Found);
  const auto At = std::ranges::mismatch(Found, Wanted).in1 - Found.begin();
  const size_t Start = Found.substr(0, static_cast<size_t>(At)).rfind('\n') + 1;
  const auto Line = [Start](const std::string& Text) { return Text.substr(Start, Text.find('\n', Start) - Start); };
  ADD_FAILURE() << Name << ", line " << std::count(Found.begin(), Found.begin() + At, '\n') + 1 << ":\n  "
                << Line(Found) << "\ninstead of\n  " << Line(Wanted) << "\nwhole: " << Left;
}

void TStory::TearDown() {
  const testing::TestInfo& Test = *testing::UnitTest::GetInstance()->current_test_info();
  ExpectText("stories", std::string(Test.test_suite_name()) + "." + Test.name() + ".txt", Told);
}

void TStory::Begin() {
  Remember();
  Start = Last;
  Start.Entries.clear();
}

void TStory::Remember() {
  Log().Lines.clear();
  Dialog().Boxes.clear();
  Last = Now();
}

/// The system's own files, by kind and size where they are items.
TStory::TState TStory::Now() const {
  TState State{TreeOf(App()), RegistryTreeOf(WatchedKey), Entries(), {}, {}};
  for (const auto& [Name, Entry] : TreeOf(Service())) {
    const std::string Size = std::to_string(Entry.Content.size()) + ", ";
    if (Name.starts_with("Backup\\{"))
      State.Items.insert("item " + std::to_string(Entry.Content.empty() ? -1 : Entry.Content[0]) + " of " + Size);
    else if (Name.back() != '\\')
      State.Service += Name + " of " + Size;
  }
  return State;
}

/// The transaction log's entries, class and code.
std::string TStory::Entries() const {
  constexpr size_t Size = 36, CodeAt = 16, DataAt = 20;
  const std::string Content = Exists(Service("update.prt")) ? Read(Service("update.prt")) : "";
  const auto Id = [](const char* Bytes) { return GuidText(*reinterpret_cast<const GUID*>(Bytes)); };
  std::string Result;
  for (const char* At = Content.data(); At + Size <= Content.data() + Content.size(); At += Size)
    Result += Id(At) + " " + std::to_string(NumberAt<int>(At + CodeAt)) + " " + Id(At + DataAt) + ", ";
  return Result + (Content.size() % Size ? "torn" : "");
}

/// What changes from run to run gets a name.
std::string TStory::Plain(std::string Text) const {
  constexpr size_t GuidSize = 38;
  for (const DWORD Code : {2, 3, 5, 32, 112, 123, 126, 127, 183, 193, 234})
    Replace(Text, SystemText(Code), "<" + std::to_string(Code) + ">");
  Replace(Text, "Updates\\Mendwork64", "Updates\\Mendwork");  // each build has a folder of its own
  Replace(Text, Root(), "R:");
  std::string Slashes = Root();
  std::replace(Slashes.begin(), Slashes.end(), '\\', '/');
  Replace(Text, Slashes, "R:");
  Replace(Text, "\r\n", "|");
  for (size_t At = 0; (At = Text.find('{', At)) != std::string::npos && At + GuidSize <= Text.size();) {
    const std::string Id = Text.substr(At, GuidSize);
    if (Id.back() != '}') break;
    auto Known = std::ranges::find(GuidNames, Id);
    std::string Name = ClassName(Id);
    if (Name.empty() && Known == GuidNames.end()) Known = GuidNames.insert(GuidNames.end(), Id);
    if (Name.empty()) Name = "#" + std::to_string(Known - GuidNames.begin());
    Text.replace(At, GuidSize, Name);
  }
  // A wrapper tells an open key by its name and its handle.
  const size_t Key = Text.find(' ', Text.find(" HKEY_") + 1);
  if (Text.find(" HKEY_") != std::string::npos && Key != std::string::npos)
    Text.replace(Key + 1, Text.find_first_not_of("0123456789", Key + 1) - Key - 1, "handle");
  std::string Result;
  for (const char Byte : Text) {
    char Code[8] = {Byte};
    if (Byte < ' ') std::snprintf(Code, sizeof Code, "\\x%02X", Byte & 0xFF);
    Result += Code;
  }
  return Result.substr(0, Result.find_last_not_of(" ,") + 1);
}

void TStory::TellLines() {
  using TLine = TMemoryLog::TLine;
  const std::vector<TLine>& All = Log().Lines;
  const auto First = std::ranges::find_if(All, [](const TLine& Line) { return Line.Id != 0; });
  for (auto At = All.begin(); At != All.end(); ++At) {
    const bool Wrapper = At->Name == "Common", Begins = At->Action == "Begin";
    // A wrapper's bare End says nothing new.
    if (Wrapper && At->Action == "End" && At->Text.find(' ') == std::string::npos) continue;
    std::string Words = Wrapper && At->Text.starts_with("Retry") ? At->Text.substr(5) : At->Text;
    const auto Ends = [&](const TLine& Line) { return Line.Action == "End" && Line.Id == At->Id; };
    if (Wrapper && Begins && std::none_of(At, All.end(), Ends)) Words += ", no end";
    if (!Wrapper || !Begins) Words = At->Action + (Words.empty() ? "" : " " + Words);
    if (!Wrapper && Begins) {
      const auto End = std::find_if(At + 1, All.end(), [&](const TLine& Line) { return Line.Id == At->Id; });
      std::string Routine;
      for (auto Inner = At; Inner != End; ++Inner)
        Routine += std::to_string(Inner->Id ? Inner->Id - At->Id : 0) + Inner->Action + WithoutGuids(Inner->Text);
      if (End != All.end() && !Routines.insert(Routine + WithoutGuids(End->Text)).second)
        At = End, Words += " ... as before";
    }
    Tell(At->Id == 0 ? "      " + At->Action
                     : "    " + std::to_string(At->Id - First->Id) + " " + (Wrapper ? "" : At->Name + " ") + Words);
  }
}

void TStory::TellChanges(const TState& Since) {
  const TState State = Now();
  std::istringstream Changes(Difference(Since.App, State.App) + Difference(Since.Keys, State.Keys));
  for (std::string Line; std::getline(Changes, Line);) Tell("  " + Line);
  // Of a log that has grown, what is new.
  if (State.Entries != Since.Entries)
    Tell(State.Entries.starts_with(Since.Entries) ? "  new entries: " + State.Entries.substr(Since.Entries.size())
                                                  : "  entries: " + State.Entries);
  if (State.Service != Since.Service) Tell("  service: " + State.Service);
  std::vector<std::string> New;
  std::ranges::set_difference(State.Items, Since.Items, std::back_inserter(New));
  std::string Items;
  for (const std::string& Item : New) Items += Item;
  if (!Items.empty()) Tell("  new: " + Items);
}

void TStory::TellStep(const std::string& What, HRESULT Result, bool Lines) {
  std::ostringstream Code;
  Code << std::hex << Result;
  Tell(What + ": " + (Result == S_OK ? "ok" : Code.str() + (FAILED(Result) ? " " + ErrorText() : "")));
  if (Lines) TellLines();
  for (const TScriptedDialog::TBox& Box : Dialog().Boxes)
    Tell("  box " + std::to_string(Box.MsgType) + " " + Box.Caption + ": " + Box.Text);
  TellChanges(Last);
  Remember();
}

void TStory::UndoAll() {
  const HRESULT Result = RollBack();
  Tell(std::string("undone: ") + (Result == S_OK ? "ok" : ErrorText()));
  Start.Service = Now().Service, Start.Items = Now().Items;
  TellChanges(Start);
  Remember();
}

void TStory::TellError(const std::string& Description) {
  TComRef<ICreateErrorInfo> Maker;
  TComRef<IErrorInfo> Info;
  CreateErrorInfo(Maker.Out());
  Maker->SetDescription(Text(Description));
  Maker->QueryInterface(IID_IErrorInfo, Info.OutVoid());
  SetErrorInfo(0, Info.Get());
}

std::string TStory::RecordOf(const GUID& Id, int Code, const GUID& DataID) {
  const auto Bytes = [](const auto& Field) { return std::string(reinterpret_cast<const char*>(&Field), sizeof Field); };
  return Bytes(Id) + Bytes(Code) + Bytes(DataID);
}

GUID TStory::Stored(const std::string& Content) {
  const GUID DataID = NumberedGuid(++StoredItems);
  Write(ItemPath(DataID), Content);
  return DataID;
}
