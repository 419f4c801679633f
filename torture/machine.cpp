#include "machine.h"

#include "base/text.h"
#include "support/module_calls.h"
#include "support/sandbox.h"

namespace {

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
    LayOutFiles(Root());
  else
    Plant(App(), Original.Files);
  LayOutLists(Root());
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

TCapture TMachine::Capture() const { return {TreeOf(App()), RegistryTreeOf(AppKeyName), CaptureClasses()}; }

std::string Difference(const TCapture& Before, const TCapture& After) {
  return Difference(Before.Files, After.Files) + Difference(Before.Registry, After.Registry) +
         Difference(Before.Classes, After.Classes);
}
