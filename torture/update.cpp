#include "update.h"

#include "support/tree.h"

namespace {

const GUID HistoryGroup = NumberedGuid(9);
constexpr char MacroValue[] = "C:\\A, \"b\"";

// Changes that no method makes: the updater's own, after it has saved what it changes.
TStep Edit(const std::string& Name) {
  return {"edit " + Name, [=](TUpdater& U) {
            constexpr uint64_t LastAccess = 160000000000000000, LastWrite = 132000000000000000;
            Write(U.Places.App(Name), "edited by the updater");
            SetTimes(U.Places.App(Name), LastAccess, LastWrite);
            return S_OK;
          }};
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
            return U.Backup->BackupFilesLogged(Text(U.Places.App(Mask)), Recurse, Recurse, No, &U.Item);
          }};
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
    return U.Backup->BackupRegKeyValueLogged(User, KeyName("Watched"), Text("Level"), &U.Item);
  };
  const auto SaveKey = [](TUpdater& U) { return U.Backup->BackupRegKeyLogged(User, KeyName("Plugins"), Yes, &U.Item); };
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
  return {
      {"entry that changes nothing", [](TUpdater& U) { return U.Log->Put(CLSID_UCanRollback, 7, NumberedGuid(7)); }},
      {"check point", [](TUpdater& U) { return U.Log->PutCheckPoint(NumberedGuid(8)); }},
      {"permanent macro", [](TUpdater& U) { return U.Macro->SetMacro(Text("Path"), Text(MacroValue), Yes); }},
      {"temporary macro", [](TUpdater& U) { return U.Macro->SetMacro(Text("Temp"), Text("x=y"), No); }},
      {"delete macro", [](TUpdater& U) { return U.Macro->DelMacro(Text("TEMP")); }},
      {"history record", [](TUpdater& U) { return U.History->Put(HistoryGroup, 3, NumberedGuid(10)); }},
      {"history check point", [](TUpdater& U) { return U.History->PutCheckPoint(HistoryGroup, NumberedGuid(11)); }},
      {"history cut", [](TUpdater& U) { return U.History->DeleteLastRecord(HistoryGroup); }},
      {"text item", [](TUpdater& U) { return U.Backup->BackupString(Text("a text"), &U.Item); }}};
}

std::vector<TStep> ComSteps() {
  using TMethod = HRESULT (STDMETHODCALLTYPE IUCom::*)(BSTR);
  const std::string Library;
  const auto Step = [](const char* Name, TMethod Method, const std::string& Server) {
    return TStep{Name, [=](TUpdater& U) {
                   return (U.Com.Get()->*Method)(Text(Server.empty() ? U.Places.App("types.TLB") : Server));
                 }};
  };
  return {Step("unregister server", &IUCom::UnRegServerLogged, RegisteredServer()),
          Step("register server", &IUCom::RegLogged, UnregisteredServer()),
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

/// The same and more, after which nothing stays. Of the tree, one file takes the place of another, and others and a
/// folder are new; earlier steps deleted files beside them.
std::vector<TStep> KitSteps() {
  const auto SetValue = [](const std::string& Key, const std::string& Name, long Type, const std::string& Data) {
    return TStep{"kit: value " + Key + "\\" + Name, [=](TUpdater& U) {
                   return U.Kit->CreateValueLogged(User, KeyName(Key), Text(Name), Type, Text(Data));
                 }};
  };
  return {{"kit: copy",
           [](TUpdater& U) {
             const Text Dest(U.Places.App("themes\\dark\\plugin.dll"));
             return U.Kit->CopyFileLogged(Text(U.Places.Package("plugin.dll")), Dest, 0);
           }},
          SetValue("Themes\\Dark", "Name", REG_SZ, "dark"),
          SetValue("", "Added", REG_DWORD, "1"),
          SetValue("", "Folder", REG_EXPAND_SZ, "%TEMP%"),
          {"kit: key", [](TUpdater& U) { return U.Kit->CreateKeyLogged(User, KeyName("Plugins\\C\\Deep")); }},
          {"kit: folder", [](TUpdater& U) { return U.Kit->CreateFolderLogged(Text(U.Places.App("plugins\\native"))); }},
          {"kit: tree", [](TUpdater& U) {
             TBstr Told;
             return U.Kit->CopyTreeLogged(Text(U.Places.Package("docs")), Text(U.Places.App("docs")), nullptr, 0,
                                          Told.Out());
           }}};
}

}  // namespace

Text KeyName(const std::string& Name) { return Text("Software\\MendworkTorture" + (Name.empty() ? "" : "\\" + Name)); }

const std::vector<TStep>& UpdateSteps(TForm Form) {
  static const auto StepsThenLast = [](const std::vector<TStep>& Last) {
    std::vector<TStep> All;
    for (const auto& Group : {FileSteps(), RegistrySteps(), ComSteps(), StateSteps(), ListSteps(), Last})
      All.insert(All.end(), Group.begin(), Group.end());
    return All;
  };
  static const std::vector<TStep> Plain = StepsThenLast(RemainingSteps()), Kit = StepsThenLast(KitSteps());
  return Form == TForm::Kit ? Kit : Plain;
}

HRESULT RunUpdate(TUpdater& Updater, std::string& Current) {
  for (const TStep& Step : UpdateSteps(Updater.Form)) {
    Current = Step.Name;
    if (const HRESULT Result = Step.Run(Updater); FAILED(Result)) return Result;
  }
  return S_OK;
}

HRESULT LookAtStores() {
  TUpdater U("");
  if (const HRESULT Got = U.ReadGroup(HistoryGroup); FAILED(Got)) return Got;
  if (const HRESULT Found = U.Macro->GetMacro(Text("Path"), U.Content.Out()); FAILED(Found)) return Found;
  const std::string Macro = Take(U.Content);
  return Macro.empty() || Macro == MacroValue ? U.Garbage->Garbage() : E_UNEXPECTED;
}

int RemoveKnownRemains(std::string& Difference) {
  int Count = 0;
  for (const char* Name : Remains) {
    const std::string Line = "new: " + std::string(Name) + "\n";
    const size_t At = Difference.find(Line);
    if (At != std::string::npos) Difference.erase(At, Line.size()), ++Count;
  }
  return Count;
}
