#pragma once

#include "kit/interfaces.h"
#include "support/process.h"
#include "support/sandbox_test.h"

/// A client of the kit, with Mendwork's own dialogs and debug log unless the kit stands in for them.
class TKitTest : public TSandboxTest {
 protected:
  TKitTest() : TSandboxTest(NoDoubles) {}

  TComRef<IKit> Kit = Make<IKit>(CLSID_Kit);
  /// What is active in place of a class of Mendwork; null when nothing is.
  template <class TInterface>
  static TComRef<TInterface> Active(const CLSID& ClassId) {
    TComRef<IUnknown> Object;
    TComRef<TInterface> Result;
    if (SUCCEEDED(GetActiveObject(ClassId, nullptr, Object.Out())) && Object)
      Object->QueryInterface(__uuidof(TInterface), Result.OutVoid());
    return Result;
  }
  std::string LastMessage() const {
    TBstr Text;
    EXPECT_EQ(S_OK, Kit->get_LastMessage(Text.Out()));
    return Take(Text);
  }
  std::string Messages() const {
    TBstr Texts;
    EXPECT_EQ(S_OK, Kit->get_Messages(Texts.Out()));
    return Take(Texts);
  }
};

/// Calls a method, or reads a property, late bound and by its name; the arguments in their order.
inline HRESULT CallByName(IDispatch& Object, const wchar_t* Name, std::vector<std::string> Words, VARIANT* Result,
                          WORD Kind = DISPATCH_METHOD) {
  DISPID Id = 0;
  auto* Names = const_cast<LPOLESTR>(Name);
  if (const HRESULT Found = Object.GetIDsOfNames(IID_NULL, &Names, 1, 0, &Id); FAILED(Found)) return Found;
  std::vector<VARIANT> Values(Words.size());
  for (size_t At = 0; At < Words.size(); ++At) {
    Values[Words.size() - 1 - At].vt = VT_BSTR;
    Values[Words.size() - 1 - At].bstrVal = MakeBstr(ToWide(Words[At])).Detach();
  }
  DISPPARAMS Arguments{Values.data(), nullptr, static_cast<UINT>(Values.size()), 0};
  const HRESULT Outcome = Object.Invoke(Id, IID_NULL, 0, Kind, &Arguments, Result, nullptr, nullptr);
  for (VARIANT& Value : Values) VariantClear(&Value);
  return Outcome;
}
