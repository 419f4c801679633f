#include "formats/sha256.h"
#include "kit/kit_fixture.h"
#include "support/module_calls.h"

#include <algorithm>
#include <thread>

namespace {

/// Updates by a manifest, and dies after a call of the library that changes something.
const TRole UpdateAndDie(
    "update-and-die",
    [](const TWords& Words, TScriptedDialog&) {
      const auto Loaded = Make<IUFile>(CLSID_UFile);
      const auto Kit = Make<IKit>(CLSID_Kit);
      HRESULT Result = Kit->Silent(Text("cancel")) | Kit->Log(Text(Words[1]), 0);  // its writes are no points
      long Outcome = -1;
      PlanEvent("after", std::stoi(Words[0]));
      Result |= Kit->Update(Text(Words[2]), &Outcome);
      return Result == S_OK ? static_cast<int>(Outcome) : 99;
    },
    TRole::WithoutDoubles);

TFileHandle TakenMeanwhile;
std::string ToTake;
/// Another program takes a file while a module is loaded, which fails.
HMODULE WINAPI TakeAndFail(LPCSTR) {
  if (!TakenMeanwhile)
    TakenMeanwhile.Reset(CreateFileA(ToTake.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  SetLastError(ERROR_MOD_NOT_FOUND);
  return nullptr;
}

BOOL WINAPI TenBytesFree(LPCWSTR, PULARGE_INTEGER Free, PULARGE_INTEGER, PULARGE_INTEGER) {
  Free->QuadPart = 10;
  return TRUE;
}

class KitUpdate : public TKitTest {
 protected:
  KitUpdate() {
    EXPECT_EQ(S_OK, Kit->Silent(Text("cancel")));
    Write(App("new\\a.txt"), "new a");
    Write(App("new\\sub\\b.txt"), "new b");
    Write(App("old\\a.txt"), "old a", FILE_ATTRIBUTE_READONLY);
    Write(App("old\\gone.txt"), "gone");
    StoreValue(Wide(L"Own"), L"Kept", REG_SZ, WideBytes(std::wstring_view(L"old\0", 4)));
  }

  static std::string FileLine(const std::string& Name, const std::string& Content, bool Registers = false) {
    TSha256 Hash;
    Hash.Append(Content.data(), Content.size());
    return "{\"name\":\"" + Name + "\",\"size\":" + std::to_string(Content.size()) + ",\"sha256\":\"" + Hash.Finish() +
           "\",\"register\":" + (Registers ? "true}" : "false}");
  }
  /// A manifest with the two files and more of them.
  void WriteManifest(const std::string& More = "", const std::string& ContentOfB = "new b") const {
    std::string Target = App("old");
    std::replace(Target.begin(), Target.end(), '\\', '/');
    std::string Key = TSandboxTest::Key("Own\\Sub");
    for (size_t At = 0; (At = Key.find('\\', At)) != Key.npos; At += 2) Key.insert(At, "\\");
    const std::string Place = R"({"root":"HKEY_CURRENT_USER","key":")" + Key + "\"";
    const std::string Text = "{\"name\":\"Test\",\"source\":\"new\",\"target\":\"" + Target + "\",\"files\":[" +
                             FileLine("a.txt", "new a") + "," + FileLine("sub/b.txt", ContentOfB) + More +
                             "],\"delete\":[\"gone.txt\",\"never.txt\"],\"keys\":[" + Place + "}],\"values\":[" +
                             Place + R"(,"name":"V","type":"REG_DWORD","data":"7"}]})";
    Write(App("update.json"), Text);
  }
  long Update(const std::string& More = "", const std::string& ContentOfB = "new b") {
    WriteManifest(More, ContentOfB);
    return Run();
  }
  long Run() {
    long Result = -1;
    EXPECT_EQ(S_OK, Kit->Update(Text(App("update.json")), &Result)) << ErrorText();
    return Result;
  }
  void LooksUnchanged(const TTree& Files, const TRegistryTree& Keys) const {
    EXPECT_EQ("", Difference(Files, TreeOf(App("old"))));
    EXPECT_EQ("", Difference(Keys, Tree()));
  }
};

TEST_F(KitUpdate, AppliesAManifestOnce) {
  ASSERT_EQ(0, Update()) << LastMessage();
  std::string Now;
  for (const auto& [Name, Entry] : TreeOf(App("old"))) Now += Name + "=" + Entry.Content + " ";
  EXPECT_EQ("a.txt=new a sub\\= sub\\b.txt=new b ", Now);
  EXPECT_EQ((TRegistryEntry{REG_DWORD, std::string("\7\0\0\0", 4)}), Value(L"Own\\Sub", L"V"));
  EXPECT_EQ("", LastMessage());
  ASSERT_EQ(S_OK, RollBack(VARIANT_TRUE));
  EXPECT_EQ("new a", Read(App("old\\a.txt"))) << "it is committed";
  EXPECT_EQ(1, Update());
}

TEST_F(KitUpdate, ChangesNothingWhenACheckFails) {
  const TTree Files = TreeOf(App("old"));
  const TRegistryTree Keys = Tree();
  EXPECT_EQ(2, Update(",{}"));
  EXPECT_TRUE(LastMessage().find("line 1") != std::string::npos) << LastMessage();
  EXPECT_EQ(3, Update("", "NEW B"));
  EXPECT_TRUE(LastMessage().find("b.txt") != std::string::npos) << LastMessage();
  {
    const TFileHandle Held(
        CreateFileA(App("old\\gone.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(5, Update());
    EXPECT_TRUE(LastMessage().find("gone.txt") != std::string::npos) << LastMessage();
  }
  {
    // 10 bytes are new, but 9 of old ones are saved as well.
    const TImportPatch Full("GetDiskFreeSpaceExW", &TenBytesFree, "MendworkKit.dll");
    EXPECT_EQ(4, Update());
    EXPECT_TRUE(LastMessage().find("19 bytes are needed, 10 are free") != std::string::npos) << LastMessage();
  }
  {
    const TKernelHandle Mutex(CreateMutexA(nullptr, FALSE, "Global\\MendworkKit.Update"));
    std::thread([&] { WaitForSingleObject(Mutex.Get(), INFINITE); }).join();
    EXPECT_EQ(0, WaitForSingleObject(Mutex.Get(), 0) & ~WAIT_ABANDONED) << "what a dead updater held is free";
    long Result = -1;
    std::thread([&] {
      CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
      Make<IKit>(CLSID_Kit)->Update(Text(App("update.json")), &Result);
      CoUninitialize();
    }).join();
    EXPECT_EQ(6, Result);
    ReleaseMutex(Mutex.Get());
  }
  LooksUnchanged(Files, Keys);
  EXPECT_EQ("<no file>", Read(Service("update.prt")));
  EXPECT_EQ(E_POINTER, Kit->Update(Text(App("update.json")), nullptr));
  long Result = -1;
  EXPECT_EQ(E_INVALIDARG, Kit->Update(Text("update.json"), &Result));
}

TEST_F(KitUpdate, ComesBackWholeWhenARegistrationFails) {
  const TTree Files = TreeOf(App("old"));
  const TRegistryTree Keys = Tree();
  Write(App("new\\bad.dll"), "no module");
  EXPECT_EQ(7, Update("," + FileLine("bad.dll", "no module", true)));
  EXPECT_TRUE(LastMessage().find("bad.dll") != std::string::npos) << LastMessage();
  LooksUnchanged(Files, Keys);
  EXPECT_EQ(0, Update()) << "the next one is not in its way: " << LastMessage();
}

TEST_F(KitUpdate, UnregistersAServerBeforeItsFileGoesAndRegistersTheNewOne) {
  const std::string Server = Read(BuiltFile("tests\\server.dll"));
  Write(App("old\\returns-0.dll"), Server);
  Write(App("new\\returns-0.dll"), Server + "newer");
  Write(App("new\\bad.dll"), "no module");
  const auto Calls = [] {
    std::string Counts;
    for (const wchar_t* Name : {L"DllUnregisterServer", L"DllRegisterServer"})
      Counts += std::to_string(Value(L"", Name).Data.empty() ? 0 : Value(L"", Name).Data[0]) + " ";
    return Counts;
  };
  constexpr wchar_t Class[] = L"CLSID\\{6B1F2A40-93D5-4C77-8E0B-2D4A5C6E7F81}";
  const std::wstring File = ToWide(App("OLD\\returns-0.dll"));
  RegSetKeyValueW(HKEY_CLASSES_ROOT, (std::wstring(Class) + L"\\InprocServer32").c_str(), nullptr, REG_SZ, File.c_str(),
                  static_cast<DWORD>(File.size() * 2 + 2));
  const std::string Newer = "," + FileLine("returns-0.dll", Server + "newer", true);
  EXPECT_EQ(7, Update(Newer + "," + FileLine("bad.dll", "no module", true)));
  EXPECT_EQ("2 2 ", Calls()) << "the old one is registered again";
  EXPECT_EQ(Server, Read(App("old\\returns-0.dll")));
  EXPECT_EQ(0, Update(Newer)) << LastMessage();
  EXPECT_EQ("3 3 ", Calls());
  EXPECT_EQ(1, Update(Newer)) << "it is registered";
  RegDeleteTreeW(HKEY_CLASSES_ROOT, Class);
  EXPECT_EQ(0, Update(Newer)) << "it is not, any more";
  EXPECT_EQ("3 4 ", Calls());
}

TEST_F(KitUpdate, GoesOnWithARollbackThatFailed) {
  const TTree Files = TreeOf(App("old"));
  const TRegistryTree Keys = Tree();
  const std::string Server = Read(BuiltFile("tests\\server.dll"));
  Write(App("new\\returns-0.dll"), Server);
  ToTake = App("old\\a.txt");
  const auto Loaded = Make<IUFile>(CLSID_UFile);
  {
    const TImportPatch Load("LoadLibraryA", &TakeAndFail);
    EXPECT_EQ(8, Update("," + FileLine("returns-0.dll", Server, true)));
  }
  EXPECT_TRUE(LastMessage().find("returns-0.dll") != std::string::npos) << LastMessage();
  EXPECT_TRUE(Messages().find("old\\a.txt") != std::string::npos) << Messages();
  TakenMeanwhile.Reset();
  EXPECT_EQ(3, Update("", "NEW B")) << "undone first, then looked at";
  LooksUnchanged(Files, Keys);
  EXPECT_EQ(0, Update()) << LastMessage();
}

TEST_F(KitUpdate, IsUndoneByTheNextOneWhereverItDied) {
  const TTree Files = TreeOf(App("old"));
  const TRegistryTree Keys = Tree();
  const std::string Good = App("good.json");
  WriteManifest();
  MoveFileA(App("update.json").c_str(), Good.c_str());
  WriteManifest("", "NEW B");
  int Deaths = 0;
  const auto Dies = [&](int Point) {
    // What is active here would be asked by the other process, and nobody would answer.
    EXPECT_EQ(S_OK, Kit->Silent(Text("")));
    const bool Died = TChild({"update-and-die", std::to_string(Point), App("log"), Good}).Wait() == DiedStatus;
    EXPECT_EQ(S_OK, Kit->Silent(Text("cancel")));
    return Died;
  };
  for (int Point = 1; Dies(Point); Point += 19, ++Deaths) {
    ASSERT_EQ(3, Run()) << Point << LastMessage();
    LooksUnchanged(Files, Keys);
  }
  EXPECT_GT(Deaths, 5);
  EXPECT_EQ(1, Update()) << "the last one came to its end: " << LastMessage();
}

TEST_F(KitUpdate, IsAppliedByTheConsole) {
  EXPECT_EQ(S_OK, Kit->Silent(Text("")));
  const auto Apply = [this](const std::string& Status, const std::string& Told) {
    const TProgramResult Result = RunProgram(BuiltFile("mendctl.exe"), "apply " + App("update.json") + " --json");
    const std::string Output = std::to_string(Result.Status) + Result.Output;
    EXPECT_TRUE(Output.starts_with(Status) && Output.find(Told) != Output.npos) << Output;
  };
  WriteManifest("", "NEW B");
  Apply("3", "b.txt");
  WriteManifest();
  Apply("0", "\"result\": 0");
  EXPECT_EQ("new a", Read(App("old\\a.txt")));
  Apply("0", "\"result\": 1");
}

}  // namespace
