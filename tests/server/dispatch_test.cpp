#include "base/text.h"
#include "support/sandbox_test.h"

#include <cstring>

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
  std::string Text() const { return vt == VT_BSTR ? ToAnsi(ViewOf(bstrVal)) : "<no text>"; }
};

class LateBound : public TSandboxTest {
 protected:
  /// Calls with the arguments in the order of the parameters; the first `Positions` of the reversed list are named.
  HRESULT Call(IDispatch& Object, const wchar_t* Name, const std::vector<TValue>& Arguments,
               std::vector<DISPID> Positions = {}) {
    std::vector<VARIANT> Reversed(Arguments.rbegin(), Arguments.rend());
    DISPPARAMS Parameters{Reversed.data(), Positions.data(), static_cast<UINT>(Reversed.size()),
                          static_cast<UINT>(Positions.size())};
    LPOLESTR Raw = const_cast<LPOLESTR>(Name);
    DISPID Id = DISPID_UNKNOWN;
    Object.GetIDsOfNames(IID_NULL, &Raw, 1, LOCALE_USER_DEFAULT, &Id);
    Exception = {};
    BadArgument = 99;
    return Object.Invoke(Id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &Parameters, &Result, &Exception,
                         &BadArgument);
  }

  TValue Result = 0L;
  EXCEPINFO Exception{};
  UINT BadArgument = 0;
  TComRef<IUTransactionLog> TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

const GUID First = {0x11223344, 0x5566, 0x7788, {0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01}};
constexpr char FirstText[] = "{11223344-5566-7788-99AA-BBCCDDEEFF01}";
GUID Second = {0xABCDEF01, 0x2345, 0x6789, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr char SecondText[] = "{ABCDEF01-2345-6789-0102-030405060708}";

TEST_F(LateBound, ArgumentsAreTakenInEveryFormOrRefused) {
  TValue Variable(SecondText), Seven(7L);
  short Small = -8;
  const std::vector<std::pair<std::vector<TValue>, int>> Good = {
      {{First, 5L, Second}, 5},
      {{"{11223344-5566-7788-99aa-bbccddeeff01}", -5L, "{abcdef01-2345-6789-0102-030405060708}"}, -5},
      {{FirstText, "12", &Variable}, 12},
      {{FirstText, {VT_R8, 3.0}, {VT_BYREF | VT_BSTR, &Variable.bstrVal}}, 3},
      {{FirstText, {VT_BOOL, VARIANT_TRUE}, {Second, VT_BYREF | VT_RECORD}}, -1},
      {{FirstText, &Seven, SecondText}, 7},
      {{FirstText, {VT_BYREF | VT_I2, &Small}, SecondText}, -8}};
  std::string Entries;
  for (const auto& [Arguments, Code] : Good) {
    EXPECT_EQ(S_OK, Call(*TransactionLog, L"Put", Arguments)) << Code;
    for (const auto& [Bytes, Size] : {std::pair<const void*, size_t>{&First, 16}, {&Code, 4}, {&Second, 16}})
      Entries.append(static_cast<const char*>(Bytes), Size);
    EXPECT_EQ(Entries, Read(Service("update.prt"))) << Code;
  }
  const struct {
    std::vector<TValue> Arguments;
    HRESULT Refusal;
    UINT BadArgument = 99;
    std::vector<DISPID> Positions = {};
  } Bad[] = {{{FirstText, 1L, ""}, DISP_E_TYPEMISMATCH, 0},
             {{FirstText, 1L, "{11223344-5566-7788-99AA-BBCCDDEEFF0G}"}, DISP_E_TYPEMISMATCH, 0},
             {{1L, 1L, FirstText}, DISP_E_TYPEMISMATCH, 2},
             {{FirstText, "abc", SecondText}, DISP_E_TYPEMISMATCH, 1},
             {{FirstText, {VT_R8, 3e9}, SecondText}, DISP_E_OVERFLOW, 1},
             {{FirstText, {VT_ERROR, DISP_E_PARAMNOTFOUND}, SecondText}, DISP_E_PARAMNOTOPTIONAL, 1},
             {{FirstText, 1L}, DISP_E_BADPARAMCOUNT},
             {{FirstText, 1L, SecondText, 1L}, DISP_E_BADPARAMCOUNT},
             {{FirstText, 1L, SecondText}, DISP_E_BADPARAMCOUNT, 99, {1, 1}},
             {{FirstText, 1L, SecondText}, DISP_E_PARAMNOTFOUND, 99, {3}}};
  for (const auto& Row : Bad) {
    EXPECT_EQ(Row.Refusal, Call(*TransactionLog, L"Put", Row.Arguments, Row.Positions)) << &Row - Bad;
    EXPECT_EQ(Row.BadArgument, BadArgument) << &Row - Bad;
  }
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, Call(*TransactionLog, L"Get", {}));
  EXPECT_EQ(Entries, Read(Service("update.prt")));
}

TEST_F(LateBound, NamesComeInAnyCaseAndOrder) {
  wchar_t Method[] = L"pUT", Id[] = L"id", DataID[] = L"DATAID", Stranger[] = L"Nothing";
  LPOLESTR Names[] = {Method, DataID, Stranger, Id};
  DISPID Ids[4] = {};
  EXPECT_EQ(DISP_E_UNKNOWNNAME, TransactionLog->GetIDsOfNames(IID_NULL, Names, 4, LOCALE_USER_DEFAULT, Ids));
  EXPECT_EQ((std::vector<DISPID>{1, 2, DISPID_UNKNOWN, 0}), std::vector<DISPID>(Ids, Ids + 4));
  // In the reversed list the named ones come first.
  EXPECT_EQ(S_OK, Call(*TransactionLog, L"Put", {FirstText, SecondText, 6L}, {1, Ids[1]}));
  EXPECT_EQ("Begin Put " + std::string(FirstText) + " 6 " + SecondText, Log().Texts("UTransactionLog").front());
}

TEST_F(LateBound, ResultsComeBackAsTextsAndNumbers) {
  EXPECT_EQ(S_OK, Call(*TransactionLog, L"PutCheckPoint", {FirstText}));
  EXPECT_EQ(S_OK, Call(*TransactionLog, L"Rollback", {{VT_BOOL, VARIANT_TRUE}}));
  EXPECT_EQ(FirstText, Result.Text());

  const auto History = Make<IUHistory>(CLSID_UHistory);
  ASSERT_EQ(S_OK, Call(*History, L"Put", {SecondText, -77L, FirstText}));
  TValue Code(VT_EMPTY, 0L), DataID(4L), NoMore(VT_EMPTY, 0L);
  ASSERT_EQ(S_OK, Call(*History, L"Get", {SecondText, &Code, &DataID, &NoMore}));
  EXPECT_EQ(VT_I4, Code.vt);
  EXPECT_EQ(-77, Code.lVal);
  EXPECT_EQ(FirstText, DataID.Text());
  for (const TValue& Flag : {NoMore, Result}) {
    EXPECT_EQ(VT_BOOL, Flag.vt);
    EXPECT_EQ(VARIANT_FALSE, Flag.boolVal);
  }
  long Number = 0;
  VARIANT_BOOL Flag = VARIANT_TRUE;
  BSTR Text = SysAllocString(L"overwritten");
  const TValue NumberPlace(VT_BYREF | VT_I4, &Number), FlagPlace(VT_BYREF | VT_BOOL, &Flag);
  for (const TValue& Place : {TValue(VT_BYREF | VT_BSTR, &Text), TValue(Second, VT_BYREF | VT_RECORD)})
    ASSERT_EQ(S_OK, Call(*History, L"Get", {SecondText, NumberPlace, Place, FlagPlace}));
  EXPECT_EQ(-77, Number);
  EXPECT_EQ(FirstText, ToAnsi(ViewOf(Text)));
  EXPECT_EQ(First, Second);
  EXPECT_EQ(VARIANT_FALSE, Flag);
  // The places of values that cannot be written back are left alone.
  EXPECT_EQ(S_OK, Call(*History, L"Get", {SecondText, 5L, 6L, 7L}));
}

// HKEY constants above 0x7FFFFFFF reach a method as a negative number (compiled clients and VBScript), as a double
// (JScript) or as they are.
TEST_F(LateBound, RootKeysKeepTheirBits) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  for (const double TooFar : {-1.0, 4294967296.0})
    EXPECT_EQ(DISP_E_OVERFLOW, Call(*Backup, L"BackupRegKeyValue", {{VT_R8, TooFar}, "", ""}));
  for (const TValue& CurrentUser : {TValue(-2147483647L), TValue(VT_R8, 2147483649.0), TValue(VT_UI4, 2147483649u)}) {
    Log().Lines.clear();
    EXPECT_EQ(S_OK, Call(*Backup, L"BackupRegKeyValue", {CurrentUser, "Software\\Orvane\\Core", ""}));
    EXPECT_EQ("BackupRegKeyValue 2147483649 Software\\Orvane\\Core ", Log().Lines.at(0).Text);
  }
}

TEST_F(LateBound, FailuresArriveWithTheirMessageOnBothRoads) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  const TNoPauses NoPauses;
  constexpr HRESULT FileNotFound = static_cast<HRESULT>(0x80040202);
  TBstr Text, Source, Description;
  TComRef<IErrorInfo> Info;
  GUID Interface{};
  EXPECT_EQ(FileNotFound, Backup->RestoreString(First, Text.Out()));
  ASSERT_EQ(S_OK, GetErrorInfo(0, Info.Out()));
  Info->GetSource(Source.Out());
  Info->GetDescription(Description.Out());
  Info->GetGUID(&Interface);
  EXPECT_EQ("Mendwork.UBackup " + SystemText(ERROR_FILE_NOT_FOUND), Take(Source) + " " + Take(Description));
  EXPECT_EQ(IID_IUBackup, Interface);

  EXPECT_EQ(DISP_E_EXCEPTION, Call(*Backup, L"RestoreString", {FirstText}));
  EXPECT_EQ(FileNotFound, Exception.scode);
  EXPECT_EQ("Mendwork.UBackup " + SystemText(ERROR_FILE_NOT_FOUND),
            ToAnsi(Exception.bstrSource) + " " + ToAnsi(Exception.bstrDescription));
  EXPECT_EQ(VT_EMPTY, Result.vt);
}

}  // namespace
