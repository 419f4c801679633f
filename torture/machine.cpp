#include "machine.h"

#include "base/text.h"
#include "support/module_calls.h"
#include "support/sandbox.h"
#include "unflushed.h"

#include <algorithm>
#include <optional>
#include <sstream>

namespace {

/// By one of its classes.
TComRef<IClassFactory> LoadModule(const CLSID& ClassId) {
  TComRef<IClassFactory> Loaded;
  const HRESULT Result = CoGetClassObject(ClassId, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid());
  Must(SUCCEEDED(Result), "the library and its kit are not registered");
  return Loaded;
}

/// The one server, and what is not registered before an update: the other one and no type library.
void SetClasses(bool Server, bool Others) {
  RunSystemProgram("regsvr32.exe", (Server ? "/s " : "/s /u ") + RegisteredServer());
  RunSystemProgram("regsvr32.exe", (Others ? "/s " : "/s /u ") + UnregisteredServer());
  if (!Others) UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, LANG_NEUTRAL, OwnKind);
}

constexpr char KitWord[] = "kit", PlainWord[] = "plain";

std::string ToldFile(const std::string& Root) { return Root + "\\told.txt"; }

/// change ROOT FORM update|rollback EVENT POINT: see module_calls.h for the event at a point; "power" is "after", and
/// tells what was not flushed.
/// change ROOT FORM fault FUNCTION NTH CODE ANSWER: makes the update; the user meets the failing call with one answer,
/// and who retries gives up when it does not help. Some of those who give up roll back in the same process. Without a
/// FUNCTION all calls are counted. In the kit's form they are the kit's own.
const TRole Change("change", [](const TWords& Words, TScriptedDialog& User) {
  constexpr int MostRetries = 4;  // as often as a call fails
  constexpr long Kinds = 15;
  const std::string &Root = Words.at(0), &What = Words.at(2), &Event = Words.at(3);
  const TForm Form = Words.at(1) == KitWord ? TForm::Kit : TForm::Plain;
  const int Point = std::stoi(Words.at(4));
  const bool IsFault = What == "fault", Retry = IsFault && Words.at(6) == "retry";
  int Boxes = 0;
  std::string Step = What, StepAsked, Calls;
  User.OnBox = [&] {
    const bool Failure = (User.Boxes.back().MsgType & Kinds) == MB_RETRYCANCEL;
    if (Failure && Boxes++ == 0) StepAsked = Step;
    User.Answer({!Failure ? IDYES : Retry && Boxes <= MostRetries ? IDRETRY : IDCANCEL});
  };
  const auto Loaded = LoadModule(CLSID_UTransactionLog);
  const auto Kit = Form == TForm::Kit ? LoadModule(CLSID_Kit) : TComRef<IClassFactory>();
  std::optional<TUpdater> Updater;
  std::optional<TFault> Fault;
  const TNoPauses NoPauses;
  if (IsFault) Updater.emplace(Root, Form);  // creating the objects is not a step of the update
  if (IsFault && !Event.empty()) {
    const int Failures = Kit ? 1 : std::ranges::find(ModuleCalls(), Event, &TModuleCall::Name)->Failures;
    const TFaultPlan Plan{Point - 1, Failures, static_cast<DWORD>(std::stoul(Words.at(5)))};
    Fault.emplace(Event, Plan, Kit ? KitDll : MendworkDll);
  } else if (Event == "power") {
    PlanEvent("after", Point, ChangingCalls, TellUnflushed);
    NoteUnflushed(Root);
  } else {
    const TPoints All = Kit ? AllCallsOfKit : AllCalls;
    PlanEvent(IsFault ? "nothing" : Event, Point, IsFault ? All : ChangingCalls);
  }
  if (What == "update") Updater.emplace(Root, Form);
  HRESULT Result = Updater ? RunUpdate(*Updater, Step) : RollBack();
  if (Event == "power") TellUnflushed();
  if (!Fault)
    for (const char* Name : CallsMade()) Calls += " " + std::string(Name);
  if (!Updater && SUCCEEDED(Result)) Step = "history, macros, garbage lists", Result = LookAtStores();
  const std::string Error = FAILED(Result) ? ErrorText() : "";
  Write(ToldFile(Root), std::to_string(Boxes) + " " + std::to_string(Result) + Calls + "\n" +
                            (Boxes > 0 ? StepAsked : Step) + "\n" + Error);
  const bool RollsBack = IsFault && FAILED(Result) && Point % 2 == 1;
  return int{RollsBack && FAILED(RollBack())};
});

}  // namespace

TMachine::TMachine(TForm Form) : TSandbox(NoDoubles), Form(Form), Loaded(LoadModule(CLSID_UTransactionLog)) {
  if (Form == TForm::Kit) LoadedKit = LoadModule(CLSID_Kit);
  const std::string Forgotten = ForgottenCalls();
  Must(Forgotten.empty(), "the list in tests/support/module_calls.cpp lacks what is imported: " + Forgotten);
  Window = CreateWindowExA(0, "Static", "", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  LayOutFiles(Root()), LayOutRegistry(), FindClassKeys();
  Original = Capture();
}
TMachine::~TMachine() {
  DestroyWindow(Window);
  DeleteKeyTree(AppKeyName);
}

void TMachine::LayOut() {
  RemoveTree(Base());
  MakeFolders(Base());
  Plant(App(), Original.Files);
  LayOutLists(Root());
  if (RegistryTreeOf(AppKeyName) != Original.Registry) LayOutRegistry();
  if (CaptureClasses() != Original.Classes) SetClasses(true, false);
}

/// By what changes when they are registered and unregistered.
void TMachine::FindClassKeys() {
  const auto All = [] { return RegistryTreeOf(L"", HKEY_CLASSES_ROOT); };
  SetClasses(true, true);
  std::wstring Library = ToWide(App("types.TLB"));
  TComRef<ITypeLib> Made;
  if (SUCCEEDED(LoadTypeLib(Library.c_str(), Made.Out()))) RegisterTypeLib(Made.Get(), Library.data(), nullptr);
  const TRegistryTree With = All();
  SetClasses(false, false);
  const TRegistryTree Without = All();
  std::wstring Last;  // the key before it; what lies in it belongs to it
  for (const auto& [Path, Entry] : With)
    if (const auto Found = Without.find(Path); Found == Without.end() || !(Found->second == Entry))
      if (Last.empty() || !Path.starts_with(Last + L"\\")) ClassKeys.insert(Last = Path.substr(0, Path.rfind(L'\\')));
  Must(!ClassKeys.empty(), "the platform's servers and the type library cannot be registered");
  SetClasses(true, false);
}

TRegistryTree TMachine::CaptureClasses() const {
  TRegistryTree Classes;
  for (const std::wstring& Key : ClassKeys)
    for (const auto& [Path, Entry] : RegistryTreeOf(Key, HKEY_CLASSES_ROOT)) Classes[Key + L"\\" + Path] = Entry;
  return Classes;
}

TCapture TMachine::Capture() const { return {TreeOf(App()), RegistryTreeOf(AppKeyName), CaptureClasses()}; }

TTold TMachine::Change(const std::string& What, const TWords& Event) const {
  TWords Words = {"change", Root(), Form == TForm::Kit ? KitWord : PlainWord, What};
  Words.insert(Words.end(), Event.begin(), Event.end());
  DeleteFileA(ToldFile(Root()).c_str());
  TTold Told{TChild(Words).Wait()};
  std::istringstream In(Read(ToldFile(Root())));
  In >> Told.Boxes >> Told.Result;
  for (std::string Name; In.peek() == ' ' && In >> Name;) Told.Calls.push_back(Name);
  In.ignore();
  std::getline(In, Told.Step), std::getline(In, Told.Error, '\0');
  if (Told.Status != 0) Told.Result = -1;
  return Told;
}

std::string TMachine::RollBackAndCompare(std::map<std::string, int>& Notes) const {
  const TTold RolledBack = Change("rollback");
  std::string Wrong = Difference(Before(), Capture());
  const bool Exactly = Form == TForm::Kit || RemoveKnownRemains(Wrong) == 0;
  if (FAILED(RolledBack.Result)) Wrong += RolledBack.Step + " failed: " + RolledBack.Error + "\n";
  constexpr int Added = 2;
  // A rollback does not undo what the uninstaller was told, but it is all there or nothing of it.
  const int Records = UninstallRecordsOf(Read(UninstallLogOf(Root())));
  if (Records != UninstallRecords && Records != UninstallRecords + Added) Wrong += "the uninstall log is not whole\n";
  if (Exists(Service("update.prt"))) Wrong += "the transaction log is not empty\n";
  if (Wrong.empty())
    ++Notes[Exactly ? "restored exactly" : "restored, with folders, keys or values that logged calls had created"];
  return Wrong;
}

std::string Difference(const TCapture& Before, const TCapture& After) {
  return Difference(Before.Files, After.Files) + Difference(Before.Registry, After.Registry) +
         Difference(Before.Classes, After.Classes);
}
