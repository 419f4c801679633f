#include "formats/sha256.h"
#include "kit/kit_fixture.h"

#include <algorithm>
#include <thread>

namespace {

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
  /// Updates by a manifest with the two files and more of them.
  long Update(const std::string& More = "", const std::string& ContentOfB = "new b") {
    std::string Target = App("old");
    std::replace(Target.begin(), Target.end(), '\\', '/');
    std::string Key = this->Key("Own\\Sub");
    for (size_t At = 0; (At = Key.find('\\', At)) != Key.npos; At += 2) Key.insert(At, "\\");
    const std::string Place = R"({"root":"HKEY_CURRENT_USER","key":")" + Key + "\"";
    const std::string Text = "{\"name\":\"Test\",\"source\":\"new\",\"target\":\"" + Target + "\",\"files\":[" +
                             FileLine("a.txt", "new a") + "," + FileLine("sub/b.txt", ContentOfB) + More +
                             "],\"delete\":[\"gone.txt\",\"never.txt\"],\"keys\":[" + Place + "}],\"values\":[" +
                             Place + R"(,"name":"V","type":"REG_DWORD","data":"7"}]})";
    Write(App("update.json"), Text);
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
  EXPECT_NE("", LastMessage());
  LooksUnchanged(Files, Keys);
  EXPECT_EQ(0, Update()) << "the next one is not in its way: " << LastMessage();
}

}  // namespace
