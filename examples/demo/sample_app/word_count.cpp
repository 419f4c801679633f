// A COM server that version 2.0 of the sample application brings: counts words, for late-bound callers.
//
//   Set Words = CreateObject("OrvaneNotes.WordCount")
//   Number = Words.Count("some text")

#include "base/windows_api.h"

#include <string>
#include <string_view>

namespace {

constexpr GUID ClassId = {0x7c1d52e4, 0x0a9b, 0x4c36, {0x8e, 0x57, 0x2f, 0x94, 0xd0, 0x6b, 0x13, 0xa8}};
constexpr char ClassKey[] = "CLSID\\{7C1D52E4-0A9B-4C36-8E57-2F94D06B13A8}", ProgId[] = "OrvaneNotes.WordCount";
constexpr DISPID CountId = 1;
LONG Objects = 0;

long CountWords(std::wstring_view Text) {
  long Number = 0;
  bool Inside = false;
  for (const wchar_t Character : Text) {
    Number += Character != L' ' && !Inside;
    Inside = Character != L' ';
  }
  return Number;
}

/// IUnknown for an object that supports one more interface.
template <class TInterface>
class TObject : public TInterface {
 public:
  TObject() { InterlockedIncrement(&Objects); }
  virtual ~TObject() { InterlockedDecrement(&Objects); }
  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    const bool Known = Iid == IID_IUnknown || Iid == __uuidof(TInterface);
    *Result = Known ? this : nullptr;
    if (Known) AddRef();
    return Known ? S_OK : E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return static_cast<ULONG>(InterlockedIncrement(&References)); }
  STDMETHOD_(ULONG, Release)() override {
    const LONG Left = InterlockedDecrement(&References);
    if (Left == 0) delete this;
    return static_cast<ULONG>(Left);
  }

 private:
  LONG References = 1;
};

class TWordCount final : public TObject<IDispatch> {
 public:
  STDMETHOD(GetTypeInfoCount)(UINT* Count) override { return *Count = 0, S_OK; }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR* Names, UINT Count, LCID, DISPID* Ids) override {
    const bool Known = Count == 1 && lstrcmpiW(Names[0], L"Count") == 0;
    Ids[0] = Known ? CountId : DISPID_UNKNOWN;
    return Known ? S_OK : DISP_E_UNKNOWNNAME;
  }
  STDMETHOD(Invoke)
  (DISPID Id, REFIID, LCID, WORD, DISPPARAMS* Arguments, VARIANT* Result, EXCEPINFO*, UINT*) override {
    if (Id != CountId) return DISP_E_MEMBERNOTFOUND;
    if (Arguments->cArgs != 1) return DISP_E_BADPARAMCOUNT;
    VARIANT Text;
    VariantInit(&Text);
    const HRESULT Converted = VariantChangeType(&Text, Arguments->rgvarg, 0, VT_BSTR);
    if (FAILED(Converted)) return Converted;
    if (Result) {
      Result->vt = VT_I4;
      Result->lVal = CountWords({Text.bstrVal, SysStringLen(Text.bstrVal)});
    }
    VariantClear(&Text);
    return S_OK;
  }
};

class TFactory final : public TObject<IClassFactory> {
 public:
  STDMETHOD(CreateInstance)(IUnknown* Outer, REFIID Iid, void** Result) override {
    if (Outer) return CLASS_E_NOAGGREGATION;
    TWordCount* const Object = new TWordCount;
    const HRESULT Found = Object->QueryInterface(Iid, Result);
    Object->Release();
    return Found;
  }
  STDMETHOD(LockServer)(BOOL Lock) override {
    Lock ? InterlockedIncrement(&Objects) : InterlockedDecrement(&Objects);
    return S_OK;
  }
};

bool SetClassValue(const std::string& Key, const char* Name, const std::string& Value) {
  return RegSetKeyValueA(HKEY_CLASSES_ROOT, Key.c_str(), Name, REG_SZ, Value.c_str(),
                         static_cast<DWORD>(Value.size() + 1)) == ERROR_SUCCESS;
}

}  // namespace

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID Class, REFIID Iid, void** Result) {
  if (Class != ClassId) return CLASS_E_CLASSNOTAVAILABLE;
  TFactory* const Factory = new TFactory;
  const HRESULT Found = Factory->QueryInterface(Iid, Result);
  Factory->Release();
  return Found;
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() { return Objects == 0 ? S_OK : S_FALSE; }

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
  HMODULE Own = nullptr;
  char Path[MAX_PATH] = "";
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<const char*>(&CountWords), &Own);
  GetModuleFileNameA(Own, Path, sizeof Path);
  const std::string Class = ClassKey, Server = Class + "\\InprocServer32";
  const bool Done = SetClassValue(Class, nullptr, "Orvane Notes word counter") &&
                    SetClassValue(Server, nullptr, Path) && SetClassValue(Server, "ThreadingModel", "Apartment") &&
                    SetClassValue(std::string(ProgId) + "\\CLSID", nullptr, Class.substr(Class.find('{')));
  return Done ? S_OK : E_ACCESSDENIED;
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
  RegDeleteTreeA(HKEY_CLASSES_ROOT, ProgId);
  RegDeleteTreeA(HKEY_CLASSES_ROOT, ClassKey);
  return S_OK;
}
