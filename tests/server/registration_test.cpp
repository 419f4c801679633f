#include "base/text.h"
#include "server/coclasses.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>

namespace {

/// What a part of the registry holds: "KEY\NAME=VALUE" for every value, "KEY\" for a key without a default value.
using TEntries = std::set<std::string>;

void Add(const std::wstring& KeyName, HKEY Root, const std::string& Prefix, TEntries& Entries) {
  for (const auto& [Path, Value] : RegistryTreeOf(KeyName, Root)) {
    std::string Entry = Prefix + ToAnsi(Path);
    // The 32-bit branch, which a 32-bit program sees twice, and the platform's own writing of one key's name.
    for (const auto& [Written, Usual] : {std::pair{"Wow6432Node\\", ""}, {"Typelib\\", "TypeLib\\"}})
      if (Entry.starts_with(Written)) Entry.replace(0, std::strlen(Written), Usual);
    const std::wstring Text(reinterpret_cast<const wchar_t*>(Value.Data.data()), Value.Data.size() / sizeof(wchar_t));
    if (Value.Type == REG_SZ)
      Entry += "=" + ToAnsi(Text.c_str());
    else if (Value.Type >= 0)
      Entry += "=type " + std::to_string(Value.Type) + " " + Value.Data;
    Entries.insert(Entry);
  }
}

/// All of HKEY_CLASSES_ROOT, and the user's own settings.
TEntries WholeRegistry() {
  TEntries Entries;
  Add(L"", HKEY_CLASSES_ROOT, "", Entries);
  Add(L"Software", HKEY_CURRENT_USER, "HKCU\\", Entries);
  return Entries;
}

TEntries Without(const TEntries& All, const TEntries& Known) {
  TEntries Rest;
  std::set_difference(All.begin(), All.end(), Known.begin(), Known.end(), std::inserter(Rest, Rest.end()));
  return Rest;
}

constexpr char LibraryId[] = "{D9F421A7-4AF7-47C5-9254-15A3A874CD14}";

TEntries RegisteredEntries() {
  constexpr char DualProxy[] = "{00020424-0000-0000-C000-000000000046}";
  constexpr char DispatchProxy[] = "{00020420-0000-0000-C000-000000000046}";
  char Long[MAX_PATH] = "";
  GetLongPathNameA(BuiltModulePath().c_str(), Long, sizeof Long);
  const std::string Path = Long, Folder = Path.substr(0, Path.rfind('\\')),
                    Library = "TypeLib\\" + std::string(LibraryId) + "\\2.0\\";
  TEntries Entries = {Library + "=Orvane Update Service Library", Library + "HELPDIR\\=" + Folder,
                      Library + (sizeof(void*) == 4 ? "409\\win32\\=" : "409\\win64\\=") + Path};
  for (const TPublishedClass& Class : PublishedClasses) {
    const std::string Id = GuidText(Class.ClassId), Key = "CLSID\\" + Id + "\\", Base = "Mendwork." + Class.Name,
                      ProgId = Base + ".6", Description = "\\=" + Class.Name + " Object";
    Entries.insert({"CLSID\\" + Id + Description, Key + "InprocServer32\\=" + Path,
                    Key + "InprocServer32\\ThreadingModel=Apartment", Key + "ProgID\\=" + ProgId,
                    Key + "VersionIndependentProgID\\=" + Base, Key + "TypeLib\\=" + LibraryId, Key + "Version\\=2.0",
                    ProgId + Description, ProgId + "\\Clsid\\=" + Id, Base + Description, Base + "\\Clsid\\=" + Id,
                    Base + "\\CurVer\\=" + ProgId});
    for (const bool Events : {false, true}) {
      const std::string Interface = "Interface\\" + GuidText(Events ? Class.EventsId : Class.InterfaceId) + "\\";
      Entries.insert({Interface + "=I" + Class.Name + (Events ? "Events" : ""),
                      Interface + "ProxyStubClsid32\\=" + (Events ? DispatchProxy : DualProxy),
                      Interface + "TypeLib\\=" + LibraryId, Interface + "TypeLib\\Version=2.0"});
    }
  }
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
    using TExport = HRESULT(WINAPI*)();
    return reinterpret_cast<TExport>(reinterpret_cast<void*>(GetProcAddress(Module.Get(), Name)))();
  }
  static DWORD RegSvr32(const std::string& Options) {
    return RunSystemProgram("regsvr32.exe", Options + " \"" + BuiltModulePath() + "\"").Status;
  }

  TModuleHandle Module{LoadLibraryA(BuiltModulePath().c_str())};
};

TEST_F(Registration, OfRegsvr32IsCompleteAndGoesWithoutATrace) {
  ASSERT_EQ(0u, RegSvr32("/s /u"));
  const TEntries Before = WholeRegistry();
  for (const std::string& Entry : Before) {
    EXPECT_EQ(std::string::npos, Entry.find("Mendwork.U")) << Entry;
    EXPECT_EQ(std::string::npos, Entry.find(LibraryId)) << Entry;
  }
  ASSERT_EQ(0u, RegSvr32("/s"));
  const TEntries After = WholeRegistry();
  TEntries Added = Without(After, Before);
  // Keys that only hold others, and what the platform writes beside that for a type library.
  std::erase_if(Added, [](const std::string& Entry) {
    return Entry.ends_with("\\") || Entry.find("\\ProxyStubClsid\\=") != std::string::npos ||
           Entry.find("\\2.0\\FLAGS\\=") != std::string::npos;
  });
  const TEntries Expected = RegisteredEntries();
  EXPECT_EQ(TEntries(), Without(Expected, Added)) << "missing";
  EXPECT_EQ(TEntries(), Without(Added, Expected)) << "unexpected";
  EXPECT_EQ(TEntries(), Without(Before, After)) << "lost";

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
  const TEntries Own = {"=UFile Object", "Clsid\\=" + Id, "CurVer\\=Mendwork.UFile.6", "Of the class=Mendwork.UFile"};
  struct TRow {
    std::string CurVer;  ///< before registration; empty for no such entries at all
    bool IsRewritten;    ///< registration takes the entries over
    bool GoesOnUnregistering;
  };
  for (const TRow& Row : {TRow{"", true, true}, TRow{"Mendwork.UFile.5", true, true},
                          TRow{"Mendwork.UFile.6", false, true}, TRow{"mendwork.ufile.6", false, false},
                          TRow{"Mendwork.UFile.10", false, false}, TRow{"Mendwork.UFile.5.9", false, false},
                          TRow{"Mendwork.UFile.5b", false, false}, TRow{"Mend", false, false}}) {
    SCOPED_TRACE(Row.CurVer);
    ASSERT_EQ(S_OK, Export("DllUnregisterServer"));
    if (!Row.CurVer.empty()) {
      SetDefaultValue(ProgId, "Other");
      SetDefaultValue(ProgId + "\\Clsid", "{11111111-2222-3333-4444-555555555555}");
      SetDefaultValue(ProgId + "\\CurVer", Row.CurVer);
    }
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
