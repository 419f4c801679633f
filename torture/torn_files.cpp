// Torn files: a file of the system, or one that it registers, cut at every length, and with a flipped byte at every
// offset. The next operation succeeds or fails with a message; it ends, and it destroys nothing that was whole.

#include "torture.h"
#include "update.h"

#include <fstream>
#include <functional>
#include <sstream>

namespace {

/// Files of the application that the operations may change: one is in an item, one is new.
constexpr char SavedFile[] = "docs\\one.txt", CopiedFile[] = "new.dll";
/// Of a process that tears, when contents are left to be tried.
constexpr int MoreStatus = 3;

/// The state that is torn: a log, a group, an item of every kind, the lists, which reach nothing but the rubbish.
struct TState : TUpdater {
  GUID String{}, Data{}, Files{}, Value{}, Key{};
  const GUID Group = NumberedGuid(21);

  explicit TState(const std::string& Root) : TUpdater(Root) {
    const std::string Rubbish = Root + "\\Rubbish";
    char Bytes[] = "some bytes";
    const HRESULT Results[] = {
        Backup->BackupString(Text("a text of some length"), &String),
        Backup->BackupData(Bytes, sizeof Bytes, &Data),
        Backup->BackupFilesLogged(Text(Places.App(SavedFile)), No, No, No, &Files),
        Backup->BackupRegKeyValueLogged(User, KeyName(), Text("Version"), &Value),
        Backup->BackupRegKeyLogged(User, KeyName("Watched"), Yes, &Key),
        Log->PutCheckPoint(NumberedGuid(22)),
        File->CopyFileLogged(Text(Places.Package("plugin.dll")), Text(Places.App(CopiedFile)), 0),
        History->Put(Group, 0, NumberedGuid(0)),
        History->Put(Group, 1, NumberedGuid(1)),
        Garbage->PutFile(Text(Rubbish + "\\file.txt")),
        Garbage->PutFile(Text(Rubbish + "\\none.txt")),
        Garbage->PutDirectory(Text(Rubbish + "\\folder")),
        Garbage->PutRegKey(User, Text("Software\\MendworkRubbish\\Key")),
        Garbage->PutRegKeyValue(User, Text("Software\\MendworkRubbish"), Text("a b")),
        Inno->AddFile(Text("C:\\new"))};
    for (const HRESULT Result : Results) Must(SUCCEEDED(Result), "the state to be torn cannot be made");
  }
};

/// An operation that meets the file.
struct TOperation {
  std::string Name;
  HRESULT (*Run)(TState& State);
};

HRESULT RestoreString(TState& State) { return State.Backup->RestoreString(State.String, State.Content.Out()); }
HRESULT RestoreData(TState& State) {
  void* Bytes = nullptr;
  long Size = 0;
  const HRESULT Result = State.Backup->RestoreData(State.Data, &Bytes, &Size);
  CoTaskMemFree(Bytes);
  return Result;
}
HRESULT RestoreValue(TState& State) { return State.Backup->RestoreRegKeyValue(State.Value); }
HRESULT RestoreKey(TState& State) { return State.Backup->RestoreRegKey(State.Key); }
HRESULT TellInstaller(TState& State) { return State.Inno->ProcessInno(); }
HRESULT RestoreFiles(TState& State) { return State.Backup->RestoreFiles(State.Files); }

/// Registers a type library, however little of it is left, and unregisters it.
HRESULT RegisterTypes(TState& State) {
  const Text Name(State.Places.App("types.TLB"));
  const HRESULT Result = State.Com->RegTLB(Name);
  return SUCCEEDED(Result) ? State.Com->UnRegTLB(Name) : Result;
}

const std::vector<TOperation> LogOperations = {
    {"Put", [](TState& State) { return State.Log->Put(CLSID_UCanRollback, 1, NumberedGuid(1)); }},
    {"PutCheckPoint", [](TState& State) { return State.Log->PutCheckPoint(NumberedGuid(1)); }},
    {"Rollback", [](TState&) { return RollBack(); }},
    {"Rollback to the check point", [](TState&) { return RollBack(Yes); }}};
const std::vector<TOperation> HistoryOperations = {
    {"Get", [](TState& State) { return State.ReadGroup(State.Group); }},
    {"Put", [](TState& State) { return State.History->Put(State.Group, 5, NumberedGuid(5)); }},
    {"DeleteLastRecord", [](TState& State) { return State.History->DeleteLastRecord(State.Group); }}};
const std::vector<TOperation> GarbageOperations = {
    {"Garbage", [](TState& State) { return State.Garbage->Garbage(); }},
    {"PutFile", [](TState& State) { return State.Garbage->PutFile(Text("C:\\none")); }},
    {"PutDirectory", [](TState& State) { return State.Garbage->PutDirectory(Text("C:\\none")); }}};

using TFileName = std::function<std::string(const TState& State)>;
TFileName Named(const std::string& Name) {
  return [=](const TState&) { return Name; };
}
TFileName Item(GUID TState::*DataID) {
  return [=](const TState& State) { return "Backup\\" + GuidText(State.*DataID); };
}
std::string GroupName(const TState& State) { return "History\\" + GuidText(State.Group); }
/// The set names its file behind its tag and the number of its files.
std::string FileItem(const TState& State) {
  const std::string Set = Read(State.Places.Service("Backup\\" + GuidText(State.Files)));
  GUID File;
  std::memcpy(&File, Set.data() + 8, sizeof File);
  return "Backup\\" + GuidText(File);
}

/// A file of the service folder that is torn, and what is done then.
struct TTorn {
  std::string Name;
  TFileName File;
  std::vector<TOperation> Operations;
  /// What is torn is a left-over backup copy of the file.
  bool IsCopy = false;
};
const std::vector<TTorn> Kinds = {
    {"transaction log", Named("update.prt"), LogOperations},
    {"copy of the transaction log", Named("update.prt"), LogOperations, true},
    {"history group", GroupName, HistoryOperations},
    {"copy of a history group", GroupName, HistoryOperations, true},
    {"string item", Item(&TState::String), {{"RestoreString", RestoreString}}},
    {"data item", Item(&TState::Data), {{"RestoreData", RestoreData}}},
    {"file-set item", Item(&TState::Files), {{"RestoreFiles", RestoreFiles}}},
    {"file item", FileItem, {{"RestoreFiles", RestoreFiles}}},
    {"value item", Item(&TState::Value), {{"RestoreRegKeyValue", RestoreValue}}},
    {"key item", Item(&TState::Key), {{"RestoreRegKey", RestoreKey}}},
    {"garbage list of files", Named("Garbage\\Files.grb"), GarbageOperations},
    {"garbage list of folders", Named("Garbage\\Dirs.grb"), GarbageOperations},
    {"garbage list of keys", Named("Garbage\\RKeys.grb"), GarbageOperations},
    {"garbage list of values", Named("Garbage\\RKeyVals.grb"), GarbageOperations},
    {"type library", Named("..\\..\\..\\App\\types.TLB"), {{"RegTLB", RegisterTypes}}},
    {"uninstall log", Named("..\\..\\Uninstall\\unins000.dat"), {{"ProcessInno", TellInstaller}}},
};

/// What a torn file has: it is cut at every length, then a byte is flipped at every offset.
std::string TornContent(const std::string& Whole, size_t Number) {
  if (Number < Whole.size()) return Whole.substr(0, Number);
  std::string Content = Whole;
  char& Flipped = Content.at(Number - Whole.size());
  Flipped = static_cast<char>(~Flipped);
  return Content;
}

bool IsList(const std::string& Name) { return Name.starts_with("Garbage\\"); }

/// The process that tears: one kind, one operation.
struct TTearing {
  const TTorn& Kind;
  const TOperation& Operation;
  TState State;
  const TPlaces& Places = State.Places;
  const std::string Name = Kind.File(State);  ///< a copy takes its file's place when it is met
  const TTree Service = TreeOf(Places.Service()), App = TreeOf(Places.App());

  /// What is wrong after the operation has met this content, or "".
  std::string TryOne(const std::string& Content) {
    Plant(Places.Service(), Service);
    Plant(Places.App(), App);
    const std::string Path = Places.Service(Name + (Kind.IsCopy ? ".bkp" : ""));
    Write(Path, Content);
    const HRESULT Result = Operation.Run(State);
    if (FAILED(Result) && ErrorText().empty()) return "failed without a message";
    if (Result != S_OK && SUCCEEDED(Result)) return "an odd success";
    // A last line of a list that is not whole is none, and need not be kept; what of a log is no whole record is kept
    // beside it.
    const std::string AsidePath = Places.Service(Name + ".damaged1"), Aside = Exists(AsidePath) ? Read(AsidePath) : "";
    const size_t Whole = IsList(Name) ? Content.rfind("\r\n") + 1 : Content.size() - Aside.size();
    const std::string Kept = Content.substr(0, Whole);
    const std::string Left = Read(Exists(Path) ? Path : Places.Service(Name));
    // The entries behind the damage that a rollback had undone by then are gone.
    const bool Undone = Operation.Name.starts_with("Rollback") && !Left.empty() && Content.starts_with(Left);
    const bool SetAside = !Aside.empty() && Left == Kept;
    if (FAILED(Result) && Left != Content && !Undone && !SetAside) return "failed and changed the torn file";
    if (!Content.ends_with(Aside)) return "set aside something else";
    if (SUCCEEDED(Result) && Operation.Name.starts_with("Put") && !Read(Places.Service(Name)).starts_with(Kept))
      return "put, and lost what was there";
    if (Operation.Name == "ProcessInno" && Left != Content && UninstallRecordsOf(Left) != UninstallRecords + 1)
      return "wrote to a damaged log";
    for (const auto& [Before, Now] : {std::pair(&Service, TreeOf(Places.Service())), {&App, TreeOf(Places.App())}})
      for (const auto& [Other, Entry] : *Before) {
        const bool Own = Other.starts_with(Name) || Name.ends_with("\\" + Other) || (IsList(Name) && IsList(Other)) ||
                         Other.ends_with("\\") || Other == SavedFile || Other == CopiedFile;
        const auto Found = Now.find(Other);
        if (!Own && (Found == Now.end() || Found->second.Content != Entry.Content)) return "destroyed " + Other;
      }
    return "";
  }
};

/// torn ROOT KIND OPERATION FIRST STRIDE TOLD-FILE: some contents from a number on, not so many that the process could
/// be taken for one that hangs. Each is told before it is tried, so that the one that ended the process is known.
const TRole Torn("torn", [](const TWords& Words, TScriptedDialog&) {
  constexpr int MostAtOnce = 100;
  const TTorn& Kind = Kinds.at(std::stoul(Words.at(1)));
  TTearing Tearing{Kind, Kind.Operations.at(std::stoul(Words.at(2))), TState(Words.at(0))};
  const std::string Path = Tearing.Places.Service(Tearing.Name), Whole = Read(Path);
  Must(Exists(Path), "there is no " + Path);
  const TNoPauses NoPauses;
  std::ofstream Told(Words.at(5), std::ios::binary);
  size_t At = std::stoul(Words.at(3));
  for (int Left = MostAtOnce; Left > 0 && At < 2 * Whole.size(); --Left, At += std::stoul(Words.at(4))) {
    Told << At << ' ' << std::flush;
    Told << Tearing.TryOne(TornContent(Whole, At)) << std::endl;
  }
  return At < 2 * Whole.size() ? MoreStatus : 0;
});

/// Lets processes tear until every content was tried; one that a content ends is followed by another.
void Tear(TMachine& Machine, size_t KindNumber, size_t OperationNumber, size_t Stride, TResult& Result) {
  const TTorn& Kind = Kinds[KindNumber];
  const std::string Who = Kind.Name + ", " + Kind.Operations[OperationNumber].Name + ": ";
  const std::string ToldFile = Machine.Root() + "\\torn.txt";
  for (size_t First = 0;;) {
    Machine.LayOut();
    DeleteFileA(ToldFile.c_str());
    const DWORD Status = TChild({"torn", Machine.Root(), std::to_string(KindNumber), std::to_string(OperationNumber),
                                 std::to_string(First), std::to_string(Stride), ToldFile})
                             .Wait();
    std::istringstream Told(Read(ToldFile));
    bool Died = false;
    const size_t Begin = First;
    for (size_t At; Told >> At; First = At + Stride) {
      std::string Wrong;
      Told.ignore();
      std::getline(Told, Wrong);
      Died = Told.eof();
      if (Died) Wrong = "the process died or hung";
      Result.Count(Wrong.empty(), Who + Wrong + ", content " + std::to_string(At));
    }
    if (Status == 0) return;
    if (Status != MoreStatus && !Died) Result.Count(false, Who + "ended with status " + std::to_string(Status));
    if (First == Begin) return;  // it never began
  }
}

}  // namespace

TResult TornFiles(const TPlan& Plan) {
  TMachine Machine;
  constexpr size_t QuickStride = 7;
  TResult Result;
  size_t Number = 0;
  for (size_t Kind = 0; Kind < Kinds.size(); ++Kind)
    for (size_t Operation = 0; Operation < Kinds[Kind].Operations.size(); ++Operation)
      if (Plan.Takes(Number++, Kinds[Kind].Name)) Tear(Machine, Kind, Operation, Plan.Full ? 1 : QuickStride, Result);
  return Result;
}
