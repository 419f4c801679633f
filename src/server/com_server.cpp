#include "server/com_server.h"

#include "base/failure.h"
#include "base/folder_content.h"
#include "base/module_instance.h"
#include "base/text.h"
#include "server/class_factory.h"
#include "server/type_library.h"

#include <algorithm>

namespace {

using TGetLongPathName = DWORD(WINAPI*)(LPCWSTR, LPWSTR, DWORD);

/// A function that may be absent, by name.
FARPROC FindFunction(HMODULE Module, const char* Name) { return Module ? GetProcAddress(Module, Name) : nullptr; }

/// The text that `Get` gives when it is handed a buffer and its size in characters, however long it is: it gives the
/// length of the text, or at least the size of the buffer when that is too small, or 0.
template <class TGet>
std::wstring TextOfAnySize(TGet Get) {
  std::wstring Text(MAX_PATH, L'\0');
  for (;;) {
    const DWORD Size = Get(Text.data(), static_cast<DWORD>(Text.size()));
    if (Size < Text.size()) return Text.substr(0, Size);
    Text.resize(2 * Text.size());
  }
}

/// Each component under the name that the disk stores, found one by one from the last to the drive part. A component
/// that cannot be found ends the walk; what is before it stays as it is.
std::wstring LongPathByComponents(std::wstring Path) {
  constexpr size_t DriveSize = 2;
  std::wstring Tail;
  for (std::vector<TFolderEntry> Found; Path.size() > DriveSize; Found.clear()) {
    if (ListFolder(Path, Found) != ERROR_SUCCESS || Found.size() != 1) break;
    Tail.insert(0, L"\\" + Found[0].Name);
    Path.resize(std::max(DriveSize, Path.find_last_of(L'\\')));
  }
  return Path + Tail;
}

/// Not converted to ANSI: the module works from a folder whose name the code page lacks, and from a long one.
std::wstring PathOfModule() {
  const std::wstring Path =
      TextOfAnySize([](LPWSTR To, DWORD Room) { return GetModuleFileNameW(ModuleInstance(), To, Room); });
  static const auto GetLongPathName = reinterpret_cast<TGetLongPathName>(
      reinterpret_cast<void*>(FindFunction(GetModuleHandleA("KERNEL32"), "GetLongPathNameW")));
  if (!GetLongPathName) return LongPathByComponents(Path);
  const std::wstring Long =
      TextOfAnySize([&](LPWSTR To, DWORD Room) { return GetLongPathName(Path.c_str(), To, Room); });
  return Long.empty() ? Path : Long;
}

/// The path without its last component, but with the backslash of a drive root.
std::wstring FolderOf(const std::wstring& Path) {
  constexpr size_t DriveRoot = 3;
  const size_t End = Path.find_last_of(L'\\');
  return Path.substr(0, End < DriveRoot ? DriveRoot : End);
}

/// A file with the module's type library, for the length of a load.
class TLibraryCopy {
 public:
  TLibraryCopy() {
    wchar_t Folder[MAX_PATH + 1] = L"", File[MAX_PATH + 1] = L"";
    const HRSRC Resource = FindResourceW(ModuleInstance(), MAKEINTRESOURCEW(1), L"TYPELIB");
    const HGLOBAL Loaded = Resource ? LoadResource(ModuleInstance(), Resource) : nullptr;
    if (!Loaded || !GetTempPathW(MAX_PATH, Folder) || !GetTempFileNameW(Folder, L"mwk", 0, File)) RaiseLastError();
    Path = File;
    const TFileHandle To(
        CreateFileW(File, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr));
    DWORD Written = 0;
    if (!WriteFile(To.Get(), LockResource(Loaded), SizeofResource(ModuleInstance(), Resource), &Written, nullptr))
      RaiseLastError();
  }
  ~TLibraryCopy() { DeleteFileW(Path.c_str()); }
  TLibraryCopy(const TLibraryCopy&) = delete;
  TLibraryCopy& operator=(const TLibraryCopy&) = delete;

  std::wstring Path;
};

/// The library in the module itself. Where the platform's reader does not take so long a path, a copy serves.
TComRef<ITypeLib> LoadOwnLibrary(const std::wstring& Path) {
  TComRef<ITypeLib> Library;
  HRESULT Result = LoadTypeLib(Path.c_str(), Library.Out());
  if (FAILED(Result) && Path.size() >= MAX_PATH) Result = LoadTypeLib(TLibraryCopy().Path.c_str(), Library.Out());
  CheckCall(Result);
  return Library;
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
  FactoryList.push_back(std::make_unique<TVersionedAutoObjectFactory>(*this, Row, OwnModule.ClassVersion));
}

TVersionedAutoObjectFactory* TComServer::FindFactory(const CLSID& ClassId) const {
  for (const auto& Factory : FactoryList)
    if (Factory->Class().ClassId == ClassId) return Factory.get();
  return nullptr;
}

ITypeLib& TComServer::TypeLibrary() {
  if (!Library) {
    TComRef<ITypeLib> Loaded = LoadOwnLibrary(ModulePath);
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
    return LossyAnsi(ViewOf(Name.Get()));
  const std::wstring File = ModulePath.substr(ModulePath.find_last_of(L'\\') + 1);
  return LossyAnsi(File.substr(0, File.rfind(L'.')));
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
  std::wstring Path = ModulePath, Help = FolderOf(ModulePath);
  CheckCall(RegisterTypeLib(Library, Path.data(), Help.data()));
}

void TComServer::UnregisterTypeLibrary() {
  const FARPROC Unregister = FindFunction(OleAutomation.Get(), UnregisterTypeLibName);
  // The result does not matter: what is not registered need not go.
  if (Unregister) CallUnregisterTypeLib(Unregister, LibraryAttributes());
}
