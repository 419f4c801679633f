// Torn files: a file of the system cut at every length, and with a flipped byte at every offset. The next operation
// succeeds or fails with a message; it ends, and it destroys nothing that was whole.

#include "support/memory_file.h"
#include "torture.h"
#include "update.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr unsigned long User = 0x80000001;
constexpr size_t CopyExtension = 4;  // ".bkp"
/// Files of the application that the operations may change: one is in an item, one is new.
constexpr char SavedFile[] = "docs\\one.txt", CopiedFile[] = "new.dll";

/// The state that is torn: a log, two groups, an item of every kind.
struct TState {
  TUpdater Updater;
  GUID String{}, Data{}, Files{}, Value{}, Key{};
  const GUID Group = NumberedGuid(21);

  explicit TState(const std::string& Root) : Updater(Root) { Make(); }
  void Make();
  HRESULT Restore(const GUID& DataID, const std::string& Kind);
  std::string ItemName(const GUID& DataID) const { return "Backup\\" + GuidText(DataID); }
};

HRESULT PutGarbage(TState& State);

void TState::Make() {
  const auto Succeed = [](HRESULT Result) { Must(SUCCEEDED(Result), "the state to be torn cannot be made"); };
  TUpdater& U = Updater;
  const VARIANT_BOOL Yes = VARIANT_TRUE, No = VARIANT_FALSE;
  char Bytes[] = "some bytes";
  Succeed(U.Backup->BackupString(Text("a text of some length"), &String));
  Succeed(U.Backup->BackupData(Bytes, sizeof Bytes, &Data));
  Succeed(U.Backup->BackupFilesLogged(Text(U.Places.App(SavedFile)), No, No, No, &Files));
  Succeed(U.Backup->BackupRegKeyValueLogged(User, Text("Software\\MendworkTorture"), Text("Version"), &Value));
  Succeed(U.Backup->BackupRegKeyLogged(User, Text("Software\\MendworkTorture\\Watched"), Yes, &Key));
  Succeed(U.Log->PutCheckPoint(NumberedGuid(22)));
  Succeed(U.File->CopyFileLogged(Text(U.Places.Package("plugin.dll")), Text(U.Places.App(CopiedFile)), 0));
  for (int At = 0; At < 2; ++At) Succeed(U.History->Put(Group, At, NumberedGuid(At)));
  Succeed(PutGarbage(*this));
  Succeed(U.Inno->AddFile(Text("C:\\new")));
}

/// An operation that meets the file.
struct TOperation {
  const char* Name;
  HRESULT (*Run)(TState& State);
  bool Is(const std::string& Begin) const { return std::string(Name).starts_with(Begin); }
};

HRESULT GetRecord(TState& State) {
  long Code = 0;
  GUID DataID{};
  VARIANT_BOOL NoMore = 0, CheckPoint = 0;
  return State.Updater.History->Get(State.Group, &Code, &DataID, &NoMore, &CheckPoint);
}
HRESULT RestoreString(TState& State) {
  TBstr Result;
  return State.Updater.Backup->RestoreString(State.String, Result.Out());
}
HRESULT RestoreData(TState& State) {
  void* Bytes = nullptr;
  long Size = 0;
  const HRESULT Result = State.Updater.Backup->RestoreData(State.Data, &Bytes, &Size);
  CoTaskMemFree(Bytes);
  return Result;
}

const std::vector<TOperation> LogOperations = {
    {"Put", [](TState& State) { return State.Updater.Log->Put(CLSID_UCanRollback, 1, NumberedGuid(1)); }},
    {"PutCheckPoint", [](TState& State) { return State.Updater.Log->PutCheckPoint(NumberedGuid(1)); }},
    {"Rollback", [](TState&) { return RollBack(); }},
    {"Rollback to the check point", [](TState&) { return RollBack(VARIANT_TRUE); }}};
const std::vector<TOperation> HistoryOperations = {
    {"Get", GetRecord},
    {"Put", [](TState& State) { return State.Updater.History->Put(State.Group, 5, NumberedGuid(5)); }},
    {"DeleteLastRecord", [](TState& State) { return State.Updater.History->DeleteLastRecord(State.Group); }}};

/// The lists are put once for each content, and reach nothing but the rubbish.
HRESULT PutGarbage(TState& State) {
  IUGarbage& Garbage = *State.Updater.Garbage.Get();
  const std::string Rubbish = State.Updater.Places.Root + "\\Rubbish";
  const HRESULT Puts[] = {Garbage.PutFile(Text(Rubbish + "\\file.txt")), Garbage.PutFile(Text(Rubbish + "\\none.txt")),
                          Garbage.PutDirectory(Text(Rubbish + "\\folder")),
                          Garbage.PutRegKey(User, Text("Software\\MendworkRubbish\\Key")),
                          Garbage.PutRegKeyValue(User, Text("Software\\MendworkRubbish"), Text("a b"))};
  const auto Failed = std::find_if(std::begin(Puts), std::end(Puts), [](HRESULT Result) { return FAILED(Result); });
  return Failed == std::end(Puts) ? S_OK : *Failed;
}
const std::vector<TOperation> GarbageOperations = {
    {"Garbage", [](TState& S) { return S.Updater.Garbage->Garbage(); }},
    {"PutFile", [](TState& S) { return S.Updater.Garbage->PutFile(Text("C:\\none")); }},
    {"PutDirectory", [](TState& S) { return S.Updater.Garbage->PutDirectory(Text("C:\\none")); }}};

/// A file of the service folder that is torn, and what is done then.
struct TTorn {
  const char* Name;
  std::string (*File)(const TState& State);
  std::vector<TOperation> Operations;
  /// The file is a left-over backup copy; what is torn is the content of the file that it is the copy of.
  bool IsCopy = false;
};

std::string LogName(const TState&) { return "update.prt"; }
std::string LogCopyName(const TState&) { return "update.prt.bkp"; }
std::string GroupName(const TState& State) { return "History\\" + GuidText(State.Group); }
std::string GroupCopyName(const TState& State) { return GroupName(State) + ".bkp"; }

const std::vector<TTorn> Kinds = {
    {"transaction log", LogName, LogOperations},
    {"copy of the transaction log", LogCopyName, LogOperations, true},
    {"history group", GroupName, HistoryOperations},
    {"copy of a history group", GroupCopyName, HistoryOperations, true},
    {"string item", [](const TState& S) { return S.ItemName(S.String); }, {{"RestoreString", RestoreString}}},
    {"data item", [](const TState& S) { return S.ItemName(S.Data); }, {{"RestoreData", RestoreData}}},
    {"file-set item",
     [](const TState& S) { return S.ItemName(S.Files); },
     {{"RestoreFiles", [](TState& S) { return S.Updater.Backup->RestoreFiles(S.Files); }}}},
    {"file item",
     [](const TState& S) {
       // The set names it behind its tag and the number of its files.
       const std::string Set = Read(S.Updater.Places.Service(S.ItemName(S.Files)));
       GUID File;
       std::memcpy(&File, Set.data() + 8, sizeof File);
       return S.ItemName(File);
     },
     {{"RestoreFiles", [](TState& S) { return S.Updater.Backup->RestoreFiles(S.Files); }}}},
    {"value item",
     [](const TState& S) { return S.ItemName(S.Value); },
     {{"RestoreRegKeyValue", [](TState& S) { return S.Updater.Backup->RestoreRegKeyValue(S.Value); }}}},
    {"key item",
     [](const TState& S) { return S.ItemName(S.Key); },
     {{"RestoreRegKey", [](TState& S) { return S.Updater.Backup->RestoreRegKey(S.Key); }}}},
    {"garbage list of files", [](const TState&) { return std::string("Garbage\\Files.grb"); }, GarbageOperations},
    {"garbage list of folders", [](const TState&) { return std::string("Garbage\\Dirs.grb"); }, GarbageOperations},
    {"garbage list of keys", [](const TState&) { return std::string("Garbage\\RKeys.grb"); }, GarbageOperations},
    {"garbage list of values", [](const TState&) { return std::string("Garbage\\RKeyVals.grb"); }, GarbageOperations},
    {"uninstall log",
     [](const TState&) { return std::string("..\\..\\Uninstall\\unins000.dat"); },
     {{"ProcessInno", [](TState& S) { return S.Updater.Inno->ProcessInno(); }}}},
};

/// Every content that a torn file may have: cut at every length, then a byte flipped at every offset.
std::vector<std::string> TornContents(const std::string& Whole) {
  std::vector<std::string> Contents;
  for (size_t Length = 0; Length < Whole.size(); ++Length) Contents.push_back(Whole.substr(0, Length));
  for (size_t At = 0; At < Whole.size(); ++At) {
    Contents.push_back(Whole);
    Contents.back()[At] = static_cast<char>(~Contents.back()[At]);
  }
  return Contents;
}

/// The process that tears: one kind, one operation, some contents from a number on, not so many that it could be taken
/// for one that hangs. Each is written to a file before it is tried, so that the one that ended the process is known.
class TTearing {
 public:
  explicit TTearing(const TWords& Words)
      : Machine{Words.at(0)},
        Kind(Kinds.at(std::stoul(Words.at(1)))),
        Operation(Kind.Operations.at(std::stoul(Words.at(2)))),
        Stride(std::stoul(Words.at(4))),
        State(Words.at(0)),
        Told(std::fopen(Words.at(5).c_str(), "ab")) {}
  int Run(size_t First);

 private:
  std::string TryOne(const std::string& Content);
  std::string WholeLines(const std::string& Content) const;
  static bool HasTheNewRecord(const std::string& Content);
  std::string Destroyed(const std::string& Own) const;
  static bool IsList(const std::string& File) { return File.starts_with("Garbage\\"); }

  const TPlaces Machine;
  const TTorn& Kind;
  const TOperation& Operation;
  const size_t Stride;
  TState State;
  std::FILE* const Told;
  std::string Name;
  TTree Service, App;
};

/// What is wrong, or "".
std::string TTearing::TryOne(const std::string& Content) {
  Plant(Machine.Service(), Service);
  Plant(Machine.App(), App);
  const std::string Path = Machine.Service(Name);
  Write(Path, Content);
  const HRESULT Result = Operation.Run(State);
  const std::string Message = FAILED(Result) ? ErrorText() : "";
  if (FAILED(Result) && Message.empty()) return "failed without a message";
  if (Result != S_OK && SUCCEEDED(Result)) return "an odd success";
  // A copy takes its file's place when it is met.
  const std::string Own = Kind.IsCopy ? Name.substr(0, Name.size() - CopyExtension) : Name;
  const std::string Left = Read(Exists(Path) ? Path : Machine.Service(Own));
  // The entries behind the damage that a rollback had undone by then are gone.
  const bool Undone = Operation.Is("Rollback") && !Left.empty() && Content.starts_with(Left);
  if (FAILED(Result) && Left != Content && !Undone) return "failed and changed the torn file";
  if (SUCCEEDED(Result) && Operation.Is("Put") && !Read(Machine.Service(Own)).starts_with(WholeLines(Content)))
    return "put, and lost what was there";
  if (Operation.Is("ProcessInno") && Left != Content && !HasTheNewRecord(Left)) return "wrote to a damaged log";
  return Destroyed(Own);
}

/// What an append keeps: a last line of a list that is not whole is none.
std::string TTearing::WholeLines(const std::string& Content) const {
  if (!IsList(Name)) return Content;
  const size_t End = Content.rfind("\r\n");
  return End == std::string::npos ? "" : Content.substr(0, End);
}

bool TTearing::HasTheNewRecord(const std::string& Content) {
  try {
    TUninstallLog Log;
    LoadFrom(Content, Log);
    return Log.Count() == UninstallRecords + 1;
  } catch (const EUninstallLogError&) {
    return false;
  }
}

/// A file that the operation has no business with and that is not as it was; or "".
std::string TTearing::Destroyed(const std::string& Own) const {
  const auto Find = [](const TTree& Before, const TTree& Now, auto May) {
    for (const auto& [Other, Entry] : Before) {
      const auto Found = Now.find(Other);
      const bool Same = Found != Now.end() && Found->second.Content == Entry.Content;
      if (!Same && !Other.ends_with("\\") && !May(Other)) return "destroyed " + Other;
    }
    return std::string();
  };
  const std::string OfSystem = Find(Service, TreeOf(Machine.Service()), [&](const std::string& Other) {
    return Other.starts_with(Own) || (IsList(Name) && IsList(Other));
  });
  if (!OfSystem.empty()) return OfSystem;
  return Find(App, TreeOf(Machine.App()),
              [](const std::string& Other) { return Other == SavedFile || Other == CopiedFile; });
}

int TTearing::Run(size_t First) {
  Name = Kind.File(State);
  const std::string Original = Machine.Service(Kind.IsCopy ? Name.substr(0, Name.size() - CopyExtension) : Name);
  Must(Exists(Original), "there is no " + Original);
  const std::string Whole = Read(Original);
  Service = TreeOf(Machine.Service());
  App = TreeOf(Machine.App());
  const std::vector<std::string> Contents = TornContents(Whole);
  constexpr size_t MostAtOnce = 100;
  const size_t End = std::min(Contents.size(), First + MostAtOnce * Stride);
  for (size_t At = First; At < End; At += Stride) {
    std::fprintf(Told, "%u ", static_cast<unsigned>(At));
    std::fflush(Told);
    const std::string Wrong = TryOne(Contents[At]);
    std::fprintf(Told, "%s\n", Wrong.c_str());
    std::fflush(Told);
  }
  std::fprintf(Told, End < Contents.size() ? "more\n" : "end\n");
  return std::fclose(Told);
}

/// Lets processes tear until every content was tried; one that a content ends is followed by another.
void Tear(TMachine& Machine, size_t KindNumber, size_t OperationNumber, size_t Stride, TResult& Result) {
  const TTorn& Kind = Kinds[KindNumber];
  const std::string Who = std::string(Kind.Name) + ", " + Kind.Operations[OperationNumber].Name;
  const std::string ToldFile = Machine.Root() + "\\told.txt";
  DeleteFileA(ToldFile.c_str());
  size_t First = 0;
  for (;;) {
    bool Ended = false, More = false;
    Machine.LayOut();
    DeleteFileA(ToldFile.c_str());
    const DWORD Status = TChild({"torn", Machine.Root(), std::to_string(KindNumber), std::to_string(OperationNumber),
                                 std::to_string(First), std::to_string(Stride), ToldFile})
                             .Wait();
    const std::string Told = Exists(ToldFile) ? Read(ToldFile) : "";
    size_t Begin = 0, Tried = 0;
    for (size_t End; (End = Told.find('\n', Begin)) != std::string::npos; Begin = End + 1) {
      const std::string Line = Told.substr(Begin, End - Begin);
      Ended = Ended || Line == "end";
      More = More || Line == "more";
      if (Ended || More) continue;
      const size_t Blank = Line.find(' ');
      First = std::stoul(Line) + Stride;
      ++Result.Cases, ++Tried;
      if (Blank + 1 == Line.size())
        ++Result.Good;
      else
        Result.Bad.push_back(Who + ", content " + Line);
    }
    if ((Ended || More) && Status != 0) {
      ++Result.Cases;
      Result.Bad.push_back(Who + ": the process ended with status " + std::to_string(Status));
    }
    if (Ended) return;
    if (More) continue;
    ++Result.Cases;
    Result.Bad.push_back(Who + ": the process died or hung at content " + Told.substr(Begin));
    if (Tried == 0 && Begin == Told.size()) return;  // it never began
    if (Begin < Told.size()) First = std::stoul(Told.substr(Begin)) + Stride;
  }
}

/// torn ROOT KIND OPERATION FIRST STRIDE TOLD-FILE
const TRole Torn("torn", [](const TWords& Words, TScriptedDialog&) {
  TTearing Tearing(Words);
  const TNoPauses NoPauses;
  return Tearing.Run(std::stoul(Words.at(3)));
});

}  // namespace

TResult TornFiles(const TPlan& Plan) {
  TMachine Machine;
  constexpr size_t QuickStride = 7;
  TResult Result;
  size_t Number = 0;
  for (size_t Kind = 0; Kind < Kinds.size(); ++Kind)
    for (size_t Operation = 0; Operation < Kinds[Kind].Operations.size(); ++Operation)
      if (Plan.Takes(Number++, Kinds[Kind].Name)) {
        Tear(Machine, Kind, Operation, Plan.Full ? 1 : QuickStride, Result);
      }
  return Result;
}
