#include "machine.h"

#include "base/text.h"
#include "support/module_calls.h"
#include "support/raw_uninstall_log.h"
#include "support/type_library.h"

namespace {

constexpr char Bytes[] = "\0\x01\x80\xFF bytes";

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

void CopyBuilt(const std::string& Name, const std::string& Path) {
  Write(Path, Read(BuiltFile("tests\\versioned\\" + Name)));
}

std::string SystemFile(const std::string& Name) {
  char Folder[MAX_PATH] = "";
  GetSystemDirectoryA(Folder, sizeof Folder);
  return std::string(Folder) + "\\" + Name;
}

/// Without the library that is tortured.
void SetRegistered(const std::string& Server, bool Registered) {
  using TFunction = HRESULT(STDAPICALLTYPE*)();
  const TModuleHandle Module(LoadLibraryA(Server.c_str()));
  const auto Function = reinterpret_cast<TFunction>(
      reinterpret_cast<void*>(GetProcAddress(Module.Get(), Registered ? "DllRegisterServer" : "DllUnregisterServer")));
  if (Function) Function();
}
void RemoveTypeLibrary() {
  constexpr LCID Neutral = 0;
  UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, Neutral, OwnKind);
}

/// The key that a path of HKEY_CLASSES_ROOT belongs to: a class, an interface, a library or a name.
std::wstring OwnKey(const std::wstring& Path) {
  size_t Parts = 1;
  for (const wchar_t* Folder : {L"CLSID\\", L"Interface\\", L"TypeLib\\", L"AppID\\"})
    Parts += Path.starts_with(Folder);
  if (Path.starts_with(L"Wow6432Node\\")) Parts = 3;
  size_t End = 0;
  for (; Parts > 0 && End != std::wstring::npos; --Parts) End = Path.find(L'\\', End + 1);
  return Path.substr(0, End);
}

}  // namespace

std::string RegisteredServer() { return SystemFile("scrrun.dll"); }
std::string UnregisteredServer() { return SystemFile("msscript.ocx"); }

TMachine::TMachine() : TSandbox(NoDoubles) {
  Must(SUCCEEDED(
           CoGetClassObject(CLSID_UTransactionLog, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid())),
       "the library is not registered");
  const std::string Forgotten = ForgottenCalls();
  Must(Forgotten.empty(), "the list in tests/support/module_calls.cpp lacks what the library imports: " + Forgotten);
  Window = CreateWindowExA(0, "Static", "", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
}
TMachine::~TMachine() {
  DestroyWindow(Window);
  DeleteKeyTree(AppKeyName);
}

void TMachine::LayOut() {
  RemoveTree(Base());
  MakeFolders(Base());
  if (Original.Files.empty())
    LayOutFiles();
  else
    Plant(App(), Original.Files);
  std::string Records;
  for (int At = 0; At < UninstallRecords; ++At) Records += FileRecord("C:\\old" + std::to_string(At), 0);
  Write(UninstallLogOf(Root()), TRawLog{.NumRecs = UninstallRecords, .Blocks = BlocksOf(Records)}.Bytes());
  Write(Root() + "\\Rubbish\\folder\\file.txt", "");
  Write(Root() + "\\Rubbish\\file.txt", "");
  if (Original.Registry.empty() || RegistryTreeOf(AppKeyName) != Original.Registry) LayOutRegistry();
  LayOutClasses();
  if (Original.Files.empty()) Original = Capture();
}

void TMachine::LayOutClasses() {
  const bool First = ClassKeys.empty();
  if (First) FindClassKeys();
  if (!First && CaptureClasses() == Original.Classes) return;
  SetRegistered(RegisteredServer(), true);
  SetRegistered(UnregisteredServer(), false);
  RemoveTypeLibrary();
}

/// By what changes when they are registered and unregistered.
void TMachine::FindClassKeys() {
  const auto All = [] { return RegistryTreeOf(L"", HKEY_CLASSES_ROOT); };
  SetRegistered(RegisteredServer(), true);
  SetRegistered(UnregisteredServer(), true);
  const std::wstring Library = ToWide(App("types.TLB"));
  TComRef<ITypeLib> Made;
  if (SUCCEEDED(LoadTypeLib(Library.c_str(), Made.Out())))
    RegisterTypeLib(Made.Get(), const_cast<wchar_t*>(Library.c_str()), nullptr);
  const TRegistryTree With = All();
  SetRegistered(RegisteredServer(), false);
  SetRegistered(UnregisteredServer(), false);
  RemoveTypeLibrary();
  const TRegistryTree Without = All();
  for (const auto& [Path, Entry] : With)
    if (const auto Found = Without.find(Path); Found == Without.end() || !(Found->second == Entry))
      ClassKeys.insert(OwnKey(Path));
  Must(!ClassKeys.empty(), "the platform's servers and the type library cannot be registered");
}

TRegistryTree TMachine::CaptureClasses() const {
  TRegistryTree Classes;
  for (const std::wstring& Key : ClassKeys)
    for (const auto& [Path, Entry] : RegistryTreeOf(Key, HKEY_CLASSES_ROOT)) Classes[Key + L"\\" + Path] = Entry;
  return Classes;
}

void TMachine::LayOutFiles() const {
  const TPlaces Places{Root()};
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
  CopyBuilt("second.dll", Places.Package("older_version.dll"));
  CopyBuilt("first.dll", Places.Package("newer_version.dll"));
  CopyBuilt("first.dll", Places.Package("asked.dll"));
}

TCapture TMachine::Capture() const { return {TreeOf(App()), RegistryTreeOf(AppKeyName), CaptureClasses()}; }

std::string Difference(const TCapture& Before, const TCapture& After) {
  return Difference(Before.Files, After.Files) + Difference(Before.Registry, After.Registry) +
         Difference(Before.Classes, After.Classes);
}
