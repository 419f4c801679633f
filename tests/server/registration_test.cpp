#include "server/published.h"
#include "stories/story.h"

#include <set>
#include <sstream>

namespace {

/// The texts below a key of HKEY_CLASSES_ROOT, a line each: key, name, "=" and text.
std::string EntriesOf(const std::string& Key) {
  std::string Lines;
  for (const auto& [Path, Value] : RegistryTreeOf(ToWide(Key), HKEY_CLASSES_ROOT)) {
    const std::wstring Text(reinterpret_cast<const wchar_t*>(Value.Data.data()), Value.Data.size() / sizeof(wchar_t));
    if (Value.Type >= 0) Lines += Key + "\\" + LossyAnsi(Path) + "=" + LossyAnsi(Text.c_str()) + "\n";
  }
  return Lines;
}

class Registration : public TStory {
 protected:
  /// The key that Wine's marshaller needs is none of the module's.
  Registration() { RegDeleteTreeA(HKEY_CLASSES_ROOT, ForWine.c_str()); }
  /// The other tests of the suite need the module registered.
  ~Registration() override {
    EXPECT_EQ(S_OK, CallExport("DllUnregisterServer"));
    EXPECT_EQ(S_OK, CallExport("DllRegisterServer"));
    const std::string Module = BuiltModulePath(), Kind = sizeof(void*) == 8 ? "\\win64" : "\\win32";
    RegSetKeyValueA(HKEY_CLASSES_ROOT, (ForWine + Kind).c_str(), nullptr, REG_SZ, Module.c_str(),
                    static_cast<DWORD>(Module.size() + 1));
  }
  const std::string ForWine = "TypeLib\\{D9F421A7-4AF7-47C5-9254-15A3A874CD14}\\2.0\\0";
  void TellEach(const std::string& Lines) {
    std::istringstream Rest(Lines);
    for (std::string Line; std::getline(Rest, Line);) Tell(Line);
  }
};

// What is written for the library and for each class.
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
  for (const std::string Options : {"/s", "/s /u"}) {
    ASSERT_EQ(0u, RunSystemProgram("regsvr32.exe", Options + " \"" + BuiltModulePath() + "\"").Status);
    std::set<std::string> OfClasses;
    for (const TPublishedClass& Class : PublishedClasses())
      OfClasses.insert(
          Entries({"CLSID\\" + GuidText(Class.ClassId), "Interface\\" + GuidText(Class.InterfaceId),
                   "Interface\\" + GuidText(Class.EventsId), "Mendwork." + Class.Name, "Mendwork." + Class.Name + ".6"},
                  {{GuidText(Class.ClassId), "CLASS"},
                   {GuidText(Class.InterfaceId), "INTERFACE"},
                   {GuidText(Class.EventsId), "EVENTS"},
                   {Class.Name, "NAME"},
                   {Module, "MODULE"}}));
    EXPECT_EQ(1u, OfClasses.size()) << "they differ in nothing else";
    const std::string OfLibrary = Entries({"TypeLib\\{D9F421A7-4AF7-47C5-9254-15A3A874CD14}"},
                                          {{Module, "MODULE"}, {Folder, "FOLDER"}, {"win64", "win32"}});
    Tell(Options);
    TellEach(OfLibrary + *OfClasses.begin());
  }
}

// The version-independent entries may belong to another copy of the module.
TEST_F(Registration, CurVerSaysWhoOwnsTheVersionIndependentProgId) {
  const std::string ProgId = "Mendwork.UFile", OfClass = "CLSID\\" + GuidText(CLSID_UFile);
  for (const std::string CurVer : {"", "Mendwork.UFile.5", "Mendwork.UFile.6", "mendwork.ufile.6", "Mendwork.UFile.10",
                                   "Mendwork.UFile.5.9", "Mendwork.UFile.5b", "Mend"}) {
    ASSERT_EQ(S_OK, CallExport("DllUnregisterServer"));
    for (const auto& [Key, Value] : {std::pair{"\\Clsid", std::string("{other}")}, {"\\CurVer", CurVer}})
      if (!CurVer.empty())
        RegSetKeyValueA(HKEY_CLASSES_ROOT, (ProgId + Key).c_str(), nullptr, REG_SZ, Value.c_str(),
                        static_cast<DWORD>(Value.size() + 1));
    for (const char* Function : {"DllRegisterServer", "DllUnregisterServer"}) {
      Step("'" + CurVer + "' " + Function, CallExport(Function));
      TellEach(EntriesOf(ProgId) + EntriesOf(ProgId + ".6") + EntriesOf(OfClass + "\\VersionIndependentProgID"));
    }
    RegDeleteTreeA(HKEY_CLASSES_ROOT, ProgId.c_str());
  }
}

}  // namespace
