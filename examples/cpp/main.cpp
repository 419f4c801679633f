// A whole updater in its shortest form. It undoes what an interrupted update left, copies files of a package over those
// of the application, deletes its old backups, and undoes all of that when something fails. docs/guide.md tells why it
// is made like this. It needs the header Mendwork_TLB.h and the system libraries ole32, oleaut32 and shell32, and it
// finds Mendwork.dll through its registration.
//
// usage: update [/silent LOG-FILE] PACKAGE-FOLDER APPLICATION-FOLDER FILE...
//
// Each FILE is a name below both folders, such as readme.txt or help\index.htm. With /silent nobody is asked anything.
//
// Ends with 0 when the application is updated, with 2 when it is as it was before, and with 1 when neither is sure: the
// next start tries again.

#define INITGUID  // this file defines the identifiers that the header declares

#include <windows.h>
// The headers need the types of the one above.
#include "silent.h"

#include <Mendwork_TLB.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// The check points. Any identifiers will do.
const GUID Started = {0x4c1a7e60, 0x93d2, 0x4b5f, {0xa8, 0x17, 0x2e, 0x6d, 0x90, 0xf3, 0xb5, 0x0c}};
const GUID Committed = {0xd2f05b19, 0x7e36, 0x4ac8, {0x91, 0x5d, 0x08, 0xc4, 0x6e, 0xb7, 0x23, 0xfa}};
constexpr long Always = 0;
enum TOutcome { Updated = 0, NotSure = 1, AsBefore = 2 };

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

/// The message that came with a failure, and its number.
std::string MessageOf(HRESULT Failure) {
  char Text[1024] = "", Number[32];
  std::snprintf(Number, sizeof Number, " (0x%08lX)", static_cast<unsigned long>(Failure));
  IErrorInfo* Info = nullptr;
  BSTR Description = nullptr;
  if (GetErrorInfo(0, &Info) != S_OK) return Number;
  if (SUCCEEDED(Info->GetDescription(&Description)) && Description)
    WideCharToMultiByte(CP_ACP, 0, Description, -1, Text, sizeof Text, nullptr, nullptr);
  SysFreeString(Description);
  Info->Release();
  const std::string Message = Text;
  return Message.substr(0, Message.find_last_not_of("\r\n") + 1) + Number;  // the system's texts end in a line break
}

void Check(HRESULT Result) {
  if (FAILED(Result)) throw std::runtime_error(MessageOf(Result));
}

/// A new object of one of Mendwork's classes.
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
      return Undo(Failure.what());
    }
    std::puts("Updated.");
    return Updated;
  }

 private:
  /// Undoes what was changed since the newest check point. Gives whether that is the begin of an update, which did not
  /// come to its end then.
  bool Repair() const {
    GUID Reached{};  // stays as it is when no check point is reached
    Check(TransactionLog->Rollback(VARIANT_TRUE, &Reached));
    const bool Undone = IsEqualGUID(Reached, Started);
    if (Undone) Check(TransactionLog->PutCheckPoint(Committed));  // as after any update: the application is whole
    return Undone;
  }

  /// What a Logged method overwrites or removes is saved and recorded before anything is changed.
  void Update(const TPackage& Package) const {
    Check(TransactionLog->PutCheckPoint(Started));
    for (const auto& Name : Package.Files)
      Check(File->CopyFileLogged(TText((Package.From / Name).wstring()), TText((Package.To / Name).wstring()), Always));
    Check(
        File->DeleteFilesLogged(TText((Package.To / "*.bak").wstring()), VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE));
    Check(TransactionLog->PutCheckPoint(Committed));
  }

  TOutcome Undo(const char* Reason) const {
    try {
      Repair();
    } catch (const std::exception& Failure) {
      std::printf("The update failed: %s Its changes cannot be undone: %s\n", Reason, Failure.what());
      return NotSure;
    }
    std::printf("The update failed, and its changes are undone: %s\n", Reason);
    return AsBefore;
  }

  TObject<IUFile> File{CLSID_UFile, IID_IUFile};
  TObject<IUTransactionLog> TransactionLog{CLSID_UTransactionLog, IID_IUTransactionLog};
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
  std::optional<std::wstring> LogFile;
  if (Words.size() > 2 && Words[0] == L"/silent") {
    LogFile = Words[1];
    Words.erase(Words.begin(), Words.begin() + 2);
  }
  if (Words.size() < 3) {
    std::fputs("usage: update [/silent LOG-FILE] PACKAGE-FOLDER APPLICATION-FOLDER FILE...\n", stderr);
    return NotSure;
  }
  const TComForThisThread Com;
  std::optional<TSilence> Silence;
  if (LogFile) Silence.emplace(*LogFile);
  const TUpdater Updater;
  return Updater.Run(
      {std::filesystem::absolute(Words[0]), std::filesystem::absolute(Words[1]), {Words.begin() + 2, Words.end()}});
} catch (const std::exception& Failure) {
  std::fprintf(stderr, "The update cannot begin: %s\n", Failure.what());
  return NotSure;
}
