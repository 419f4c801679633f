#include "base/text.h"
#include "stories/story.h"

#include <cstring>
#include <sstream>

namespace {

/// A VARIANT as callers make them; what it holds lives as long as the test.
struct TValue : VARIANT {
  template <class TPayload>
  TValue(int Type, TPayload Payload) : VARIANT{} {
    vt = static_cast<VARTYPE>(Type);
    std::memcpy(&llVal, &Payload, sizeof Payload);
  }
  TValue(const char* Ansi) : TValue(VT_BSTR, MakeBstr(ToWide(Ansi)).Detach()) {}
  TValue(long Number) : TValue(VT_I4, Number) {}
  /// A variable of the caller's, as VBScript passes it.
  TValue(TValue* Variable) : TValue(VT_BYREF | VT_VARIANT, static_cast<VARIANT*>(Variable)) {}
  /// The record that compiled clients pass, or its place.
  TValue(const GUID& Guid, int Type = VT_RECORD) : TValue(Type, 0L) {
    TComRef<ITypeLib> Library;
    TComRef<ITypeInfo> Info;
    MEMBERID Member = 0;
    USHORT Count = 1;
    wchar_t Name[] = L"GUID";
    LoadTypeLib(L"stdole2.tlb", Library.Out());
    Library->FindName(Name, 0, Info.Out(), &Member, &Count);
    EXPECT_EQ(S_OK, GetRecordInfoFromTypeInfo(Info.Get(), &pRecInfo));
    pvRecord = const_cast<GUID*>(&Guid);
  }
  friend std::ostream& operator<<(std::ostream& Out, const TValue& Value) {
    if (Value.vt == VT_BSTR) return Out << LossyAnsi(ViewOf(Value.bstrVal));
    return Out << Value.vt << ":" << (Value.vt == VT_BOOL ? Value.boolVal : Value.lVal);
  }
};

class LateBound : public TStory {
 protected:
  /// Calls with the arguments in the order of the parameters; the first `Positions` of the reversed list are named.
  /// Tells what comes back.
  void Call(IDispatch& Object, const wchar_t* Name, const std::vector<TValue>& Arguments,
            std::vector<DISPID> Positions = {}) {
    std::vector<VARIANT> Reversed(Arguments.rbegin(), Arguments.rend());
    DISPPARAMS Parameters{Reversed.data(), Positions.data(), static_cast<UINT>(Reversed.size()),
                          static_cast<UINT>(Positions.size())};
    LPOLESTR Raw = const_cast<LPOLESTR>(Name);
    DISPID Id = DISPID_UNKNOWN;
    Object.GetIDsOfNames(IID_NULL, &Raw, 1, LOCALE_USER_DEFAULT, &Id);
    EXCEPINFO Exception{};
    UINT BadArgument = 99;
    TValue Result(4L);
    Step("late " + LossyAnsi(Name), Object.Invoke(Id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &Parameters,
                                                  &Result, &Exception, &BadArgument));
    std::ostringstream Outcome;
    Outcome << "  " << std::hex << Exception.scode << " " << LossyAnsi(ViewOf(Exception.bstrSource)) << " "
            << LossyAnsi(ViewOf(Exception.bstrDescription)) << ", bad argument " << std::dec << BadArgument
            << ", result " << Result;
    Tell(Outcome.str());
  }
};

GUID First = {0x11223344, 0x5566, 0x7788, {0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01}};
constexpr char FirstText[] = "{11223344-5566-7788-99AA-BBCCDDEEFF01}";
GUID Second = {0xABCDEF01, 0x2345, 0x6789, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr char SecondText[] = "{ABCDEF01-2345-6789-0102-030405060708}";

TEST_F(LateBound, ArgumentsAreTakenInEveryFormOrRefused) {
  TValue Variable(SecondText), Seven(7L);
  short Small = -8;
  const struct {
    std::vector<TValue> Arguments;
    std::vector<DISPID> Positions = {};
  } Calls[] = {{{First, 5L, Second}},
               {{"{11223344-5566-7788-99aa-bbccddeeff01}", -5L, "{abcdef01-2345-6789-0102-030405060708}"}},
               {{FirstText, "12", &Variable}},
               {{FirstText, {VT_R8, 3.0}, {VT_BYREF | VT_BSTR, &Variable.bstrVal}}},
               {{FirstText, {VT_BOOL, VARIANT_TRUE}, {Second, VT_BYREF | VT_RECORD}}},
               {{FirstText, &Seven, SecondText}},
               {{FirstText, {VT_BYREF | VT_I2, &Small}, SecondText}},
               {{FirstText, SecondText, 6L}, {1, 2}},  // in the reversed list the named ones come first
               {{FirstText, 1L, ""}},
               {{FirstText, 1L, "{11223344-5566-7788-99AA-BBCCDDEEFF0G}"}},
               {{1L, 1L, FirstText}},
               {{FirstText, "abc", SecondText}},
               {{FirstText, {VT_R8, 3e9}, SecondText}},
               {{FirstText, {VT_ERROR, DISP_E_PARAMNOTFOUND}, SecondText}},
               {{FirstText, 1L}},
               {{FirstText, 1L, SecondText, 1L}},
               {{FirstText, 1L, SecondText}, {1, 1}},
               {{FirstText, 1L, SecondText}, {3}}};
  for (const auto& [Arguments, Positions] : Calls) Call(*Transactions, L"Put", Arguments, Positions);
  EXPECT_EQ(0, std::memcmp(Read(Service("update.prt")).data(), &First, sizeof First));
  Call(*Transactions, L"Get", {});
  const wchar_t* Names[] = {L"pUT", L"DATAID", L"Nothing", L"id"};
  DISPID Ids[4] = {};
  EXPECT_EQ(DISP_E_UNKNOWNNAME, Transactions->GetIDsOfNames(IID_NULL, const_cast<LPOLESTR*>(Names), 4, 0, Ids));
  EXPECT_EQ((std::vector<DISPID>{1, 2, DISPID_UNKNOWN, 0}), std::vector<DISPID>(Ids, Ids + 4));
  // HKEY constants above 0x7FFFFFFF reach a method as a negative number (compiled clients and VBScript), as a double
  // (JScript) or as they are.
  for (const TValue& Root : {TValue(-2147483647L), TValue(VT_R8, 2147483649.0), TValue(VT_UI4, 2147483649u),
                             TValue(VT_I2, short{-1}), TValue(VT_R8, -1.0), TValue(VT_R8, 4294967296.0)})
    Call(*Backup, L"BackupRegKeyValue", {Root, "Software\\Orvane\\Core", ""});
}

TEST_F(LateBound, ResultsComeBackAsTextsAndNumbers) {
  Call(*Transactions, L"PutCheckPoint", {FirstText});
  Call(*Transactions, L"Rollback", {{VT_BOOL, VARIANT_TRUE}});
  Call(*History, L"Put", {SecondText, -77L, FirstText});
  long Number = 0;
  VARIANT_BOOL Flag = VARIANT_TRUE;
  BSTR Text = SysAllocString(L"overwritten");
  TValue Code(VT_EMPTY, 0L), DataID(4L), NoMore(VT_EMPTY, 0L);
  const TValue NumberPlace(VT_BYREF | VT_I4, &Number), FlagPlace(VT_BYREF | VT_BOOL, &Flag);
  Call(*History, L"Get", {SecondText, &Code, &DataID, &NoMore});
  Call(*History, L"Get", {SecondText, NumberPlace, {VT_BYREF | VT_BSTR, &Text}, FlagPlace});
  Call(*History, L"Get", {SecondText, NumberPlace, {Second, VT_BYREF | VT_RECORD}, FlagPlace});
  std::ostringstream Values;
  Values << Code << " " << DataID << " " << NoMore << " " << Number << " " << LossyAnsi(ViewOf(Text)) << " " << Flag;
  Tell(Values.str());
  EXPECT_EQ(First, Second);
  // What can take no result is refused before anything is done.
  TValue* const Nowhere = nullptr;
  for (const TValue& Place : {TValue(Nowhere), TValue(VT_BYREF | VT_I4, static_cast<long*>(nullptr)),
                              TValue(VT_BYREF | VT_R8, &Number), TValue(Second, VT_BYREF | VT_RECORD)})
    Call(*History, L"Get", {SecondText, Place, &DataID, &NoMore});
  Call(*History, L"Get", {SecondText, &Code, NumberPlace, &NoMore});
  Call(*History, L"Put", {SecondText, {VT_BYREF | VT_I4, static_cast<long*>(nullptr)}, FirstText});
  // The places of values that cannot be written back are left alone.
  Call(*History, L"Get", {SecondText, 5L, 6L, 7L});
}

TEST_F(LateBound, FailuresArriveWithTheirMessageOnBothRoads) {
  TBstr Text, Source, Description;
  TComRef<IErrorInfo> Info;
  GUID Interface{};
  EXPECT_EQ(static_cast<HRESULT>(0x80040202), Backup->RestoreString(First, Text.Out()));
  ASSERT_EQ(S_OK, GetErrorInfo(0, Info.Out()));
  Info->GetSource(Source.Out());
  Info->GetDescription(Description.Out());
  Info->GetGUID(&Interface);
  EXPECT_EQ(IID_IUBackup, Interface);
  Tell(Take(Source) + ": " + Take(Description));
  Call(*Backup, L"RestoreString", {FirstText});
}

}  // namespace
