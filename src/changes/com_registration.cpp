#include "changes/com_registration.h"

#include "base/paths.h"
#include "retry/file_wrappers.h"
#include "retry/guarded_call.h"
#include "retry/module_wrappers.h"
#include "server/arguments.h"
#include "server/environment.h"

#include <optional>
#include <stdexcept>

namespace {

constexpr wchar_t LogName[] = L"UCom";

namespace ComCode {
constexpr long ServerRegistered = 0, ServerUnregistered = 1, LibraryRegistered = 2, LibraryUnregistered = 3;
}

/// Runs a step whose failures end nothing; "Exception" lines tell them under the routine's own id.
template <class TStep>
bool Swallowing(TLogScope& Log, const std::string& Routine, TStep Step) {
  const std::wstring Action = ToWide(LoadMessage(MsgException));
  try {
    Step();
    return true;
  } catch (const EFailure& Failure) {
    Log.Line(Action, LogText(Routine + " OLE", std::wstring_view(Failure.Message), Failure.Result));
  } catch (const std::exception& Other) {
    Log.Line(Action, LogText(Routine, Other.what()));
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

/// Calls a module's registration function and gives its result. What the function raises is a failure like any other.
HRESULT CallServerFunction(FARPROC Found, const char* Name) {
  using TServerFunction = HRESULT(STDAPICALLTYPE*)();
  const auto Function = reinterpret_cast<TServerFunction>(reinterpret_cast<void*>(Found));
  HRESULT Result = S_OK;
  const DWORD Exception = RunGuarded([&] { Result = Function(); });
  if (Exception) throw std::runtime_error(FormatText("'%s' ended with exception %x.", {Name, uint32_t{Exception}}));
  return Result;
}

/// The system's own functions leave no error information: what the thread has is that of an earlier call.
void CheckSystemCall(HRESULT Result) {
  if (FAILED(Result)) throw EFailure(Result, ToWide(SystemErrorText(static_cast<DWORD>(Result))));
}

/// A type library with its attributes, which are released first.
class TLoadedLibrary {
 public:
  TLoadedLibrary(const std::string& File, BSTR WideFile) : Library(RetryLoadTypeLib(File, ViewOf(WideFile))) {
    CheckSystemCall(Library->GetLibAttr(&Attributes));
  }
  ~TLoadedLibrary() { Library->ReleaseTLibAttr(Attributes); }
  TLoadedLibrary(const TLoadedLibrary&) = delete;
  TLoadedLibrary& operator=(const TLoadedLibrary&) = delete;

  /// The folder of the library's help file, with its last backslash; empty without a help file.
  std::wstring HelpFolder() const {
    constexpr int WholeLibrary = -1;
    TBstr HelpFile;
    CheckSystemCall(Library->GetDocumentation(WholeLibrary, nullptr, nullptr, nullptr, HelpFile.Out()));
    return ToWide(FolderPrefix(ToAnsi(ViewOf(HelpFile.Get()))));
  }

  const TComRef<ITypeLib> Library;
  TLIBATTR* Attributes = nullptr;
};

using TUnregisterTypeLib = HRESULT(WINAPI*)(REFGUID, WORD, WORD, LCID, SYSKIND);

TUnregisterTypeLib FindUnregisterTypeLib() {
  constexpr char Module[] = "OLEAUT32.DLL";
  const FARPROC Found = RetryGetProcAddress(Module, RetryGetModuleHandle(Module), "UnRegisterTypeLib");
  return reinterpret_cast<TUnregisterTypeLib>(reinterpret_cast<void*>(Found));
}

}  // namespace

void TUCom::Initialize() {
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Backup = ActiveOrNew<IUBackup>(CLSID_UBackup);
  TransactionLog = ActiveOrNew<IUTransactionLog>(CLSID_UTransactionLog);
}

// ---- Servers

HRESULT TUCom::RegServer(BSTR FileName) {
  return SafeCall([&] {
    constexpr long RegistrationFailed = -2;
    TLogScope Log(DebugLog.Get(), LogName, LogText("RegServer", FileName));
    const std::string File = FileNameArgument(FileName);
    TModuleHandle Module = RetryLoadLibrary(File);
    try {
      constexpr char Name[] = "DllRegisterServer";
      const HRESULT Result = CallServerFunction(RetryGetProcAddress(File, Module.Get(), Name), Name);
      if (Result != S_OK) FailureStep(RegistrationFailed, FormatMessageText(MsgRegisterServerFailed, File));
    } catch (...) {
      SwallowingQuietly([&] { RetryFreeLibrary(File, Module); });  // the first failure is the one to tell
      throw;
    }
    RetryFreeLibrary(File, Module);
    Log.End(LogText("RegServer"));
  });
}

HRESULT TUCom::UnRegServer(BSTR FileName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("UnRegServer", FileName));
    const std::string File = FileNameArgument(FileName);
    const bool Exists = FileExistsByFind(File);
    TModuleHandle Module;
    if (Exists && SwallowingQuietly([&] { Module = RetryLoadLibrary(File); })) {
      constexpr char Name[] = "DllUnregisterServer";
      FARPROC Unregister = nullptr;
      if (SwallowingQuietly([&] { Unregister = RetryGetProcAddress(File, Module.Get(), Name); }))
        Swallowing(Log, "UnRegServer", [&] { CallServerFunction(Unregister, Name); });
      SwallowingQuietly([&] { RetryFreeLibrary(File, Module); });
    }
    Log.End(LogText("UnRegServer", Exists));
  });
}

// ---- Type libraries

HRESULT TUCom::RegTLB(BSTR FileName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("RegTLB", FileName));
    const std::string File = FileNameArgument(FileName);
    {
      const TLoadedLibrary Loaded(File, FileName);
      std::wstring WideFile(ViewOf(FileName)), Help = Loaded.HelpFolder();
      CheckSystemCall(RegisterTypeLib(Loaded.Library.Get(), WideFile.data(), Help.data()));
    }
    Log.End(LogText("RegTLB"));
  });
}

HRESULT TUCom::UnRegTLB(BSTR FileName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("UnRegTLB", FileName));
    const std::string File = FileNameArgument(FileName);
    const bool Exists = FileExistsByFind(File);
    bool Failed = false;
    {
      std::optional<TLoadedLibrary> Loaded;
      if (Exists && Swallowing(Log, "UnRegTLB", [&] { Loaded.emplace(File, FileName); })) {
        const TLIBATTR& Own = *Loaded->Attributes;
        const auto Unregister = FindUnregisterTypeLib();
        Failed = !Swallowing(Log, "UnRegTLB", [&] {
          CheckSystemCall(Unregister(Own.guid, Own.wMajorVerNum, Own.wMinorVerNum, Own.lcid, Own.syskind));
        });
      }
    }
    Log.End(LogText("UnRegTLB", Exists, Failed));
  });
}

// ---- Logged operations, and those that look at the extension

HRESULT TUCom::RunLogged(const char* Name, long Code, TOperation Plain, BSTR FileName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText(Name, FileName));
    FileNameArgument(FileName);  // a name that cannot be given back must not be recorded
    GUID DataID{};
    CheckCall(Backup->BackupString(FileName, &DataID));
    CheckCall(TransactionLog->Put(CLSID_UCom, Code, DataID));
    CheckCall((this->*Plain)(FileName));
    Log.End(LogText(Name));
  });
}

HRESULT TUCom::RunByExtension(const char* Name, TOperation ForLibrary, TOperation ForServer, BSTR FileName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText(Name, FileName));
    // In exactly this case: "x.tlb" is taken as a server, as callers have come to rely on.
    const bool IsLibrary = ExtensionOf(FileNameArgument(FileName)) == ".TLB";
    CheckCall((this->*(IsLibrary ? ForLibrary : ForServer))(FileName));
    Log.End(LogText(Name));
  });
}

HRESULT TUCom::RegServerLogged(BSTR FileName) {
  return RunLogged("RegServerLogged", ComCode::ServerRegistered, &TUCom::RegServer, FileName);
}
HRESULT TUCom::UnRegServerLogged(BSTR FileName) {
  return RunLogged("UnRegServerLogged", ComCode::ServerUnregistered, &TUCom::UnRegServer, FileName);
}
HRESULT TUCom::RegTLBLogged(BSTR FileName) {
  return RunLogged("RegTLBLogged", ComCode::LibraryRegistered, &TUCom::RegTLB, FileName);
}
HRESULT TUCom::UnRegTLBLogged(BSTR FileName) {
  return RunLogged("UnRegTLBLogged", ComCode::LibraryUnregistered, &TUCom::UnRegTLB, FileName);
}
HRESULT TUCom::Reg(BSTR FileName) { return RunByExtension("Reg", &TUCom::RegTLB, &TUCom::RegServer, FileName); }
HRESULT TUCom::UnReg(BSTR FileName) { return RunByExtension("UnReg", &TUCom::UnRegTLB, &TUCom::UnRegServer, FileName); }
HRESULT TUCom::RegLogged(BSTR FileName) {
  return RunByExtension("RegLogged", &TUCom::RegTLBLogged, &TUCom::RegServerLogged, FileName);
}
HRESULT TUCom::UnRegLogged(BSTR FileName) {
  return RunByExtension("UnRegLogged", &TUCom::UnRegTLBLogged, &TUCom::UnRegServerLogged, FileName);
}

// ---- Undoing

HRESULT TUCom::Rollback(long Code, GUID DataID) {
  static constexpr TOperation Opposites[] = {
      /* ComCode::ServerRegistered */ &TUCom::UnRegServer,
      /* ComCode::ServerUnregistered */ &TUCom::RegServer,
      /* ComCode::LibraryRegistered */ &TUCom::UnRegTLB,
      /* ComCode::LibraryUnregistered */ &TUCom::RegTLB,
  };
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("Rollback", Code, DataID));
    if (Code >= ComCode::ServerRegistered && Code <= ComCode::LibraryUnregistered) {
      TBstr File;
      CheckCall(Backup->RestoreString(DataID, File.Out()));
      CheckCall((this->*Opposites[Code])(File.Get()));
    }
    Log.End(LogText("Rollback"));
  });
}

TAutoObjectBase* CreateUCom(TVersionedAutoObjectFactory& Factory) { return new TUCom(Factory); }
