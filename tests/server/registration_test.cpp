#include "server/published.h"
#include "support/expected.h"
#include "support/registry_tree.h"

#include <set>

namespace {

/// The texts below a key of HKEY_CLASSES_ROOT, a line each: key, name, "=" and text.
std::string EntriesOf(const std::string& Key) {
  std::string Lines;
  for (const auto& [Path, Value] : RegistryTreeOf(ToWide(Key), HKEY_CLASSES_ROOT)) {
    const std::wstring Text(reinterpret_cast<const wchar_t*>(Value.Data.data()), Value.Data.size() / sizeof(wchar_t));
    if (Value.Type >= 0) Lines += Key + "\\" + ToAnsi(Path) + "=" + ToAnsi(Text.c_str()) + "\n";
  }
  return Lines;
}

class Registration : public testing::Test {
 protected:
  Registration() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  /// The other tests of the suite need the module registered.
  ~Registration() override {
    EXPECT_EQ(S_OK, Export("DllUnregisterServer"));
    EXPECT_EQ(S_OK, Export("DllRegisterServer"));
  }
  HRESULT Export(const char* Name) {
    return reinterpret_cast<HRESULT(WINAPI*)()>(reinterpret_cast<void*>(GetProcAddress(Module.Get(), Name)))();
  }
  static DWORD RegSvr32(const std::string& Options) {
    return RunSystemProgram("regsvr32.exe", Options + " \"" + BuiltModulePath() + "\"").Status;
  }

  TModuleHandle Module{LoadLibraryA(BuiltModulePath().c_str())};
};

// registered.txt has what is written for the library and for each class.
TEST_F(Registration, OfRegsvr32IsCompleteAndGoesWithoutATrace) {
  char Path[MAX_PATH] = "";
  GetLongPathNameA(BuiltModulePath().c_str(), Path, sizeof Path);
  const std::string Module = Path, Folder = Module.substr(0, Module.rfind('\\'));
  const auto Entries = [&](const TWords& Keys, const std::vector<std::pair<std::string, std::string>>& Words) {
    std::string Lines;
    for (const std::string& Key : Keys) Lines += EntriesOf(Key);
    for (const auto& [Word, Name] : Words)
      for (size_t At; (At = Lines.find(Word)) != std::string::npos;) Lines.replace(At, Word.size(), Name);
    return Lines;
  };
  for (const char* Options : {"/s", "/s /u"}) {
    ASSERT_EQ(0u, RegSvr32(Options));
    std::set<std::string> OfClasses;
    for (const TPublishedClass& Class : PublishedClasses())
      OfClasses.insert(
          Entries({"CLSID\\" + GuidText(Class.ClassId), "Interface\\" + GuidText(Class.InterfaceId),
                   "Interface\\" + GuidText(Class.EventsId), "Mendwork." + Class.Name, "Mendwork." + Class.Name + ".6"},
                  {{GuidText(Class.ClassId), "{class}"},
                   {GuidText(Class.InterfaceId), "{interface}"},
                   {GuidText(Class.EventsId), "{events}"},
                   {Class.Name, "{name}"},
                   {Module, "{module}"}}));
    EXPECT_EQ(1u, OfClasses.size()) << "they differ in nothing else";
    const std::string OfLibrary = Entries({"TypeLib\\{D9F421A7-4AF7-47C5-9254-15A3A874CD14}"},
                                          {{Module, "{module}"}, {Folder, "{folder}"}, {"win64", "win32"}});
    if (Options == std::string("/s"))
      ExpectText("server", "registered.txt", OfLibrary + *OfClasses.begin());
    else
      EXPECT_EQ("", OfLibrary + *OfClasses.begin());
  }
}

// The version-independent entries may belong to another copy of the module.
TEST_F(Registration, CurVerSaysWhoOwnsTheVersionIndependentProgId) {
  const std::string ProgId = "Mendwork.UFile", Id = GuidText(CLSID_UFile);
  const std::string OfClass = "CLSID\\" + Id + "\\VersionIndependentProgID";
  const auto Entries = [&] { return EntriesOf(ProgId) + EntriesOf(OfClass); };
  const std::string Own = ProgId + "\\=UFile Object\n" + ProgId + "\\Clsid\\=" + Id + "\n" + ProgId +
                          "\\CurVer\\=" + ProgId + ".6\n" + OfClass + "\\=" + ProgId + "\n";
  const struct {
    std::string CurVer;  ///< before registration; empty for no such entries at all
    bool IsRewritten, GoesOnUnregistering;
  } Rows[] = {{"", true, true},
              {"Mendwork.UFile.5", true, true},
              {"Mendwork.UFile.6", false, true},
              {"mendwork.ufile.6", false, false},
              {"Mendwork.UFile.10", false, false},
              {"Mendwork.UFile.5.9", false, false},
              {"Mendwork.UFile.5b", false, false},
              {"Mend", false, false}};
  for (const auto& Row : Rows) {
    SCOPED_TRACE(Row.CurVer);
    ASSERT_EQ(S_OK, Export("DllUnregisterServer"));
    for (const auto& [Key, Value] : {std::pair{"\\Clsid", std::string("{other}")}, {"\\CurVer", Row.CurVer}})
      if (!Row.CurVer.empty())
        RegSetKeyValueA(HKEY_CLASSES_ROOT, (ProgId + Key).c_str(), nullptr, REG_SZ, Value.c_str(),
                        static_cast<DWORD>(Value.size() + 1));
    const auto Before = Entries();
    EXPECT_EQ(S_OK, Export("DllRegisterServer"));
    EXPECT_EQ(Row.IsRewritten ? Own : Before, Entries());
    EXPECT_EQ(S_OK, Export("DllUnregisterServer"));
    EXPECT_EQ(Row.GoesOnUnregistering ? "" : Before, Entries());
    EXPECT_EQ("", EntriesOf("CLSID\\" + Id) + EntriesOf(ProgId + ".6"));
    RegDeleteTreeA(HKEY_CLASSES_ROOT, ProgId.c_str());
  }
}

}  // namespace
