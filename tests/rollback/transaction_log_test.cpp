#include "rollback/records.h"
#include "rollback/undo_target.h"

namespace {

const GUID UndoClass = Guid("{6E1C0B5A-92D4-4F0B-8C57-3B1D0A9E7F42}"), Untouched = NumberedGuid(0x7FFFFFFF);
constexpr char NoFile[] = "<no file>";

/// The bytes of entries of the undoing class, each a digit, which is its code and the number of its DataID; "c" is a
/// check point, "~" a torn end.
std::string Entries(const std::string& Digits) {
  std::string Result;
  for (const char Digit : Digits)
    Result += Digit == 'c'   ? RecordOf(CLSID_UTransactionLog, 0, NumberedGuid(9))
              : Digit == '~' ? "torn"
                             : RecordOf(UndoClass, Digit - '0', NumberedGuid(Digit - '0'));
  return Result;
}

class TransactionLog : public TSandboxTest {
 protected:
  HRESULT Put(int Code) { return Log_->Put(UndoClass, Code, NumberedGuid(Code)); }
  HRESULT Rollback(VARIANT_BOOL OnlyToCheckPoint = VARIANT_FALSE) {
    Reached = Untouched;
    return Log_->Rollback(OnlyToCheckPoint, &Reached);
  }
  std::string Content() const { return Read(Service("update.prt")); }
  std::string BackupCopy() const { return Read(Service("update.prt.bkp")); }

  TUndoTarget Target{UndoClass};
  TComRef<IUTransactionLog> Log_ = Make<IUTransactionLog>(CLSID_UTransactionLog);
  GUID Reached{};
};

TEST_F(TransactionLog, EntriesAreAppendedInTheirBinaryForm) {
  ASSERT_EQ(S_OK, Log_->Put(Guid("{00112233-4455-6677-8899-AABBCCDDEEFF}"), -2, NumberedGuid(0x01020304)));
  EXPECT_EQ(std::string("\x33\x22\x11\x00\x55\x44\x77\x66\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF\xFE\xFF\xFF\xFF"
                        "\0\0\0\0\0\0\0\0\0\0\0\0\x01\x02\x03\x04",
                        36),
            Content());
  const std::string First = Content();
  ASSERT_EQ(S_OK, Log_->PutCheckPoint(NumberedGuid(9)));
  EXPECT_EQ(First + Entries("c"), Content());
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
    EXPECT_EQ(Entries("12c"), Content());
    EXPECT_EQ(NoFile, BackupCopy());
  }
  ASSERT_EQ(S_OK, Rollback());
  EXPECT_EQ("4 4, 3 3, 2 2, 1 1", Target.Calls());
  EXPECT_EQ(GuidText(Untouched), GuidText(Reached));
  EXPECT_EQ(NoFile, Content());
  EXPECT_EQ("", BackupCopy());
  ASSERT_EQ(S_OK, Put(5));
  EXPECT_EQ(Entries("5"), Content()) << "the empty copy stood for a log that was gone";
  EXPECT_EQ(NoFile, BackupCopy());
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
      if (*Codes != '-') Write(Service(File), Entries(Codes));
    }
  }
};

TEST_P(LeftOverCopy, IsPutBackFirst) {
  Plant();
  ASSERT_EQ(S_OK, Put(7));
  EXPECT_EQ(Entries(GetParam().AfterPut), Content());
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
  const GUID Late = Guid("{6E1C0B5A-92D4-4F0B-8C57-3B1D0A9E7F43}");
  const std::pair<GUID, HRESULT> Rows[] = {{CLSID_UTransactionLog, E_NOINTERFACE}, {Late, REGDB_E_CLASSNOTREG}};
  for (const auto& [Id, Expected] : Rows) {
    SCOPED_TRACE(GuidText(Id));
    const std::string Stuck = Entries("1") + RecordOf(CLSID_UCanRollback, 5, Untouched) + RecordOf(Id, 5, Untouched);
    Write(Service("update.prt"), Stuck + Entries("2"));
    DeleteFileA(Service("update.prt.bkp").c_str());
    EXPECT_EQ(Expected, Rollback());
    EXPECT_EQ(Expected, Rollback());
    EXPECT_NE("", ErrorText());
    EXPECT_EQ(Stuck, Content());
    EXPECT_EQ(Stuck, BackupCopy());
  }
  const TUndoTarget Now(Late);
  EXPECT_EQ(S_OK, Rollback());
  EXPECT_EQ("5 255", Now.Calls());
  EXPECT_EQ("2 2, 2 2, 1 1", Target.Calls());
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
  EXPECT_EQ(Entries("12"), Content());
  EXPECT_EQ(Entries("12"), BackupCopy());
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
  constexpr HRESULT DamagedLog = static_cast<HRESULT>(0x80040770);  // made of the system error 1392
  const std::string Torn = Entries("1~");
  for (const auto& Call : {std::function([this] { return Put(3); }), std::function([this] { return Rollback(); }),
                           std::function([this] { return Rollback(VARIANT_TRUE); })}) {
    DeleteFileA(Service("update.prt.bkp").c_str());
    Write(Service("update.prt"), Torn);
    for (int Time = 0; Time < 2; ++Time) {
      EXPECT_EQ(DamagedLog, Call());
      EXPECT_EQ("The file '" + Service("update.prt") + "' is damaged: its size is not a multiple of 36 bytes.",
                ErrorText());
      EXPECT_EQ(Torn, Content());
    }
  }
  EXPECT_EQ("", Target.Calls());
}

}  // namespace
