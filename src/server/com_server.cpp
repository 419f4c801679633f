#include "server/com_server.h"

#include "base/failure.h"
#include "base/module_instance.h"
#include "base/paths.h"
#include "base/text.h"
#include "server/class_factory.h"
#include "server/type_library.h"

namespace {

constexpr int ClassVersion = 6;
constexpr DWORD ModulePathSize = 262;
constexpr DWORD LongPathSize = 260;

using TGetLongPathName = DWORD(WINAPI*)(LPCSTR, LPSTR, DWORD);

/// A function that may be absent, by name.
FARPROC FindFunction(HMODULE Module, const char* Name) { return Module ? GetProcAddress(Module, Name) : nullptr; }

/// Each component under the name that the disk stores, found one by one from the last to the drive part. A component
/// that cannot be found ends the walk; what is before it stays as it is.
std::string LongPathByComponents(std::string Path) {
  constexpr size_t DriveSize = 2;
  std::string Tail;
  while (Path.size() > DriveSize) {
    WIN32_FIND_DATAA Found;
    const TFindHandle Search(FindFirstFileA(Path.c_str(), &Found));
    if (!Search) break;
    Tail.insert(0, Found.cFileName).insert(0, "\\");
    std::string Parent = FolderPrefix(Path);
    if (!Parent.empty() && Parent.back() == '\\') Parent.pop_back();
    Path = Parent;
  }
  return Path + Tail;
}

std::string LongPath(const std::string& Path) {
  static const auto GetLongPathName = reinterpret_cast<TGetLongPathName>(
      reinterpret_cast<void*>(FindFunction(GetModuleHandleA("KERNEL32"), "GetLongPathNameA")));
  if (!GetLongPathName) return LongPathByComponents(Path);
  char Long[LongPathSize];
  const DWORD Size = GetLongPathName(Path.c_str(), Long, sizeof Long);
  return Size > 0 && Size < sizeof Long ? std::string(Long, Size) : Path;
}

std::string PathOfModule() {
  char Path[ModulePathSize];
  const DWORD Size = GetModuleFileNameA(ModuleInstance(), Path, sizeof Path);
  return LongPath(std::string(Path, Size));
}

TModuleHandle LoadOleAutomation() {
  const UINT Mode = SetErrorMode(SEM_NOOPENFILEERRORBOX);
  TModuleHandle Module(LoadLibraryA("OLEAUT32.DLL"));
  SetErrorMode(Mode);
  return Module;
}

}  // namespace

TComServer::TComServer() : OleAutomation(LoadOleAutomation()), ModulePath(PathOfModule()) {}

TComServer::~TComServer() {
  FactoryList.clear();
  if (Library) Library->Release();
}

void TComServer::AddFactory(const TCoClass& Row) {
  TypeLibrary();  // names the server, so it comes before the factory that asks for the name
  FactoryList.push_back(std::make_unique<TVersionedAutoObjectFactory>(*this, Row, ClassVersion));
}

TVersionedAutoObjectFactory* TComServer::FindFactory(const CLSID& ClassId) const {
  for (const auto& Factory : FactoryList)
    if (Factory->Class().ClassId == ClassId) return Factory.get();
  return nullptr;
}

ITypeLib& TComServer::TypeLibrary() {
  if (!Library) {
    TComRef<ITypeLib> Loaded;
    CheckCall(LoadTypeLib(ToWide(ModulePath).c_str(), Loaded.Out()));
    void* const Before =
        InterlockedCompareExchangePointer(reinterpret_cast<void* volatile*>(&Library), Loaded.Get(), nullptr);
    if (!Before) Loaded.Detach();  // else another thread was first, and its library stays
  }
  return *Library;
}

TLIBATTR TComServer::LibraryAttributes() {
  TLIBATTR* Attributes = nullptr;
  CheckCall(TypeLibrary().GetLibAttr(&Attributes));
  const TLIBATTR Result = *Attributes;
  TypeLibrary().ReleaseTLibAttr(Attributes);
  return Result;
}

std::string TComServer::Name() const {
  constexpr int WholeLibrary = -1;
  TBstr Name;
  if (Library && SUCCEEDED(Library->GetDocumentation(WholeLibrary, Name.Out(), nullptr, nullptr, nullptr)))
    return ToAnsi(ViewOf(Name.Get()));
  const std::string File = NamePart(ModulePath);
  return File.substr(0, File.rfind('.'));
}

void TComServer::UpdateRegistry(bool Register) {
  if (Library) {
    if (Register)
      RegisterTypeLibrary();
    else
      UnregisterTypeLibrary();
  }
  for (const auto& Factory : FactoryList) Factory->UpdateRegistry(Register);
}

void TComServer::RegisterTypeLibrary() {
  std::wstring Path = ToWide(ModulePath), Help = ToWide(FolderPart(ModulePath));
  CheckCall(RegisterTypeLib(Library, Path.data(), Help.data()));
}

void TComServer::UnregisterTypeLibrary() {
  const FARPROC Unregister = FindFunction(OleAutomation.Get(), UnregisterTypeLibName);
  // The result does not matter: what is not registered need not go.
  if (Unregister) CallUnregisterTypeLib(Unregister, LibraryAttributes());
}
