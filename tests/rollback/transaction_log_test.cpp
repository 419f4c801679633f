#include "rollback/log_record.h"
#include "rollback/undo_target.h"

namespace {

constexpr char UndoClassText[] = "{6E1C0B5A-92D4-4F0B-8C57-3B1D0A9E7F42}";
const GUID Untouched = NumberedGuid(0x7FFFFFFF);
constexpr HRESULT DamagedLog = static_cast<HRESULT>(0x80040770);  // made of the system error 1392

class TransactionLog : public TSandbox {
 protected:
  /// The bytes of entries of the undoing class with these codes; each one's DataID has its code as number.
  std::string Entries(std::initializer_list<int> Codes) const {
    std::string Result;
    for (const int Code : Codes) Result += EntryOf(UndoClass, Code, Code);
    return Result;
  }
  static std::string EntryOf(const GUID& Id, int Code, int DataNumber) {
    const TLogRecordBytes Bytes = EncodeRecord({BytesOf(Id), Code, BytesOf(NumberedGuid(DataNumber))});
    return std::string(Bytes.begin(), Bytes.end());
  }
  static std::string CheckPoint(int Number) { return EntryOf(CLSID_UTransactionLog, 0, Number); }

  HRESULT Put(int Code) { return Log_->Put(UndoClass, Code, NumberedGuid(Code)); }
  HRESULT Rollback(VARIANT_BOOL OnlyToCheckPoint = VARIANT_FALSE) {
    Reached = Untouched;
    return Log_->Rollback(OnlyToCheckPoint, &Reached);
  }
  std::string Content() const { return Read(Service("update.prt")); }
  std::string BackupCopy() const { return Read(Service("update.prt.bkp")); }

  const GUID UndoClass = Guid(UndoClassText);
  TUndoTarget Target{UndoClass};
  TComRef<IUTransactionLog> Log_ = Make<IUTransactionLog>(CLSID_UTransactionLog);
  GUID Reached{};
};

constexpr char NoFile[] = "<no file>";

TEST_F(TransactionLog, EntriesAreAppendedInTheirBinaryForm) {
  ASSERT_EQ(S_OK, Log_->Put(Guid("{00112233-4455-6677-8899-AABBCCDDEEFF}"), -2, NumberedGuid(0x01020304)));
  EXPECT_EQ(std::string("\x33\x22\x11\x00\x55\x44\x77\x66\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF\xFE\xFF\xFF\xFF"
                        "\0\0\0\0\0\0\0\0\0\0\0\0\x01\x02\x03\x04",
                        36),
            Content());
  const std::string First = Content();
  ASSERT_EQ(S_OK, Log_->PutCheckPoint(NumberedGuid(9)));
  EXPECT_EQ(First + CheckPoint(9), Content());
  EXPECT_EQ(NoFile, BackupCopy());
}

TEST_F(TransactionLog, RollbackWalksToTheCheckPointAndThenToTheBeginning) {
  for (const int Code : {1, 2}) ASSERT_EQ(S_OK, Put(Code));
  ASSERT_EQ(S_OK, Log_->PutCheckPoint(NumberedGuid(9)));
  for (const int Code : {3, 4}) ASSERT_EQ(S_OK, Put(Code));
  for (const char* When : {"first", "again"}) {
    SCOPED_TRACE(When);
    ASSERT_EQ(S_OK, Rollback(VARIANT_TRUE));
    EXPECT_EQ("4 4, 3 3", Target.Calls());
    EXPECT_EQ(GuidText(NumberedGuid(9)), GuidText(Reached));
    EXPECT_EQ(Entries({1, 2}) + CheckPoint(9), Content());
    EXPECT_EQ(NoFile, BackupCopy());
  }
  ASSERT_EQ(S_OK, Rollback());
  EXPECT_EQ("4 4, 3 3, 2 2, 1 1", Target.Calls());
  EXPECT_EQ(GuidText(Untouched), GuidText(Reached));
  EXPECT_EQ(NoFile, Content());
  EXPECT_EQ("", BackupCopy());
  ASSERT_EQ(S_OK, Put(5));
  EXPECT_EQ(Entries({5}), Content()) << "the empty copy stood for a log that was gone";
  EXPECT_EQ(NoFile, BackupCopy());
}

TEST_F(TransactionLog, LateBoundCallersGetTheAllZeroGuidWhenNoCheckPointWasReached) {
  constexpr DISPID RollbackId = 5;
  for (const bool Found : {false, true}) {
    if (Found) {
      ASSERT_EQ(S_OK, Log_->PutCheckPoint(NumberedGuid(9)));
    }
    VARIANT Argument, Result;
    VariantInit(&Result);
    Argument.vt = VT_BOOL;
    Argument.boolVal = VARIANT_TRUE;
    DISPPARAMS Arguments{&Argument, nullptr, 1, 0};
    ASSERT_EQ(S_OK, Log_->Invoke(RollbackId, IID_NULL, 0, DISPATCH_METHOD, &Arguments, &Result, nullptr, nullptr));
    ASSERT_EQ(VT_BSTR, Result.vt);
    TBstr Given(Result.bstrVal);
    EXPECT_EQ(GuidText(NumberedGuid(Found ? 9 : 0)), Take(Given));
  }
}

TEST_F(TransactionLog, WritesTheseLines) {
  const std::string One = GuidText(NumberedGuid(1)), Nine = GuidText(NumberedGuid(9)), Zero = GuidText(Untouched);
  const std::string Id = UndoClassText, Own = GuidText(CLSID_UTransactionLog);
  ASSERT_EQ(S_OK, Rollback(VARIANT_TRUE));
  ASSERT_EQ(S_OK, Log_->PutCheckPoint(NumberedGuid(9)));
  ASSERT_EQ(S_OK, Put(-1));
  ASSERT_EQ(S_OK, Log_->Put(UndoClass, 1, NumberedGuid(1)));
  ASSERT_EQ(S_OK, Rollback(2));
  ASSERT_EQ(S_OK, Rollback());
  const std::vector<std::string> Step = {"Begin CheckBkp 1", "End CheckBkp"},
                                 Pass = {"Begin CheckBkp 0", "End CheckBkp"};
  std::vector<std::string> Expected = {"Begin Rollback -1"};
  const auto Then = [&](const std::vector<std::string>& Lines) {
    Expected.insert(Expected.end(), Lines.begin(), Lines.end());
  };
  Then(Step);  // no log: no End line
  Then({"Begin PutCheckPoint " + Nine, "Begin Put " + Own + " 0 " + Nine});
  Then(Step);
  Then({"End Put", "End PutCheckPoint", "Begin Put " + Id + " -1 " + GuidText(NumberedGuid(-1))});
  Then(Step);
  Then({"End Put", "Begin Put " + Id + " 1 " + One});
  Then(Step);
  Then({"End Put", "Begin Rollback 2"});
  for (const auto& Lines : {Step, Pass, Pass}) Then(Lines);
  Then({"End Rollback " + Nine, "Begin Rollback 0"});
  for (const auto& Lines : {Step, Pass}) Then(Lines);
  Then({"End Rollback " + Zero});
  EXPECT_EQ(Expected, Log().Texts("UTransactionLog"));

  std::map<long, std::string> Beginnings;
  for (const auto& Line : Log().Lines) {
    const std::string Routine = Line.Text.substr(0, Line.Text.find(' '));
    const bool New = Beginnings.insert({Line.Id, Routine}).second;
    EXPECT_EQ(Line.Action == "Begin", New) << Line.Id;
    EXPECT_EQ(Routine, Beginnings[Line.Id]);
  }
}

struct TLeftOver {
  const char* Name;
  const char *Copy, *Log;         ///< codes of their entries, digit by digit; "-" for no file
  const char *AfterPut, *Undone;  ///< the log after a Put of 7; what a whole rollback undoes instead
};

class LeftOverCopy : public TransactionLog, public testing::WithParamInterface<TLeftOver> {
 protected:
  void Plant() {
    for (const auto& [File, Codes] : {std::pair("update.prt.bkp", GetParam().Copy), {"update.prt", GetParam().Log}}) {
      DeleteFileA(Service(File).c_str());
      std::string Bytes;
      for (const char* Code = Codes; *Code && *Codes != '-'; ++Code)
        Bytes += *Code == '~' ? "torn" : Entries({*Code - '0'});
      if (*Codes != '-') Write(Service(File), Bytes);
    }
  }
};

TEST_P(LeftOverCopy, IsPutBackFirst) {
  Plant();
  ASSERT_EQ(S_OK, Put(7));
  std::string Expected;
  for (const char* Code = GetParam().AfterPut; *Code; ++Code) Expected += Entries({*Code - '0'});
  EXPECT_EQ(Expected, Content());
  EXPECT_EQ(NoFile, BackupCopy());

  Plant();
  ASSERT_EQ(S_OK, Rollback());
  EXPECT_EQ(GetParam().Undone, Target.Calls());
  EXPECT_EQ(NoFile, Content());
}

INSTANTIATE_TEST_SUITE_P(Rows, LeftOverCopy,
                         testing::Values(TLeftOver{"none", "-", "12", "127", "2 2, 1 1"},
                                         TLeftOver{"empty_beside_a_log", "", "1", "7", ""},
                                         TLeftOver{"empty_alone", "", "-", "7", ""},
                                         TLeftOver{"empty_beside_a_torn_log", "", "~", "7", ""},
                                         TLeftOver{"full_beside_a_torn_log", "12", "1~", "127", "2 2, 1 1"},
                                         TLeftOver{"full_beside_an_empty_log", "12", "", "127", "2 2, 1 1"},
                                         TLeftOver{"full_beside_a_longer_log", "1", "12", "17", "1 1"},
                                         TLeftOver{"full_alone", "12", "-", "127", "2 2, 1 1"}),
                         [](const auto& Info) { return std::string(Info.param.Name); });

TEST_F(TransactionLog, AnEntryThatCannotBeUndoneStaysUntilItCan) {
  const GUID Unknown = Guid("{6E1C0B5A-92D4-4F0B-8C57-3B1D0A9E7F43}");
  const struct {
    GUID Id;
    HRESULT Expected;
  } Rows[] = {{Unknown, REGDB_E_CLASSNOTREG}, {CLSID_UTransactionLog, E_NOINTERFACE}, {CLSID_UHistory, E_NOINTERFACE}};
  for (const auto& [Id, Expected] : Rows) {
    SCOPED_TRACE(GuidText(Id));
    Write(Service("update.prt"), Entries({1}) + EntryOf(Id, 5, 5) + Entries({2}));
    DeleteFileA(Service("update.prt.bkp").c_str());
    Log().Lines.clear();
    EXPECT_EQ(Expected, Rollback());
    EXPECT_EQ(Expected, Rollback());
    EXPECT_NE("", ErrorText());
    EXPECT_EQ(Entries({1}) + EntryOf(Id, 5, 5), Content());
    EXPECT_EQ(Content(), BackupCopy());
    for (const std::string& Line : Log().Texts("UTransactionLog")) EXPECT_NE(0u, Line.find("End Rollback"));
  }
  EXPECT_EQ("2 2, 2 2, 2 2", Target.Calls());
  Write(Service("update.prt"), EntryOf(Unknown, 5, 6) + EntryOf(CLSID_UCanRollback, 5, 5));
  const TUndoTarget Late(Unknown);
  EXPECT_EQ(E_NOINTERFACE, Rollback()) << "the left-over copy comes first";
  DeleteFileA(Service("update.prt.bkp").c_str());
  Write(Service("update.prt"), EntryOf(Unknown, 5, 6) + EntryOf(CLSID_UCanRollback, 5, 5));
  EXPECT_EQ(S_OK, Rollback());
  EXPECT_EQ("5 6", Late.Calls());
  EXPECT_TRUE(Dialog().Boxes.empty());
}

TEST_F(TransactionLog, AFailedUndoPassesItsResultAndTextAndIsRepeated) {
  constexpr HRESULT OwnFailure = static_cast<HRESULT>(0x80040ABC);
  for (const int Code : {1, 2}) ASSERT_EQ(S_OK, Put(Code));
  Target.Answer([] {
    TComRef<ICreateErrorInfo> Maker;
    TComRef<IErrorInfo> Info;
    CreateErrorInfo(Maker.Out());
    Maker->SetDescription(Text("The thing is in use, \xE4h."));
    Maker->QueryInterface(IID_IErrorInfo, Info.OutVoid());
    SetErrorInfo(0, Info.Get());
    return OwnFailure;
  });
  EXPECT_EQ(OwnFailure, Rollback());
  EXPECT_EQ("The thing is in use, \xE4h.", ErrorText());
  EXPECT_EQ(Entries({1, 2}), Content());
  EXPECT_EQ(Entries({1, 2}), BackupCopy());
  Target.Answer(nullptr);
  EXPECT_EQ(S_OK, Rollback());
  EXPECT_EQ("2 2, 2 2, 1 1", Target.Calls());
}

TEST_F(TransactionLog, ACallBackFromAnUndoFailsInsteadOfWaitingForItself) {
  for (const int Code : {1, 2}) ASSERT_EQ(S_OK, Put(Code));
  Target.Answer([this] {
    GUID Unused = Untouched;
    EXPECT_EQ(E_UNEXPECTED, Put(8));
    EXPECT_NE("", ErrorText());
    EXPECT_EQ(E_UNEXPECTED, Make<IUTransactionLog>(CLSID_UTransactionLog)->PutCheckPoint(NumberedGuid(8)));
    EXPECT_EQ(E_UNEXPECTED, Log_->Rollback(VARIANT_TRUE, &Unused));
    EXPECT_EQ(GuidText(Untouched), GuidText(Unused));
    return S_OK;
  });
  EXPECT_EQ(S_OK, Rollback());
  EXPECT_EQ("2 2, 1 1", Target.Calls());
  EXPECT_EQ(NoFile, Content());
  EXPECT_EQ(S_OK, Put(3)) << "the lock is free again";
}

TEST_F(TransactionLog, ATornLogIsRefusedAndNotChanged) {
  for (const size_t Size : {1, 35, 37, 71}) {
    SCOPED_TRACE(Size);
    const std::string Torn = Entries({1, 2}).substr(0, Size);
    for (const auto& Call : {std::function([this] { return Put(3); }), std::function([this] { return Rollback(); }),
                             std::function([this] { return Rollback(VARIANT_TRUE); })}) {
      DeleteFileA(Service("update.prt.bkp").c_str());
      Write(Service("update.prt"), Torn);
      Log().Lines.clear();
      EXPECT_EQ(DamagedLog, Call());
      const std::string Message =
          "The file '" + Service("update.prt") + "' is damaged: its size is not a multiple of 36 bytes.";
      EXPECT_EQ(Message, ErrorText());
      EXPECT_EQ("Exception 1392 " + Message, Log().Texts("Common").back());
      EXPECT_EQ(Torn, Content());
      EXPECT_EQ(DamagedLog, Call());
      EXPECT_EQ(Torn, Content());
    }
  }
  EXPECT_EQ("", Target.Calls());
}

}  // namespace
