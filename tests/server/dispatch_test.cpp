#include "base/text.h"
#include "support/sandbox_test.h"

#include <algorithm>
#include <cstring>

namespace {

/// A VARIANT as callers make them.
struct TValue : VARIANT {
  TValue() { VariantInit(this); }
  TValue(const char* Ansi) : TValue(VT_BSTR) { bstrVal = MakeBstr(ToWide(Ansi)).Detach(); }
  TValue(const std::string& Ansi) : TValue(Ansi.c_str()) {}
  TValue(long Number) : TValue(VT_I4) { lVal = Number; }
  TValue(double Number) : TValue(VT_R8) { dblVal = Number; }
  TValue(const TValue& Other) : TValue() {
    VariantCopy(this, const_cast<TValue*>(&Other));
    // The platform's copy of a record leaves the array in it out.
    if (vt == VT_RECORD) std::memcpy(pvRecord, Other.pvRecord, sizeof(GUID));
  }
  TValue& operator=(TValue Other) {
    std::swap(static_cast<VARIANT&>(*this), static_cast<VARIANT&>(Other));
    return *this;
  }
  ~TValue() { VariantClear(this); }

  /// A value by its type and what is in it.
  template <class TPayload>
  static TValue Of(int Type, TPayload Payload) {
    TValue Result(Type);
    std::memcpy(&Result.llVal, &Payload, sizeof Payload);
    return Result;
  }
  /// A variable of the caller's, as VBScript passes it.
  static TValue Variable(TValue& Named) { return Of(VT_BYREF | VT_VARIANT, &Named); }
  /// The place of a record that the caller has made.
  static TValue RecordReference(const TValue& Record) {
    TValue Result(VT_BYREF | VT_RECORD);
    Result.pRecInfo = Record.pRecInfo;
    Result.pvRecord = Record.pvRecord;
    return Result;
  }
  /// The record that compiled clients pass.
  static TValue Record(const GUID& Guid) {
    TComRef<ITypeLib> Library;
    TComRef<ITypeInfo> Info;
    MEMBERID Member = 0;
    USHORT Count = 1;
    wchar_t Name[] = L"GUID";
    LoadTypeLib(L"stdole2.tlb", Library.Out());
    Library->FindName(Name, 0, Info.Out(), &Member, &Count);
    TValue Result(VT_RECORD);
    EXPECT_EQ(S_OK, GetRecordInfoFromTypeInfo(Info.Get(), &Result.pRecInfo));
    Result.pvRecord = Result.pRecInfo->RecordCreate();
    std::memcpy(Result.pvRecord, &Guid, sizeof Guid);
    return Result;
  }
  std::string Text() const { return vt == VT_BSTR ? ToAnsi(ViewOf(bstrVal)) : "<no text>"; }

 private:
  explicit TValue(int Type) : TValue() { vt = static_cast<VARTYPE>(Type); }
};

class LateBound : public TSandboxTest {
 protected:
  struct TReport {
    TValue Result;
    UINT BadArgument = 99;
    long Failure = 0;
    std::string Source, Description;
  };

  static DISPID IdOf(IDispatch& Object, const std::wstring& Name) {
    DISPID Id = DISPID_UNKNOWN;
    LPOLESTR Raw = const_cast<LPOLESTR>(Name.c_str());
    Object.GetIDsOfNames(IID_NULL, &Raw, 1, LOCALE_USER_DEFAULT, &Id);
    return Id;
  }
  /// Calls with the arguments in the order of the parameters; the first `Positions` of the reversed list are named.
  HRESULT Call(IDispatch& Object, const std::wstring& Name, std::vector<TValue> Arguments,
               std::vector<DISPID> Positions = {}) {
    std::vector<VARIANT> Reversed(Arguments.rbegin(), Arguments.rend());  // borrowed
    DISPPARAMS Parameters{Reversed.data(), Positions.data(), static_cast<UINT>(Reversed.size()),
                          static_cast<UINT>(Positions.size())};
    EXCEPINFO Exception{};
    Report = TReport();
    const HRESULT Outcome = Object.Invoke(IdOf(Object, Name), IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD,
                                          &Parameters, &Report.Result, &Exception, &Report.BadArgument);
    TBstr Source(Exception.bstrSource), Description(Exception.bstrDescription);
    Report.Failure = Exception.scode;
    Report.Source = Take(Source);
    Report.Description = Take(Description);
    return Outcome;
  }
  /// The last entry of the transaction log.
  std::string LastEntry() const {
    const std::string Content = Read(Service("update.prt"));
    return Content.size() < 36 ? Content : Content.substr(Content.size() - 36);
  }
  static std::string Entry(const GUID& Id, int Code, const GUID& DataID) {
    std::string Bytes(36, '\0');
    std::memcpy(Bytes.data(), &Id, 16);
    std::memcpy(Bytes.data() + 16, &Code, 4);
    std::memcpy(Bytes.data() + 20, &DataID, 16);
    return Bytes;
  }

  TReport Report;
  TComRef<IUTransactionLog> TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

const GUID First = {0x11223344, 0x5566, 0x7788, {0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01}};
constexpr char FirstText[] = "{11223344-5566-7788-99AA-BBCCDDEEFF01}";
const GUID Second = {0xABCDEF01, 0x2345, 0x6789, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr char SecondText[] = "{ABCDEF01-2345-6789-0102-030405060708}";

TEST_F(LateBound, GuidArgumentsMayBeRecordsOrTexts) {
  TValue Variable(SecondText);
  const std::vector<std::pair<TValue, TValue>> Rows = {
      {TValue::Record(First), TValue::Record(Second)},
      {"{11223344-5566-7788-99aa-bbccddeeff01}", "{abcdef01-2345-6789-0102-030405060708}"},
      {FirstText, TValue::Variable(Variable)},
      {FirstText, TValue::Of(VT_BYREF | VT_BSTR, &Variable.bstrVal)}};
  int Code = -1;
  for (const auto& [Id, DataID] : Rows) {
    EXPECT_EQ(S_OK, Call(*TransactionLog, L"Put", {Id, static_cast<long>(++Code), DataID}));
    EXPECT_EQ(Entry(First, Code, Second), LastEntry()) << Code;
  }
  const TValue Record = TValue::Record(Second);
  EXPECT_EQ(S_OK, Call(*TransactionLog, L"Put", {TValue::RecordReference(Record), ++Code + 0L, FirstText}));
  EXPECT_EQ(Entry(Second, Code, First), LastEntry());

  const std::string Before = LastEntry();
  for (const char* Bad : {"", "11223344-5566-7788-99AA-BBCCDDEEFF01", "{11223344-5566-7788-99AA-BBCCDDEEFF0G}",
                          "{11223344-5566-7788-99AA-BBCCDDEEFF01} "}) {
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Call(*TransactionLog, L"Put", {FirstText, 1L, Bad})) << Bad;
    EXPECT_EQ(0u, Report.BadArgument);
  }
  EXPECT_EQ(DISP_E_TYPEMISMATCH, Call(*TransactionLog, L"Put", {1L, 1L, FirstText}));
  EXPECT_EQ(2u, Report.BadArgument);
  EXPECT_EQ(Before, LastEntry());
  EXPECT_EQ(Code + 1u, Read(Service("update.prt")).size() / 36);
}

TEST_F(LateBound, ArgumentsAreConvertedOrRefused) {
  TValue Variable(7L);
  short Small = -8;
  const std::vector<std::pair<TValue, int>> Good = {{-5L, -5},
                                                    {"12", 12},
                                                    {3.0, 3},
                                                    {TValue::Of(VT_BOOL, VARIANT_TRUE), -1},
                                                    {TValue::Variable(Variable), 7},
                                                    {TValue::Of(VT_BYREF | VT_I2, &Small), -8}};
  for (const auto& [Code, Number] : Good) {
    EXPECT_EQ(S_OK, Call(*TransactionLog, L"Put", {FirstText, Code, SecondText}));
    EXPECT_EQ(Entry(First, Number, Second), LastEntry()) << Number;
  }
  const std::vector<std::pair<TValue, HRESULT>> Bad = {
      {"abc", DISP_E_TYPEMISMATCH},
      {3e9, DISP_E_OVERFLOW},
      {FirstText, DISP_E_TYPEMISMATCH},
      {TValue::Of(VT_ERROR, DISP_E_PARAMNOTFOUND), DISP_E_PARAMNOTOPTIONAL}};
  for (const auto& [Code, Refusal] : Bad) {
    EXPECT_EQ(Refusal, Call(*TransactionLog, L"Put", {FirstText, Code, SecondText})) << Code.Text();
    EXPECT_EQ(1u, Report.BadArgument);
  }
  EXPECT_EQ(Good.size(), Read(Service("update.prt")).size() / 36);
}

TEST_F(LateBound, CountsNamesAndMembersAreChecked) {
  EXPECT_EQ(DISP_E_BADPARAMCOUNT, Call(*TransactionLog, L"Put", {FirstText, 1L}));
  EXPECT_EQ(DISP_E_BADPARAMCOUNT, Call(*TransactionLog, L"Put", {FirstText, 1L, SecondText, 1L}));
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, Call(*TransactionLog, L"Get", {}));
  EXPECT_EQ(DISP_E_PARAMNOTFOUND, Call(*TransactionLog, L"Put", {FirstText, 1L, SecondText}, {3}));
  EXPECT_EQ("<no file>", Read(Service("update.prt")));

  // Names come in any case, those of parameters with their method; a stranger's name spares the others.
  wchar_t Method[] = L"pUT", Id[] = L"id", DataID[] = L"DATAID", Stranger[] = L"Nothing";
  LPOLESTR Names[] = {Method, DataID, Stranger, Id};
  DISPID Ids[4] = {};
  EXPECT_EQ(DISP_E_UNKNOWNNAME, TransactionLog->GetIDsOfNames(IID_NULL, Names, 4, LOCALE_USER_DEFAULT, Ids));
  EXPECT_EQ((std::vector<DISPID>{1, 2, DISPID_UNKNOWN, 0}), std::vector<DISPID>(Ids, Ids + 4));
  // In the reversed list the named ones come first.
  EXPECT_EQ(S_OK, Call(*TransactionLog, L"Put", {FirstText, SecondText, 6L}, {1, Ids[1]}));
  EXPECT_EQ(Entry(First, 6, Second), LastEntry());
}

TEST_F(LateBound, ResultsComeBackAsTextsAndNumbers) {
  EXPECT_EQ(S_OK, Call(*TransactionLog, L"PutCheckPoint", {FirstText}));
  EXPECT_EQ(S_OK, Call(*TransactionLog, L"Rollback", {TValue::Of(VT_BOOL, VARIANT_TRUE)}));
  EXPECT_EQ(FirstText, Report.Result.Text());

  const auto History = Make<IUHistory>(CLSID_UHistory);
  const HRESULT Outcome = Call(*History, L"Put", {SecondText, -77L, FirstText});
  ASSERT_EQ(S_OK, Outcome) << Report.Description;
  TValue Code, DataID(4L), NoMore;
  ASSERT_EQ(S_OK, Call(*History, L"Get",
                       {SecondText, TValue::Variable(Code), TValue::Variable(DataID), TValue::Variable(NoMore)}));
  EXPECT_EQ(VT_I4, Code.vt);
  EXPECT_EQ(-77, Code.lVal);
  EXPECT_EQ(FirstText, DataID.Text());
  EXPECT_EQ(VT_BOOL, NoMore.vt);
  EXPECT_EQ(VARIANT_FALSE, NoMore.boolVal);
  EXPECT_EQ(VT_BOOL, Report.Result.vt);
  EXPECT_EQ(VARIANT_FALSE, Report.Result.boolVal);

  long Number = 0;
  VARIANT_BOOL Flag = VARIANT_TRUE;
  BSTR Text = SysAllocString(L"overwritten");
  const TValue Record = TValue::Record(Second);
  for (const TValue& Place : {TValue::Of(VT_BYREF | VT_BSTR, &Text), TValue::RecordReference(Record)})
    ASSERT_EQ(S_OK,
              Call(*History, L"Get",
                   {SecondText, TValue::Of(VT_BYREF | VT_I4, &Number), Place, TValue::Of(VT_BYREF | VT_BOOL, &Flag)}));
  TBstr Freed(Text);
  EXPECT_EQ(-77, Number);
  EXPECT_EQ(FirstText, Take(Freed));
  EXPECT_EQ(0, std::memcmp(&First, Record.pvRecord, sizeof First));
  EXPECT_EQ(VARIANT_FALSE, Flag);
  // The places of values that cannot be written back are left alone.
  EXPECT_EQ(S_OK, Call(*History, L"Get", {SecondText, 5L, 6L, 7L}));
}

TEST_F(LateBound, EveryInterfaceReachesItsInheritedMethod) {
  for (const CLSID& ClassId : {CLSID_UBackup, CLSID_UFile, CLSID_UCom, CLSID_URegistry, CLSID_UCanRollback}) {
    const HRESULT Early = Make<IUCanRollback>(ClassId)->Rollback(0x7FFFFFFF, First);
    const HRESULT Late = Call(*Make<IDispatch>(ClassId), L"Rollback", {0x7FFFFFFFL, FirstText});
    EXPECT_EQ(Early, Late == DISP_E_EXCEPTION ? Report.Failure : Late) << GuidText(ClassId);
  }
  const std::vector<std::string> Lines = Log().Texts("UFile");
  EXPECT_EQ(2, std::count(Lines.begin(), Lines.end(), "Begin Rollback 2147483647 " + std::string(FirstText)));
}

// HKEY constants above 0x7FFFFFFF reach a method as a negative number (compiled clients and VBScript), as a double
// (JScript) or as they are.
TEST_F(LateBound, RootKeysKeepTheirBits) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  for (const double TooFar : {-1.0, 4294967296.0})
    EXPECT_EQ(DISP_E_OVERFLOW, Call(*Backup, L"BackupRegKeyValue", {TooFar, "", ""}));
  for (const TValue& CurrentUser : {TValue(-2147483647L), TValue(2147483649.0), TValue::Of(VT_UI4, 2147483649u)}) {
    Log().Lines.clear();
    EXPECT_EQ(S_OK, Call(*Backup, L"BackupRegKeyValue", {CurrentUser, "Software\\Orvane\\Core", ""}));
    ASSERT_FALSE(Log().Lines.empty());
    EXPECT_EQ("BackupRegKeyValue 2147483649 Software\\Orvane\\Core ", Log().Lines.front().Text);
  }
}

TEST_F(LateBound, FailuresArriveWithTheirMessageOnBothRoads) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  const TNoPauses NoPauses;
  constexpr HRESULT FileNotFound = static_cast<HRESULT>(0x80040202);
  TBstr Result;
  EXPECT_EQ(FileNotFound, Backup->RestoreString(First, Result.Out()));
  TComRef<IErrorInfo> Info;
  ASSERT_EQ(S_OK, GetErrorInfo(0, Info.Out()));
  TBstr Source, Description;
  GUID Interface{};
  Info->GetSource(Source.Out());
  Info->GetDescription(Description.Out());
  Info->GetGUID(&Interface);
  EXPECT_EQ("Mendwork.UBackup", Take(Source));
  EXPECT_EQ(SystemText(ERROR_FILE_NOT_FOUND), Take(Description));
  EXPECT_EQ(IID_IUBackup, Interface);

  EXPECT_EQ(DISP_E_EXCEPTION, Call(*Backup, L"RestoreString", {FirstText}));
  EXPECT_EQ(FileNotFound, Report.Failure);
  EXPECT_EQ("Mendwork.UBackup", Report.Source);
  EXPECT_EQ(SystemText(ERROR_FILE_NOT_FOUND), Report.Description);
  EXPECT_EQ(VT_EMPTY, Report.Result.vt);
}

}  // namespace
