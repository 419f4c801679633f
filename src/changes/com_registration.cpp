#include "changes/com_registration.h"

#include "base/failure.h"
#include "base/paths.h"
#include "base/text.h"
#include "formats/entry_codes.h"
#include "retry/engine.h"
#include "retry/file_wrappers.h"
#include "retry/guarded_call.h"
#include "retry/module_wrappers.h"
#include "server/arguments.h"
#include "server/type_library.h"

#include <optional>
#include <stdexcept>

using namespace ComCode;

namespace {

/// Runs a step whose failures end nothing; "Exception" lines tell them under the routine's own id.
template <class TStep>
bool Swallowing(TRoutine& Lines, TStep Step) {
  try {
    Step();
    return true;
  } catch (const EFailure& Failure) {
    Lines.Exception({"OLE", Failure.Message, Failure.Result});
  } catch (const std::exception& Other) {
    Lines.Exception({Other.what()});
  }
  return false;
}

/// The same without a line: what failed has been told already.
template <class TStep>
bool SwallowingQuietly(TStep Step) {
  try {
    Step();
    return true;
  } catch (const EFailure&) {
    return false;
  }
}

/// Calls code of a foreign module or library, or of the system that reads one, and gives its result. What it raises is
/// a failure like any other.
template <class TCall>
HRESULT CallForeign(const char* Name, TCall Call) {
  HRESULT Result = S_OK;
  const DWORD Exception = RunGuarded([&] { Result = Call(); });
  if (Exception)
    throw std::runtime_error(
        FormatMessageText(MsgServerException, std::string(Name), static_cast<uint32_t>(Exception)));
  return Result;
}

/// OLE for the length of a call: a server that registers itself expects it, as with regsvr32.
class TOleInitialized {
 public:
  TOleInitialized() : Done(SUCCEEDED(OleInitialize(nullptr))) {}
  ~TOleInitialized() {
    if (Done) OleUninitialize();
  }
  TOleInitialized(const TOleInitialized&) = delete;
  TOleInitialized& operator=(const TOleInitialized&) = delete;

 private:
  const bool Done;  ///< false in an apartment of the other kind
};

/// Calls a module's registration function and gives its result. What the function raises is a failure like any other.
HRESULT CallServerFunction(FARPROC Found, const char* Name) {
  using TServerFunction = HRESULT(STDAPICALLTYPE*)();
  const auto Function = reinterpret_cast<TServerFunction>(reinterpret_cast<void*>(Found));
  const TOleInitialized Ole;
  return CallForeign(Name, Function);
}

/// A file by its name in the code page, and by its whole name: that of a type library that is registered plainly may
/// have characters that the code page lacks, and `Name` is only shown then.
struct TFileToRegister {
  std::string Name;
  std::wstring WideName = ToWide(Name);
};

/// A type library with its attributes, which are released first.
class TLoadedLibrary {
 public:
  explicit TLoadedLibrary(const TFileToRegister& File) : Library(RetryLoadTypeLib(File.Name, File.WideName)) {
    CheckSystemCall(CallForeign("GetLibAttr", [&] { return Library->GetLibAttr(&Attributes); }));
  }
  /// The attributes, then the library; what either raises is ignored.
  ~TLoadedLibrary() {
    RunGuarded([&] {
      if (Attributes) Library->ReleaseTLibAttr(Attributes);
    });
    ITypeLib* const Held = Library.Detach();
    RunGuarded([&] { Held->Release(); });
  }
  TLoadedLibrary(const TLoadedLibrary&) = delete;
  TLoadedLibrary& operator=(const TLoadedLibrary&) = delete;

  /// The folder of the library's help file, with its last backslash; empty without a help file.
  std::wstring HelpFolder() const {
    constexpr int WholeLibrary = -1;
    TBstr HelpFile;
    CheckSystemCall(CallForeign("GetDocumentation", [&] {
      return Library->GetDocumentation(WholeLibrary, nullptr, nullptr, nullptr, HelpFile.Out());
    }));
    const std::wstring_view Path = ViewOf(HelpFile.Get());
    return std::wstring(Path.substr(0, Path.find_last_of(L"\\:") + 1));
  }

  TComRef<ITypeLib> Library;
  TLIBATTR* Attributes = nullptr;
};

// ---- The operations, between their Begin and End lines

void RegisterServerIn(const TFileToRegister& File, TRoutine&) {
  constexpr long RegistrationFailed = -2;
  constexpr char Name[] = "DllRegisterServer";
  TLoadedModule Module = RetryLoadLibrary(File.Name);
  try {
    const HRESULT Result = CallServerFunction(RetryGetProcAddress(File.Name, Module.Get(), Name), Name);
    if (Result != S_OK) FailureStep(RegistrationFailed, FormatMessageText(MsgRegisterServerFailed, File.Name));
  } catch (...) {
    SwallowingQuietly([&] { RetryFreeLibrary(Module); });  // the first failure is the one to tell
    throw;
  }
  RetryFreeLibrary(Module);
}

void UnregisterServerIn(const TFileToRegister& File, TRoutine& Lines) {
  constexpr char Name[] = "DllUnregisterServer";
  const bool Exists = FileExistsByFind(File.Name);
  TLoadedModule Module;
  if (Exists && SwallowingQuietly([&] { Module = RetryLoadLibrary(File.Name); })) {
    FARPROC Unregister = nullptr;
    if (SwallowingQuietly([&] { Unregister = RetryGetProcAddress(File.Name, Module.Get(), Name); }))
      Swallowing(Lines, [&] { CallServerFunction(Unregister, Name); });
    SwallowingQuietly([&] { RetryFreeLibrary(Module); });
  }
  Lines.EndsWith({Exists});
}

void RegisterLibraryIn(const TFileToRegister& File, TRoutine&) {
  const TLoadedLibrary Loaded(File);
  std::wstring WideFile = File.WideName, Help = Loaded.HelpFolder();
  CheckSystemCall(CallForeign("RegisterTypeLib",
                              [&] { return RegisterTypeLib(Loaded.Library.Get(), WideFile.data(), Help.data()); }));
}

void UnregisterLibraryIn(const TFileToRegister& File, TRoutine& Lines) {
  constexpr char Module[] = "OLEAUT32.DLL";
  const bool Exists = FileExistsByFind(File.Name);
  bool Failed = false;
  std::optional<TLoadedLibrary> Loaded;
  if (Exists && Swallowing(Lines, [&] { Loaded.emplace(File); })) {
    const FARPROC Unregister = RetryGetProcAddress(Module, RetryGetModuleHandle(Module), UnregisterTypeLibName);
    Failed = !Swallowing(Lines, [&] {
      CheckSystemCall(
          CallForeign(UnregisterTypeLibName, [&] { return CallUnregisterTypeLib(Unregister, *Loaded->Attributes); }));
    });
  }
  Loaded.reset();
  Lines.EndsWith({Exists, Failed});
}

/// What a rollback can find again: the system would look for a name without an extension under another one.
void RequireWholeName(const std::string& FileName) {
  RequireRoot(FileName);
  if (ExtensionOf(FileName).empty()) Refuse(MsgNameWithoutExtension, ToWide(FileName));
}

/// The place of an operation in the table is its code in the transaction log.
struct TOperationRow {
  const char* Name;
  void (*Run)(const TFileToRegister& File, TRoutine& Lines);
  long Opposite;
};
constexpr TOperationRow Operations[] = {
    {"RegServer", RegisterServerIn, ServerUnregistered},
    {"UnRegServer", UnregisterServerIn, ServerRegistered},
    {"RegTLB", RegisterLibraryIn, LibraryUnregistered},
    {"UnRegTLB", UnregisterLibraryIn, LibraryRegistered},
};

}  // namespace

void TUCom::Undo(long Code, const GUID& DataID) {
  if (Code < ServerRegistered || Code > LibraryUnregistered) return;
  const TOperationRow& Opposite = Operations[Operations[Code].Opposite];
  const std::string FileName = Store().LoadFileName(DataID);
  Routine(Opposite.Name, {FileName}, [&](TRoutine& Lines) { Opposite.Run({FileName}, Lines); });
}

void TUCom::PerformOn(BSTR FileName, TForm Form, long Code) const {
  const TOperationRow& Operation = Operations[Code];
  Perform(Form, Operation.Name, Code, {FileName}, [&] {
    if (Form == TForm::Plain && Code == LibraryRegistered) {  // the one that the system does by the whole name
      const std::wstring WideName = WideFileNameArgument(FileName);
      return TPreparedChange{{}, [=](TRoutine& Lines) { Operation.Run({LossyAnsi(WideName), WideName}, Lines); }};
    }
    const std::string Name = FileNameArgument(FileName);  // a name that cannot be given back must not be recorded
    if (Form == TForm::Logged) RequireWholeName(Name);
    return TPreparedChange{[=, this] { return Store().SaveString(Name); },
                           [=](TRoutine& Lines) { Operation.Run({Name}, Lines); }};
  });
}

HRESULT TUCom::ChangeFile(TForm Form, long Code, BSTR FileName) {
  return SafeCall([&] { PerformOn(FileName, Form, Code); });
}

HRESULT TUCom::ChangeByExtension(const char* Name, TForm Form, long ForLibrary, long ForServer, BSTR FileName) {
  return Method(Name, {FileName}, [&] {
    // In exactly this case: "x.tlb" is taken as a server, as callers have come to rely on.
    const bool IsLibrary = WideFileNameArgument(FileName).ends_with(L".TLB");
    PerformOn(FileName, Form, IsLibrary ? ForLibrary : ForServer);
  });
}

// ---- The methods

HRESULT TUCom::RegServer(BSTR FileName) { return ChangeFile(TForm::Plain, ServerRegistered, FileName); }
HRESULT TUCom::UnRegServer(BSTR FileName) { return ChangeFile(TForm::Plain, ServerUnregistered, FileName); }
HRESULT TUCom::RegTLB(BSTR FileName) { return ChangeFile(TForm::Plain, LibraryRegistered, FileName); }
HRESULT TUCom::UnRegTLB(BSTR FileName) { return ChangeFile(TForm::Plain, LibraryUnregistered, FileName); }
HRESULT TUCom::RegServerLogged(BSTR FileName) { return ChangeFile(TForm::Logged, ServerRegistered, FileName); }
HRESULT TUCom::UnRegServerLogged(BSTR FileName) { return ChangeFile(TForm::Logged, ServerUnregistered, FileName); }
HRESULT TUCom::RegTLBLogged(BSTR FileName) { return ChangeFile(TForm::Logged, LibraryRegistered, FileName); }
HRESULT TUCom::UnRegTLBLogged(BSTR FileName) { return ChangeFile(TForm::Logged, LibraryUnregistered, FileName); }
HRESULT TUCom::Reg(BSTR FileName) {
  return ChangeByExtension("Reg", TForm::Plain, LibraryRegistered, ServerRegistered, FileName);
}
HRESULT TUCom::UnReg(BSTR FileName) {
  return ChangeByExtension("UnReg", TForm::Plain, LibraryUnregistered, ServerUnregistered, FileName);
}
HRESULT TUCom::RegLogged(BSTR FileName) {
  return ChangeByExtension("RegLogged", TForm::Logged, LibraryRegistered, ServerRegistered, FileName);
}
HRESULT TUCom::UnRegLogged(BSTR FileName) {
  return ChangeByExtension("UnRegLogged", TForm::Logged, LibraryUnregistered, ServerUnregistered, FileName);
}

COCLASS(UCom, TUCom);
