// An updater for a machine on which neither Mendwork.dll nor MendworkKit.dll is registered, and where nobody may
// register them. It copies files of a package into folders that it makes, and undoes all of that, folders too, when
// something fails. It needs the headers Mendwork_TLB.h, MendworkKit_TLB.h and mendwork_classes.h, and the system
// libraries ole32, oleaut32 and shell32.
//
// usage: unregistered [/kit MENDWORKKIT.DLL] PACKAGE-FOLDER APPLICATION-FOLDER FILE...
//
// Without /kit it finds the classes through its manifest, unregistered.manifest: both libraries and their manifests
// (Orvane.*.manifest) lie beside this program. With /kit it needs no manifest, as a library in somebody else's program
// does: the kit, with Mendwork.dll beside it, registers the classes in this thread.
//
// Ends with 0 when the application is updated, with 2 when it is as it was before, and with 1 when neither is sure.

#define INITGUID  // this file defines the identifiers that the headers declare

#include <windows.h>
// The headers need the types of the one above.
#include <MendworkKit_TLB.h>
#include <Mendwork_TLB.h>
#include <mendwork_classes.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// The check points. Any identifiers will do.
const GUID Started = {0x91b0de27, 0x4f6a, 0x4c08, {0xb3, 0x5e, 0x70, 0xd4, 0x1a, 0x8c, 0x62, 0xf9}};
const GUID Committed = {0x2a7c93f5, 0xe10b, 0x4d74, {0x86, 0xc9, 0x5b, 0x3f, 0xd8, 0x07, 0xae, 0x41}};
constexpr long Always = 0;
enum TOutcome { Updated = 0, NotSure = 1, AsBefore = 2 };

void Check(HRESULT Result) {
  if (SUCCEEDED(Result)) return;
  char Number[32];
  std::snprintf(Number, sizeof Number, "0x%08lX", static_cast<unsigned long>(Result));
  throw std::runtime_error(Number);
}

/// A string as automation wants it.
class TText {
 public:
  explicit TText(const std::wstring& Text) : Value(SysAllocStringLen(Text.data(), static_cast<UINT>(Text.size()))) {
    if (!Value) throw std::runtime_error("out of memory");
  }
  ~TText() { SysFreeString(Value); }
  TText(const TText&) = delete;
  TText& operator=(const TText&) = delete;
  operator BSTR() const { return Value; }

 private:
  BSTR Value;
};

/// A new object.
template <class TInterface>
class TObject {
 public:
  TObject(const CLSID& Class, const IID& Interface) {
    void* Made = nullptr;
    Check(CoCreateInstance(Class, nullptr, CLSCTX_INPROC_SERVER, Interface, &Made));
    Pointer = static_cast<TInterface*>(Made);
  }
  ~TObject() { Pointer->Release(); }
  TObject(const TObject&) = delete;
  TObject& operator=(const TObject&) = delete;
  TInterface* operator->() const { return Pointer; }

 private:
  TInterface* Pointer;
};

struct TComForThisThread {
  TComForThisThread() { Check(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)); }
  ~TComForThisThread() { CoUninitialize(); }
  TComForThisThread(const TComForThisThread&) = delete;
  TComForThisThread& operator=(const TComForThisThread&) = delete;
};

/// The classes in this thread, while this object lives. The kit stays loaded.
class TClasses {
 public:
  explicit TClasses(const std::wstring& KitDll)
      : Kit(LoadLibraryExW(KitDll.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {
    if (!Kit) Check(HRESULT_FROM_WIN32(GetLastError()));
    Check(Function<TMendworkKitRegisterClasses>("MendworkKitRegisterClasses")(nullptr));
  }
  ~TClasses() { Function<TMendworkKitRevokeClasses>("MendworkKitRevokeClasses")(); }
  TClasses(const TClasses&) = delete;
  TClasses& operator=(const TClasses&) = delete;

 private:
  template <class TFunction>
  TFunction Function(const char* Name) const {
    const FARPROC Found = GetProcAddress(Kit, Name);
    if (!Found) Check(HRESULT_FROM_WIN32(GetLastError()));
    return reinterpret_cast<TFunction>(reinterpret_cast<void*>(Found));
  }
  HMODULE Kit;
};

struct TPackage {
  std::filesystem::path From, To;
  std::vector<std::filesystem::path> Files;
};

class TUpdater {
 public:
  /// Raises when there is something to be undone first, and it cannot be.
  TOutcome Run(const TPackage& Package) const {
    if (Repair()) std::puts("An earlier update was interrupted; its changes are undone.");
    try {
      Update(Package);
    } catch (const std::exception& Failure) {
      std::printf("The update failed: %s\n", Failure.what());
      Repair();
      std::puts("Its changes are undone.");
      return AsBefore;
    }
    std::puts("Updated.");
    return Updated;
  }

 private:
  bool Repair() const {
    GUID Reached{};
    Check(Kit->Rollback(VARIANT_TRUE, &Reached));
    const bool Undone = IsEqualGUID(Reached, Started);
    if (Undone) Check(TransactionLog->PutCheckPoint(Committed));
    return Undone;
  }

  /// A copy of Mendwork's own, into a folder of the kit's.
  void Update(const TPackage& Package) const {
    Check(TransactionLog->PutCheckPoint(Started));
    for (const auto& Name : Package.Files) {
      const std::filesystem::path To = Package.To / Name;
      Check(Kit->CreateFolderLogged(TText(To.parent_path().wstring())));
      Check(File->CopyFileLogged(TText((Package.From / Name).wstring()), TText(To.wstring()), Always));
    }
    Check(TransactionLog->PutCheckPoint(Committed));
  }

  TObject<IKit> Kit{CLSID_Kit, IID_IKit};
  TObject<IUFile> File{CLSID_UFile, IID_IUFile};
  TObject<IUTransactionLog> TransactionLog{CLSID_UTransactionLog, IID_IUTransactionLog};
};

/// What asks goes unanswered while this lives; Mendwork's objects made meanwhile take it.
struct TSilence {
  TSilence() { Check(Kit->Silent(TText(L"cancel"))); }
  TObject<IKit> Kit{CLSID_Kit, IID_IKit};
};

/// The words of the command line behind the program's name, without the detour over the ANSI code page.
std::vector<std::wstring> CommandLineWords() {
  int Count = 0;
  wchar_t** const Words = CommandLineToArgvW(GetCommandLineW(), &Count);
  std::vector<std::wstring> Result(Words + 1, Words + Count);
  LocalFree(Words);
  return Result;
}

}  // namespace

int main() try {
  std::vector<std::wstring> Words = CommandLineWords();
  std::optional<std::wstring> KitDll;
  if (Words.size() > 2 && Words[0] == L"/kit") {
    KitDll = std::filesystem::absolute(Words[1]).wstring();
    Words.erase(Words.begin(), Words.begin() + 2);
  }
  if (Words.size() < 3) {
    std::fputs("usage: unregistered [/kit MENDWORKKIT.DLL] PACKAGE-FOLDER APPLICATION-FOLDER FILE...\n", stderr);
    return NotSure;
  }
  const TComForThisThread Com;
  std::optional<TClasses> Classes;
  if (KitDll) Classes.emplace(*KitDll);
  const TSilence Silence;
  return TUpdater().Run(
      {std::filesystem::absolute(Words[0]), std::filesystem::absolute(Words[1]), {Words.begin() + 2, Words.end()}});
} catch (const std::exception& Failure) {
  std::fprintf(stderr, "It is not sure what the update left: %s\n", Failure.what());
  return NotSure;
}
