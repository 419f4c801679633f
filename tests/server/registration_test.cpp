#include "server/coclasses.h"
#include "support/program.h"
#include "support/sandbox.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>

namespace {

/// What a part of the registry holds: "KEY\|NAME=VALUE" for every value, "KEY\" alone for a key without values.
using TEntries = std::set<std::string>;

std::string ValueText(DWORD Type, const std::string& Bytes) {
  if (Type == REG_SZ) return Bytes.c_str();
  return "type " + std::to_string(Type) + " " + Bytes;
}

bool CollectValues(HKEY Key, const std::string& Path, TEntries& Entries) {
  constexpr DWORD LongestName = 256, LongestValue = 65536;
  static std::string Value(LongestValue, '\0');
  for (DWORD At = 0;; ++At) {
    char Name[LongestName];
    DWORD NameSize = LongestName, Type = 0, Size = LongestValue;
    if (RegEnumValueA(Key, At, Name, &NameSize, nullptr, &Type, reinterpret_cast<BYTE*>(Value.data()), &Size))
      return At > 0;
    Entries.insert(Path + "|" + Name + "=" + ValueText(Type, Value.substr(0, Size)));
  }
}

void Collect(HKEY Parent, const std::string& Path, const char* SubKey, TEntries& Entries) {
  constexpr DWORD LongestName = 256;
  TRegistryKey Key;
  if (RegOpenKeyExA(Parent, SubKey, 0, KEY_READ, Key.Out()) != ERROR_SUCCESS) return;
  bool Empty = !CollectValues(Key.Get(), Path, Entries);
  char Name[LongestName];
  for (DWORD At = 0; RegEnumKeyA(Key.Get(), At, Name, sizeof Name) == ERROR_SUCCESS; ++At) {
    Empty = false;
    Collect(Key.Get(), Path + Name + "\\", Name, Entries);
  }
  if (Empty) Entries.insert(Path);
}

/// All of HKEY_CLASSES_ROOT, and the user's own settings. The 32-bit branch, which a 32-bit program sees twice, is
/// taken together with the rest, and the platform's own writing of one key's name with the usual one.
TEntries WholeRegistry() {
  TEntries Raw, Entries;
  Collect(HKEY_CLASSES_ROOT, "", "", Raw);
  Collect(HKEY_CURRENT_USER, "HKCU\\", "Software", Raw);
  for (std::string Entry : Raw) {
    for (const auto& [Written, Usual] : {std::pair{"Wow6432Node\\", ""}, {"Typelib\\", "TypeLib\\"}})
      if (Entry.starts_with(Written)) Entry.replace(0, std::strlen(Written), Usual);
    Entries.insert(Entry);
  }
  return Entries;
}

TEntries Without(const TEntries& All, const TEntries& Known) {
  TEntries Rest;
  std::set_difference(All.begin(), All.end(), Known.begin(), Known.end(), std::inserter(Rest, Rest.end()));
  return Rest;
}

constexpr char LibraryId[] = "{D9F421A7-4AF7-47C5-9254-15A3A874CD14}";

std::string LongName(const std::string& Path) {
  char Long[MAX_PATH] = "";
  GetLongPathNameA(Path.c_str(), Long, sizeof Long);
  return Long;
}

void AddEntriesOf(const TPublishedClass& Class, const std::string& ModulePath, TEntries& Entries) {
  const std::string Id = GuidText(Class.ClassId), Key = "CLSID\\" + Id + "\\", Base = "Mendwork." + Class.Name,
                    ProgId = Base + ".6", Description = Class.Name + " Object";
  Entries.insert({Key + "|=" + Description, Key + "InprocServer32\\|=" + ModulePath,
                  Key + "InprocServer32\\|ThreadingModel=Apartment", Key + "ProgID\\|=" + ProgId,
                  Key + "VersionIndependentProgID\\|=" + Base, Key + "TypeLib\\|=" + LibraryId, Key + "Version\\|=2.0",
                  ProgId + "\\|=" + Description, ProgId + "\\Clsid\\|=" + Id, Base + "\\|=" + Description,
                  Base + "\\Clsid\\|=" + Id, Base + "\\CurVer\\|=" + ProgId});
  constexpr char DualProxy[] = "{00020424-0000-0000-C000-000000000046}";
  constexpr char DispatchProxy[] = "{00020420-0000-0000-C000-000000000046}";
  for (const bool Events : {false, true}) {
    const std::string Interface = "Interface\\" + GuidText(Events ? Class.EventsId : Class.InterfaceId) + "\\";
    Entries.insert({Interface + "|=I" + Class.Name + (Events ? "Events" : ""),
                    Interface + "ProxyStubClsid32\\|=" + (Events ? DispatchProxy : DualProxy),
                    Interface + "TypeLib\\|=" + LibraryId, Interface + "TypeLib\\|Version=2.0"});
  }
}

TEntries RegisteredEntries() {
  const std::string Path = LongName(BuiltModulePath()), Folder = Path.substr(0, Path.rfind('\\')),
                    Key = "TypeLib\\" + std::string(LibraryId) + "\\2.0\\";
  TEntries Entries = {Key + "|=Orvane Update Service Library", Key + "HELPDIR\\|=" + Folder,
                      Key + (sizeof(void*) == 4 ? "409\\win32\\|=" : "409\\win64\\|=") + Path};
  for (const TPublishedClass& Class : PublishedClasses) AddEntriesOf(Class, Path, Entries);
  return Entries;
}

std::string DefaultValue(const std::string& Key) {
  char Value[256] = "";
  DWORD Size = sizeof Value;
  const LSTATUS Status = RegGetValueA(HKEY_CLASSES_ROOT, Key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, Value, &Size);
  return Status == ERROR_SUCCESS ? Value : "<none>";
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
  // What the platform writes beside that for a type library.
  std::erase_if(Added, [](const std::string& Entry) {
    return Entry.find("\\ProxyStubClsid\\|") != std::string::npos || Entry.find("\\2.0\\FLAGS\\|") != std::string::npos;
  });
  const TEntries Expected = RegisteredEntries();
  EXPECT_EQ(TEntries(), Without(Expected, Added)) << "missing";
  EXPECT_EQ(TEntries(), Without(Added, Expected)) << "unexpected";
  EXPECT_EQ(TEntries(), Without(Before, After)) << "lost";

  ASSERT_EQ(0u, RegSvr32("/s /u"));
  EXPECT_TRUE(Before == WholeRegistry());
}

/// The version-independent entries may belong to another copy of the module.
struct TOwnership {
  const char* Name;
  const char* CurVer;  ///< before registration; null for no such entries at all
  bool IsRewritten;    ///< registration takes the entries over
  bool GoesOnUnregistering;
};

void PrintTo(const TOwnership& Row, std::ostream* Out) { *Out << Row.Name; }

class CurVer : public Registration, public testing::WithParamInterface<TOwnership> {};

TEST_P(CurVer, SaysWhoOwnsTheVersionIndependentProgId) {
  constexpr char ProgId[] = "Mendwork.UFile", OtherClass[] = "{11111111-2222-3333-4444-555555555555}";
  const std::string Id = GuidText(CLSID_UFile), ClassKey = "CLSID\\" + Id;
  const auto Entries = [&] {
    return std::vector{DefaultValue(ProgId), DefaultValue(ProgId + std::string("\\Clsid")),
                       DefaultValue(ProgId + std::string("\\CurVer")),
                       DefaultValue(ClassKey + "\\VersionIndependentProgID")};
  };
  const TOwnership& Row = GetParam();
  ASSERT_EQ(S_OK, Export("DllUnregisterServer"));
  if (Row.CurVer) {
    SetDefaultValue(ProgId, "Other");
    SetDefaultValue(ProgId + std::string("\\Clsid"), OtherClass);
    SetDefaultValue(ProgId + std::string("\\CurVer"), Row.CurVer);
  }
  const auto Before = Entries();

  EXPECT_EQ(S_OK, Export("DllRegisterServer"));
  const std::vector<std::string> Own = {"UFile Object", Id, "Mendwork.UFile.6", ProgId};
  EXPECT_EQ(Row.IsRewritten ? Own : Before, Entries());
  EXPECT_EQ("UFile Object", DefaultValue("Mendwork.UFile.6"));

  EXPECT_EQ(S_OK, Export("DllUnregisterServer"));
  EXPECT_EQ(Row.GoesOnUnregistering ? std::vector<std::string>(4, "<none>") : Before, Entries());
  for (const std::string& Gone : {ClassKey, std::string("Mendwork.UFile.6")})
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegOpenKeyA(HKEY_CLASSES_ROOT, Gone.c_str(), TRegistryKey().Out())) << Gone;
  RegDeleteTreeA(HKEY_CLASSES_ROOT, ProgId);
}

INSTANTIATE_TEST_SUITE_P(Rows, CurVer,
                         testing::Values(TOwnership{"absent", nullptr, true, true}, TOwnership{"empty", "", true, true},
                                         TOwnership{"older", "Mendwork.UFile.5", true, true},
                                         TOwnership{"same", "Mendwork.UFile.6", false, true},
                                         TOwnership{"same_in_other_case", "mendwork.ufile.6", false, false},
                                         TOwnership{"newer", "Mendwork.UFile.10", false, false},
                                         TOwnership{"dots_do_not_count", "Mendwork.UFile.6.1", false, false},
                                         TOwnership{"older_with_dot_reads_as_59", "Mendwork.UFile.5.9", false, false},
                                         TOwnership{"no_number", "Mendwork.UFile.six", false, false},
                                         TOwnership{"number_with_tail", "Mendwork.UFile.5b", false, false},
                                         TOwnership{"shorter_than_the_id", "Mend", false, false}),
                         [](const auto& Info) { return std::string(Info.param.Name); });

}  // namespace
