#include "server/published.h"
#include "support/expected.h"
#include "support/registry_tree.h"

#include <cstring>
#include <map>
#include <set>

namespace {

/// The texts below keys of HKEY_CLASSES_ROOT, and of the user, by key and name.
using TEntries = std::map<std::string, std::string>;

void Add(const std::wstring& KeyName, HKEY Root, const std::string& Prefix, TEntries& Entries) {
  for (const auto& [Path, Value] : RegistryTreeOf(KeyName, Root)) {
    std::string Name = Prefix + ToAnsi(Path);
    // The 32-bit branch, which a 32-bit program sees twice, and the platform's own writing of one key's name.
    for (const auto& [Written, Usual] : {std::pair{"Wow6432Node\\", ""}, {"Typelib\\", "TypeLib\\"}})
      if (Name.starts_with(Written)) Name.replace(0, std::strlen(Written), Usual);
    const std::wstring Text(reinterpret_cast<const wchar_t*>(Value.Data.data()), Value.Data.size() / sizeof(wchar_t));
    Entries[Name] = Value.Type == REG_SZ ? ToAnsi(Text.c_str()) : std::to_string(Value.Type) + Value.Data;
  }
}

TEntries WholeRegistry() {
  TEntries Entries;
  Add(L"", HKEY_CLASSES_ROOT, "", Entries);
  Add(L"Software", HKEY_CURRENT_USER, "HKCU\\", Entries);
  return Entries;
}

void SetDefaultValue(const std::string& Key, const std::string& Value) {
  RegSetKeyValueA(HKEY_CLASSES_ROOT, Key.c_str(), nullptr, REG_SZ, Value.c_str(), static_cast<DWORD>(Value.size() + 1));
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

/// The entries that hold one of these words, a line each, with the words' names in their places; they are taken out.
std::set<std::string> TakeLines(TEntries& Entries, const std::vector<std::pair<std::string, std::string>>& Words) {
  std::set<std::string> Lines;
  std::erase_if(Entries, [&](const auto& Entry) {
    std::string Line = Entry.first + "=" + Entry.second + "\n";
    const std::string Before = Line;
    for (const auto& [Word, Name] : Words)
      for (size_t At; (At = Line.find(Word)) != std::string::npos;) Line.replace(At, Word.size(), Name);
    if (Line != Before) Lines.insert(Line);
    return Line != Before;
  });
  return Lines;
}

// registered.txt has what is written for each class, and for the library.
TEST_F(Registration, OfRegsvr32IsCompleteAndGoesWithoutATrace) {
  ASSERT_EQ(0u, RegSvr32("/s /u"));
  const TEntries Before = WholeRegistry();
  ASSERT_EQ(0u, RegSvr32("/s"));
  TEntries Added = WholeRegistry();
  for (const auto& Entry : Before) {
    EXPECT_EQ(1u, Added.count(Entry.first)) << Entry.first;
    Added.erase(Entry.first);
  }
  // Keys that only hold others, and what the platform writes beside that for a type library.
  std::erase_if(Added, [](const auto& Entry) {
    return Entry.second == "-1" || Entry.first.ends_with("\\ProxyStubClsid\\") || Entry.first.ends_with("\\FLAGS\\");
  });
  char Module[MAX_PATH] = "";
  GetLongPathNameA(BuiltModulePath().c_str(), Module, sizeof Module);
  for (auto& [Name, Text] : Added)
    if (Text == Module) Text = "{module}";
  std::set<std::string> OfOne;
  for (const TPublishedClass& Class : PublishedClasses()) {
    const auto Lines = TakeLines(Added, {{GuidText(Class.ClassId), "{class}"},
                                         {GuidText(Class.InterfaceId), "{interface}"},
                                         {GuidText(Class.EventsId), "{events}"},
                                         {"Mendwork." + Class.Name, "Mendwork.{name}"},
                                         {"=" + Class.Name, "={name}"},
                                         {"=I" + Class.Name, "=I{name}"}});
    if (OfOne.empty()) OfOne = Lines;
    EXPECT_EQ(OfOne, Lines) << Class.Name;
  }
  const std::string Path = Module;
  std::string Expected;
  for (const auto& Lines : {OfOne, TakeLines(Added, {{Path.substr(0, Path.rfind('\\')), "{folder}"},
                                                     {"win64", "win32"},
                                                     {"TypeLib\\", "TypeLib: "}})})
    for (const std::string& Line : Lines) Expected += Line;
  ExpectText("server", "registered.txt", Expected);
  EXPECT_EQ(TEntries(), Added);
  ASSERT_EQ(0u, RegSvr32("/s /u"));
  EXPECT_TRUE(Before == WholeRegistry());
}

// The version-independent entries may belong to another copy of the module.
TEST_F(Registration, CurVerSaysWhoOwnsTheVersionIndependentProgId) {
  const std::string ProgId = "Mendwork.UFile", Id = GuidText(CLSID_UFile);
  const auto Entries = [&] {
    TEntries Result;
    Add(L"Mendwork.UFile", HKEY_CLASSES_ROOT, "", Result);
    Add(ToWide("CLSID\\" + Id + "\\VersionIndependentProgID"), HKEY_CLASSES_ROOT, "Of the class", Result);
    return Result;
  };
  const TEntries Own = {{"", "UFile Object"}, {"Clsid\\", Id}, {"CurVer\\", ProgId + ".6"}, {"Of the class", ProgId}};
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
    if (!Row.CurVer.empty()) SetDefaultValue(ProgId + "\\Clsid", "{11111111-2222-3333-4444-555555555555}");
    if (!Row.CurVer.empty()) SetDefaultValue(ProgId + "\\CurVer", Row.CurVer);
    const auto Before = Entries();
    EXPECT_EQ(S_OK, Export("DllRegisterServer"));
    EXPECT_EQ(Row.IsRewritten ? Own : Before, Entries());
    EXPECT_EQ(S_OK, Export("DllUnregisterServer"));
    EXPECT_EQ(Row.GoesOnUnregistering ? TEntries() : Before, Entries());
    for (const std::string& Gone : {"CLSID\\" + Id, ProgId + ".6"})
      EXPECT_TRUE(RegistryTreeOf(ToWide(Gone), HKEY_CLASSES_ROOT).empty()) << Gone;
    RegDeleteTreeA(HKEY_CLASSES_ROOT, ProgId.c_str());
  }
}

}  // namespace
