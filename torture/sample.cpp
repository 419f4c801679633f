#include "sample.h"

#include "support/memory_file.h"
#include "support/process.h"
#include "support/raw_uninstall_log.h"
#include "support/sandbox.h"
#include "support/tree.h"

namespace {

constexpr char Bytes[] = "\0\x01\x80\xFF bytes";

void CopyBuilt(const std::string& Name, const std::string& Path) {
  Write(Path, Padded(Read(BuiltFile("tests\\versioned\\" + Name)), 8192));  // whatever the linker made of it
}

std::string SystemFile(const std::string& Name) {
  char Folder[MAX_PATH] = "";
  GetSystemDirectoryA(Folder, sizeof Folder);
  return std::string(Folder) + "\\" + Name;
}

}  // namespace

std::string RegisteredServer() { return SystemFile("scrrun.dll"); }
std::string UnregisteredServer() { return SystemFile("msscript.ocx"); }

void LayOutRegistry() {
  DeleteKeyTree(AppKeyName);
  const std::wstring Key = AppKeyName;
  const auto Text = [](std::wstring_view Value) { return WideBytes(std::wstring(Value) + L'\0'); };
  StoreValue(Key, L"", REG_SZ, Text(L"Sample"));
  StoreValue(Key, L"Version", REG_SZ, Text(L"1.4"));
  StoreValue(Key, L"Build", REG_DWORD, {"\x81\x05\0\0", 4});
  StoreValue(Key, L"Blob", REG_BINARY, {Bytes, sizeof Bytes});
  StoreValue(Key, L"Folder", REG_EXPAND_SZ, Text(L"%USERPROFILE%\\\x00DC\x20AC"));
  StoreValue(Key, L"Languages", REG_MULTI_SZ, WideBytes({L"en\0de\0\0", 7}));
  StoreValue(Key, L"Ruler", REG_QWORD, "12345678");
  StoreValue(Key, L"odd", 0x12345678, "own type");
  StoreValue(Key + L"\\Recent", L"1", REG_SZ, Text(L"C:\\one, \"two\".txt"));
  StoreValue(Key + L"\\Recent", L"2", REG_NONE, "");
  StoreValue(Key + L"\\Recent\\Deep\\Deeper", L"", REG_SZ, WideBytes(L"no terminator"));
  StoreValue(Key + L"\\Plugins\\A", L"On", REG_DWORD, {"\1\0\0\0", 4});
  StoreValue(Key + L"\\Plugins\\B", L"On", REG_DWORD, {"\0\0\0\0", 4});
  StoreValue(Key + L"\\Watched", L"Level", REG_DWORD, {"\2\0\0\0", 4});
}

void LayOutFiles(const std::string& Root) {
  const TPlaces Places{Root};
  constexpr DWORD ReadOnly = FILE_ATTRIBUTE_READONLY, Hidden = FILE_ATTRIBUTE_HIDDEN, System = FILE_ATTRIBUTE_SYSTEM;
  const std::string Big(200 * 1024 + 17, 'b');
  // What is written later is newer.
  Write(Places.Package("older.txt"), "of the package, older");
  Write(Places.App("program.exe"), "program 1.4", ReadOnly);
  Write(Places.App("data.bin"), Big);
  Write(Places.App("newer.txt"), "of the user");
  Write(Places.App("older.txt"), "of the user, newer");
  Write(Places.App("settings.ini"), "[settings]\r\n", Hidden);
  Write(Places.App("empty.dat"), "", ReadOnly | Hidden);
  Write(Places.App("monday.bak"), "old");
  Write(Places.App("tuesday.bak"), "", ReadOnly);
  Write(Places.App("docs\\one.txt"), "one");
  Write(Places.App("docs\\sub\\two.txt"), "two", ReadOnly);
  Write(Places.App("docs\\sub\\keep.dat"), "kept");
  Write(Places.App("cache\\index.dat"), "index", Hidden);
  Write(Places.App("cache\\pages\\17.dat"), std::string(40000, 'p'), ReadOnly | Hidden | System);
  MakeFolders(Places.App("cache\\pages\\empty"));
  Write(Places.App("templates\\letter.txt"), "letter");
  Write(Places.App("templates\\memo.txt"), "memo", ReadOnly);
  MakeTypeLibrary(Places.App("types.TLB"));
  Write(Places.App("types.TLB"), Read(Places.App("types.TLB")));
  CopyBuilt("first.dll", Places.App("older_version.dll"));
  CopyBuilt("second.dll", Places.App("newer_version.dll"));
  CopyBuilt("first.dll", Places.App("asked.dll"));
  Write(Places.Package("program.exe"), "program 2.0", Hidden);
  Write(Places.Package("data.bin"), Big + "and more");
  Write(Places.Package("newer.txt"), "of the package, newer");
  Write(Places.Package("fresh.txt"), "fresh", ReadOnly);
  Write(Places.Package("empty.dat"), "no longer empty");
  Write(Places.Package("plugin.dll"), "plugin");
  Write(Places.Package("docs\\sub\\keep.dat"), "of the package", ReadOnly);
  Write(Places.Package("docs\\sub\\two.txt"), "two again", Hidden);
  Write(Places.Package("docs\\more\\three.txt"), std::string(70000, '3'));
  CopyBuilt("second.dll", Places.Package("older_version.dll"));
  CopyBuilt("first.dll", Places.Package("newer_version.dll"));
  CopyBuilt("first.dll", Places.Package("asked.dll"));
}

void LayOutLists(const std::string& Root) {
  std::string Records;
  for (int At = 0; At < UninstallRecords; ++At) Records += FileRecord("C:\\old" + std::to_string(At), 0);
  Write(UninstallLogOf(Root), TRawLog{.NumRecs = UninstallRecords, .Blocks = BlocksOf(Records)}.Bytes());
  Write(Root + "\\Rubbish\\folder\\file.txt", "");
  Write(Root + "\\Rubbish\\file.txt", "");
}

int UninstallRecordsOf(const std::string& Log) {
  try {
    TUninstallLog Loaded;
    LoadFrom(Log, Loaded);
    return Loaded.Count();
  } catch (const EUninstallLogError&) {
    return -1;
  }
}
