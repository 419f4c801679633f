#include "update.h"

#include "support/module_calls.h"
#include "support/tree.h"

#include <algorithm>
#include <sstream>

namespace {

constexpr unsigned long User = 0x80000001;
constexpr VARIANT_BOOL Yes = VARIANT_TRUE, No = VARIANT_FALSE;
const GUID HistoryGroup = NumberedGuid(9);
constexpr char MacroValue[] = "C:\\A, \"b\"";

Text KeyName(const std::string& Below = "") {
  return Text("Software\\MendworkTorture" + (Below.empty() ? "" : "\\" + Below));
}

/// A change that no method makes: the updater's own, after it has saved what it changes.
HRESULT Overwrite(const std::string& Path, const std::string& Content) {
  constexpr uint64_t LastAccess = 160000000000000000, LastWrite = 132000000000000000;
  Write(Path, Content);
  SetTimes(Path, LastAccess, LastWrite);
  return S_OK;
}
HRESULT SetNumber(const wchar_t* Key, const wchar_t* Name, char Number) {
  StoreValue(std::wstring(AppKeyName) + L"\\" + Key, Name, REG_DWORD, std::string(1, Number) + std::string(3, '\0'));
  return S_OK;
}

TStep Copy(const std::string& Source, const std::string& Dest, long Mode) {
  return {"copy " + Source + " to " + Dest + ", mode " + std::to_string(Mode), [=](TUpdater& U) {
            return U.File->CopyFileLogged(Text(U.Places.Package(Source)), Text(U.Places.App(Dest)), Mode);
          }};
}
TStep Copy(const std::string& Name, long Mode) { return Copy(Name, Name, Mode); }

TStep Delete(const std::string& Mask, VARIANT_BOOL Recurse, VARIANT_BOOL Folders, VARIANT_BOOL UpperFolder) {
  return {"delete " + Mask, [=](TUpdater& U) {
            return U.File->DeleteFilesLogged(Text(U.Places.App(Mask)), Recurse, Folders, UpperFolder);
          }};
}

TStep SetString(const std::string& Key, const std::string& Name, const std::string& Value) {
  return {"set string " + Key + "\\" + Name,
          [=](TUpdater& U) { return U.Registry->SetStringValueLogged(User, KeyName(Key), Text(Name), Text(Value)); }};
}
TStep SetDword(const std::string& Key, const std::string& Name, unsigned long Value) {
  return {"set number " + Key + "\\" + Name,
          [=](TUpdater& U) { return U.Registry->SetDwordValueLogged(User, KeyName(Key), Text(Name), Value); }};
}
TStep SetBinary(const std::string& Key, const std::string& Name, const std::string& Value) {
  return {"set bytes " + Key + "\\" + Name, [=](TUpdater& U) {
            std::string Bytes = Value;
            return U.Registry->SetBinaryValueLogged(User, KeyName(Key), Text(Name), Bytes.data(),
                                                    static_cast<long>(Bytes.size()));
          }};
}
TStep DeleteValue(const std::string& Key, const std::string& Name) {
  return {"delete value " + Key + "\\" + Name,
          [=](TUpdater& U) { return U.Registry->DeleteRegKeyValueLogged(User, KeyName(Key), Text(Name)); }};
}
TStep DeleteKey(const std::string& Key) {
  return {"delete key " + Key, [=](TUpdater& U) { return U.Registry->DeleteRegKeyLogged(User, KeyName(Key)); }};
}

TStep SaveFiles(const std::string& Mask, VARIANT_BOOL Recurse) {
  return {"save " + Mask, [=](TUpdater& U) {
            GUID DataID;
            return U.Backup->BackupFilesLogged(Text(U.Places.App(Mask)), Recurse, Recurse, No, &DataID);
          }};
}
TStep Edit(const std::string& Name) {
  return {"edit " + Name, [=](TUpdater& U) { return Overwrite(U.Places.App(Name), "edited by the updater"); }};
}

std::vector<TStep> FileSteps() {
  return {Copy("program.exe", 0),
          Copy("data.bin", 0),
          Copy("program.exe", "settings.ini", 1),
          Copy("fresh.txt", 1),
          Copy("older_version.dll", 2),
          Copy("newer_version.dll", 2),
          Copy("newer.txt", 3),
          Copy("older.txt", 3),
          Copy("asked.dll", 4),
          Copy("plugin.dll", "asked.dll", 5),
          Copy("empty.dat", 0),
          SaveFiles("settings.ini", No),
          Edit("settings.ini"),
          SaveFiles("templates\\*.*", Yes),
          Edit("templates\\letter.txt"),
          Edit("templates\\memo.txt"),
          Delete("*.bak", No, No, No),
          Delete("cache\\*.*", Yes, Yes, Yes),
          Delete("docs\\*.txt", Yes, No, No),
          Delete("fresh.txt", No, No, No),
          Delete("nothing.*", Yes, Yes, No),
          Copy("program.exe", 6),
          Copy("fresh.txt", 0)};
}

std::vector<TStep> RegistrySteps() {
  const auto SaveValue = [](TUpdater& U) {
    GUID DataID;
    return U.Backup->BackupRegKeyValueLogged(User, KeyName("Watched"), Text("Level"), &DataID);
  };
  const auto SaveKey = [](TUpdater& U) {
    GUID DataID;
    return U.Backup->BackupRegKeyLogged(User, KeyName("Plugins"), Yes, &DataID);
  };
  return {SetString("", "Version", "2.0"),
          SetString("", "Build", "now a text \xFC\x80"),
          SetString("", "", "the default value"),
          SetDword("", "Version", 0xFFFFFFFF),
          SetBinary("", "Blob", std::string("\0\1\2", 3)),
          SetBinary("", "odd", ""),
          DeleteValue("", "Ruler"),
          DeleteValue("", "no such value"),
          DeleteKey("Recent"),
          DeleteKey("no such key"),
          {"save value Watched\\Level", SaveValue},
          {"change value Watched\\Level", [](TUpdater&) { return SetNumber(L"Watched", L"Level", 9); }},
          {"save key Plugins", SaveKey},
          {"change key Plugins", [](TUpdater&) { return SetNumber(L"Plugins\\A", L"On", 9); }},
          SetString("", "Languages", "")};
}

std::vector<TStep> StateSteps() {
  const auto Put = [](TUpdater& U) { return U.Log->Put(CLSID_UCanRollback, 7, NumberedGuid(7)); };
  const auto CheckPoint = [](TUpdater& U) { return U.Log->PutCheckPoint(NumberedGuid(8)); };
  const auto SaveText = [](TUpdater& U) {
    GUID DataID;
    return U.Backup->BackupString(Text("a text"), &DataID);
  };
  return {{"entry that changes nothing", Put},
          {"check point", CheckPoint},
          {"permanent macro", [](TUpdater& U) { return U.Macro->SetMacro(Text("Path"), Text(MacroValue), Yes); }},
          {"temporary macro", [](TUpdater& U) { return U.Macro->SetMacro(Text("Temp"), Text("x=y"), No); }},
          {"delete macro", [](TUpdater& U) { return U.Macro->DelMacro(Text("TEMP")); }},
          {"history record", [](TUpdater& U) { return U.History->Put(HistoryGroup, 3, NumberedGuid(10)); }},
          {"history check point", [](TUpdater& U) { return U.History->PutCheckPoint(HistoryGroup, NumberedGuid(11)); }},
          {"history cut", [](TUpdater& U) { return U.History->DeleteLastRecord(HistoryGroup); }},
          {"text item", SaveText}};
}

std::vector<TStep> ComSteps() {
  const auto Step = [](const char* Name, HRESULT (STDMETHODCALLTYPE IUCom::*Method)(BSTR), auto FileOf) {
    return TStep{Name, [=](TUpdater& U) { return (U.Com.Get()->*Method)(Text(FileOf(U))); }};
  };
  const auto Registered = [](TUpdater&) { return RegisteredServer(); };
  const auto Unregistered = [](TUpdater&) { return UnregisteredServer(); };
  const auto Library = [](TUpdater& U) { return U.Places.App("types.TLB"); };
  return {Step("unregister server", &IUCom::UnRegServerLogged, Registered),
          Step("register server", &IUCom::RegLogged, Unregistered),
          Step("register type library", &IUCom::RegLogged, Library),
          Step("unregister type library", &IUCom::UnRegTLBLogged, Library),
          Step("register type library again", &IUCom::RegTLBLogged, Library)};
}

/// What the uninstaller and the garbage lists are told; a rollback undoes neither.
std::vector<TStep> ListSteps() {
  const auto Rubbish = [](TUpdater& U, const char* Name) { return Text(U.Places.Root + "\\Rubbish\\" + Name); };
  return {
      {"uninstall log: file", [](TUpdater& U) { return U.Inno->AddFile(Text(U.Places.App("fresh.txt"))); }},
      {"uninstall log: library", [](TUpdater& U) { return U.Inno->AddCOM(Text(U.Places.App("types.TLB"))); }},
      {UninstallLogStep, [](TUpdater& U) { return U.Inno->ProcessInno(); }},
      {"garbage: file", [=](TUpdater& U) { return U.Garbage->PutFile(Rubbish(U, "file.txt")); }},
      {"garbage: folder", [=](TUpdater& U) { return U.Garbage->PutDirectory(Rubbish(U, "folder")); }},
      {"garbage: key", [](TUpdater& U) { return U.Garbage->PutRegKey(User, Text("Software\\MendworkRubbish")); }},
      {"garbage: value",
       [](TUpdater& U) { return U.Garbage->PutRegKeyValue(User, Text("Software\\MendworkRubbish2"), Text("a b")); }},
      {"garbage: remove", [](TUpdater& U) { return U.Garbage->Garbage(); }}};
}

/// What these create stays after a rollback; see RemoveKnownRemains.
std::vector<TStep> RemainingSteps() {
  return {Copy("plugin.dll", "themes\\dark\\plugin.dll", 0), SetString("Themes\\Dark", "Name", "dark"),
          SetDword("", "Added", 1)};
}
const char* const Remains[] = {"themes\\",       "themes\\dark\\",     "Themes\\",
                               "Themes\\Dark\\", "Themes\\Dark\\Name", "Added"};

}  // namespace

const std::vector<TStep>& UpdateSteps() {
  static const std::vector<TStep> Steps = [] {
    std::vector<TStep> All;
    for (const auto& Group : {FileSteps(), RegistrySteps(), ComSteps(), StateSteps(), ListSteps(), RemainingSteps()})
      All.insert(All.end(), Group.begin(), Group.end());
    return All;
  }();
  return Steps;
}

HRESULT RunUpdate(TUpdater& Updater, std::string& Current) {
  for (const TStep& Step : UpdateSteps()) {
    Current = Step.Name;
    const HRESULT Result = Step.Run(Updater);
    if (FAILED(Result)) return Result;
  }
  return S_OK;
}

void WriteCalls(const std::string& Root) {
  std::string Names;
  for (const char* Name : CallsMade()) Names += std::string(Name) + "\n";
  Write(Root + "\\calls.txt", Names);
}

HRESULT LookAtStores() {
  long Code = 0;
  GUID DataID{};
  VARIANT_BOOL NoMore = 0, CheckPoint = 0;
  const HRESULT Got = Make<IUHistory>(CLSID_UHistory)->Get(HistoryGroup, &Code, &DataID, &NoMore, &CheckPoint);
  if (FAILED(Got)) return Got;
  TBstr Value;
  const HRESULT Found = Make<IUMacro>(CLSID_UMacro)->GetMacro(Text("Path"), Value.Out());
  if (FAILED(Found)) return Found;
  const std::string Macro = Take(Value);
  if (!Macro.empty() && Macro != MacroValue) return E_UNEXPECTED;
  return Make<IUGarbage>(CLSID_UGarbage)->Garbage();
}

int RemoveKnownRemains(std::string& Difference) {
  std::istringstream Lines(Difference);
  std::string Rest;
  int Count = 0;
  for (std::string Line; std::getline(Lines, Line);) {
    const bool Known = std::any_of(std::begin(Remains), std::end(Remains),
                                   [&](const std::string& Name) { return Line == "new: " + Name; });
    Count += Known;
    if (!Known) Rest += Line + "\n";
  }
  Difference = Rest;
  return Count;
}
