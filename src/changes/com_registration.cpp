#include "changes/com_registration.h"

#include "changes/guarded_call.h"
#include "retry/file_wrappers.h"
#include "retry/module_wrappers.h"
#include "server/arguments.h"
#include "server/environment.h"
#include "server/paths.h"

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

using TServerFunction = HRESULT(STDAPICALLTYPE*)();

TServerFunction FindServerFunction(const std::string& File, const TModuleHandle& Module, const char* Name) {
  return reinterpret_cast<TServerFunction>(reinterpret_cast<void*>(RetryGetProcAddress(File, Module.Get(), Name)));
}

/// The attributes of a type library, released with their owner.
struct TLibraryAttributes {
  ITypeLib& Library;
  TLIBATTR* Attributes = nullptr;
  explicit TLibraryAttributes(ITypeLib& From) : Library(From) { CheckCall(Library.GetLibAttr(&Attributes)); }
  ~TLibraryAttributes() { Library.ReleaseTLibAttr(Attributes); }
  TLibraryAttributes(const TLibraryAttributes&) = delete;
  TLibraryAttributes& operator=(const TLibraryAttributes&) = delete;
};

std::wstring HelpFolder(ITypeLib& Library) {
  constexpr int WholeLibrary = -1;
  TBstr HelpFile;
  CheckCall(Library.GetDocumentation(WholeLibrary, nullptr, nullptr, nullptr, HelpFile.Out()));
  return ToWide(FolderPrefix(ToAnsi(ViewOf(HelpFile.Get()))));
}

std::string ExtensionOf(const std::string& File) {
  const std::string Name = NamePart(File);
  const size_t Dot = Name.rfind('.');
  return Dot == std::string::npos ? "" : Name.substr(Dot);
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
      const HRESULT Result = CallGuarded(FindServerFunction(File, Module, "DllRegisterServer"), "DllRegisterServer");
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
      TServerFunction Unregister = nullptr;
      if (SwallowingQuietly([&] { Unregister = FindServerFunction(File, Module, "DllUnregisterServer"); }))
        Swallowing(Log, "UnRegServer", [&] { CallGuarded(Unregister, "DllUnregisterServer"); });
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
    std::wstring WideFile(ViewOf(FileName));
    {
      const TComRef<ITypeLib> Library = RetryLoadTypeLib(File, WideFile);
      // A library whose attributes cannot be read is not registered.
      const TLibraryAttributes Attributes(*Library);
      std::wstring Help = HelpFolder(*Library);
      CheckCall(RegisterTypeLib(Library.Get(), WideFile.data(), Help.data()));
    }
    Log.End(LogText("RegTLB"));
  });
}

HRESULT TUCom::UnRegTLB(BSTR FileName) {
  return SafeCall([&] {
    using TUnregister = HRESULT(WINAPI*)(REFGUID, WORD, WORD, LCID, SYSKIND);
    TLogScope Log(DebugLog.Get(), LogName, LogText("UnRegTLB", FileName));
    const std::string File = FileNameArgument(FileName);
    const bool Exists = FileExistsByFind(File);
    bool Failed = false;
    TLIBATTR Attributes{};
    const auto ReadAttributes = [&] {
      const TComRef<ITypeLib> Library = RetryLoadTypeLib(File, std::wstring(ViewOf(FileName)));
      Attributes = *TLibraryAttributes(*Library).Attributes;
    };
    if (Exists && Swallowing(Log, "UnRegTLB", ReadAttributes)) {
      const HMODULE OleAutomation = RetryGetModuleHandle("OLEAUT32.DLL");
      const auto Unregister = reinterpret_cast<TUnregister>(
          reinterpret_cast<void*>(RetryGetProcAddress("OLEAUT32.DLL", OleAutomation, "UnRegisterTypeLib")));
      Failed = !Swallowing(Log, "UnRegTLB", [&] {
        CheckCall(Unregister(Attributes.guid, Attributes.wMajorVerNum, Attributes.wMinorVerNum, Attributes.lcid,
                             Attributes.syskind));
      });
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
