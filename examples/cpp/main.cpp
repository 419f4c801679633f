// An update in its shortest form: a check point, logged changes, and a rollback when one of them fails. It needs the
// header Mendwork_TLB.h and the system libraries ole32 and oleaut32, and it finds Mendwork.dll through its
// registration.
//
// usage: update NEW-FILE INSTALLED-FILE

#define INITGUID  // this file defines the identifiers that the header declares

#include <windows.h>
// The header needs the types of the one above.
#include <Mendwork_TLB.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

// Any identifier will do. A rollback tells to which check point it went.
const GUID CheckPoint = {0x4c1a7e60, 0x93d2, 0x4b5f, {0xa8, 0x17, 0x2e, 0x6d, 0x90, 0xf3, 0xb5, 0x0c}};
constexpr long IfNewerVersion = 2;

/// A string as automation wants it.
class TText {
 public:
  explicit TText(const std::string& Ansi) {
    const int Size = static_cast<int>(Ansi.size());
    const int Length = MultiByteToWideChar(CP_ACP, 0, Ansi.data(), Size, nullptr, 0);
    Value = SysAllocStringLen(nullptr, static_cast<UINT>(Length));
    if (!Value) throw std::runtime_error("out of memory");
    MultiByteToWideChar(CP_ACP, 0, Ansi.data(), Size, Value, Length);
  }
  ~TText() { SysFreeString(Value); }
  TText(const TText&) = delete;
  TText& operator=(const TText&) = delete;
  operator BSTR() const { return Value; }

 private:
  BSTR Value;
};

/// The message that came with a failure, or its number.
std::string MessageOf(HRESULT Failure) {
  char Message[1024];
  std::snprintf(Message, sizeof Message, "0x%08lx", static_cast<unsigned long>(Failure));
  IErrorInfo* Info = nullptr;
  BSTR Description = nullptr;
  if (GetErrorInfo(0, &Info) != S_OK) return Message;
  if (SUCCEEDED(Info->GetDescription(&Description)) && Description)
    WideCharToMultiByte(CP_ACP, 0, Description, -1, Message, sizeof Message, nullptr, nullptr);
  SysFreeString(Description);
  Info->Release();
  return Message;
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

/// What a Logged method overwrites or removes is saved and recorded before anything is changed.
void Change(const std::string& NewFile, const std::string& InstalledFile) {
  TObject<IUFile> File(CLSID_UFile, IID_IUFile);
  const std::string Folder = InstalledFile.substr(0, InstalledFile.rfind('\\') + 1);
  Check(File->CopyFileLogged(TText(NewFile), TText(InstalledFile), IfNewerVersion));
  Check(File->DeleteFilesLogged(TText(Folder + "*.bak"), VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE));
}

void Update(const std::string& NewFile, const std::string& InstalledFile) {
  TObject<IUTransactionLog> TransactionLog(CLSID_UTransactionLog, IID_IUTransactionLog);
  Check(TransactionLog->PutCheckPoint(CheckPoint));
  try {
    Change(NewFile, InstalledFile);
  } catch (const std::exception& Failure) {
    // To the last check point; VARIANT_FALSE undoes everything that was ever recorded.
    GUID Reached{};
    const HRESULT Undone = TransactionLog->Rollback(VARIANT_TRUE, &Reached);
    if (FAILED(Undone))
      throw std::runtime_error(std::string(Failure.what()) + " The rollback failed, too: " + MessageOf(Undone));
    throw;
  }
}

}  // namespace

int main(int Count, char** Arguments) try {
  if (Count != 3) {
    std::fputs("usage: update NEW-FILE INSTALLED-FILE\n", stderr);
    return 1;
  }
  const TComForThisThread Com;
  Update(Arguments[1], Arguments[2]);
  std::puts("Updated.");
  return 0;
} catch (const std::exception& Failure) {
  std::fprintf(stderr, "The update failed: %s\n", Failure.what());
  return 1;
}
