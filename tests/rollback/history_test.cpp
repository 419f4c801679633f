#include "support/child.h"
#include "support/fault.h"
#include "support/sandbox.h"

#include <set>

namespace {

using TLines = std::vector<std::string>;

std::string Bytes(const GUID& Guid) { return std::string(reinterpret_cast<const char*>(&Guid), sizeof Guid); }
std::string Record(const GUID& Marker, int Code, const GUID& DataID) {
  return Bytes(Marker) + std::string(reinterpret_cast<const char*>(&Code), sizeof Code) + Bytes(DataID);
}

struct TNewest {
  long Code = 99;
  GUID DataID = NumberedGuid(99);
  VARIANT_BOOL NoMoreRecords = 99, ThisIsCheckPoint = 99;
  bool operator==(const TNewest&) const = default;
};
std::ostream& operator<<(std::ostream& Out, const TNewest& Newest) {
  return Out << Newest.Code << " " << GuidText(Newest.DataID) << " " << Newest.NoMoreRecords << " "
             << Newest.ThisIsCheckPoint;
}
const TNewest None{99, NumberedGuid(99), VARIANT_TRUE, 99};  // the others keep the caller's values

class History : public TSandbox {
 protected:
  explicit History(TLogChoice Choice = LogInMemory) : TSandbox(Choice) { Write(FileOf(Group), ""), ClearFiles(); }

  std::string FileOf(const GUID& GroupID) const { return Service("History\\" + GuidText(GroupID)); }
  std::string CopyOf(const GUID& GroupID) const { return FileOf(GroupID) + ".bkp"; }
  void ClearFiles() {
    DeleteFileA(FileOf(Group).c_str());
    DeleteFileA(CopyOf(Group).c_str());
  }
  TNewest Get(const GUID& GroupID) {
    TNewest Result;
    EXPECT_EQ(S_OK, Object->Get(GroupID, &Result.Code, &Result.DataID, &Result.NoMoreRecords, &Result.ThisIsCheckPoint))
        << ErrorText();
    return Result;
  }
  static TNewest Ordinary(long Code, const GUID& DataID) { return {Code, DataID, VARIANT_FALSE, VARIANT_FALSE}; }
  TLines Lines() { return Log().Texts("UHistory"); }

  const GUID Group = NumberedGuid(1), Other = NumberedGuid(2);
  const GUID First = NumberedGuid(11), Second = NumberedGuid(12);
  const std::string Id = GuidText(Group);
  TComRef<IUHistory> Object = Make<IUHistory>(CLSID_UHistory);
};

TEST_F(History, RecordsComeBackLastInFirstOut) {
  ASSERT_EQ(S_OK, Object->Put(Group, 7, First));
  ASSERT_EQ(S_OK, Object->PutCheckPoint(Group, Second));
  ASSERT_EQ(S_OK, Object->Put(Group, 0, Second));
  ASSERT_EQ(S_OK, Object->Put(Other, -5, First));
  const std::string Stack = Record(Group, 7, First) + Record(CLSID_UHistory, 0, Second);
  EXPECT_EQ(Stack + Record(Group, 0, Second), Read(FileOf(Group)));
  EXPECT_EQ(Record(Other, -5, First), Read(FileOf(Other)));

  // A code of 0 alone makes no check point.
  EXPECT_EQ(Ordinary(0, Second), Get(Group));
  EXPECT_EQ(Ordinary(0, Second), Get(Group)) << "reading leaves the record";
  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_EQ((TNewest{0, Second, VARIANT_FALSE, VARIANT_TRUE}), Get(Group));
  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_EQ(Ordinary(7, First), Get(Group));
  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_FALSE(Exists(FileOf(Group)));
  EXPECT_EQ(None, Get(Group));
  EXPECT_EQ(Ordinary(-5, First), Get(Other)) << "groups are independent";
  EXPECT_EQ(1u, TreeOf(Service("History")).size()) << "no backup copy stays";
}

TEST_F(History, WritesItsLines) {
  const std::string Data = GuidText(First);
  const TLines Repair = {"Begin CheckBkp " + Id + " 0", "End CheckBkp"};
  const TLines Copy = {"Begin CheckBkp " + Id + " 1", "End CheckBkp"};
  const auto Expect = [&](const char* What, TLines Before, const TLines& Between, const TLines& After) {
    Before.insert(Before.end(), Between.begin(), Between.end());
    Before.insert(Before.end(), After.begin(), After.end());
    EXPECT_EQ(Before, Lines()) << What;
    Log().Lines.clear();
  };
  Log().Lines.clear();
  Get(Group);
  Expect("Get, empty", {"Begin Get " + Id}, Repair, {});
  Object->DeleteLastRecord(Group);
  Expect("DeleteLastRecord, empty", {"Begin DeleteLastRecord " + Id}, Copy, {});
  Object->Put(Group, -7, First);
  Expect("Put", {"Begin Put " + Id + " -7 " + Data, "Begin PutAction " + Id + " -7 " + Data + " 0"}, Copy,
         {"End PutAction", "End Put"});
  Get(Group);
  Expect("Get", {"Begin Get " + Id}, Repair, {"End Get -7 " + Data + " 0 0"});
  Object->PutCheckPoint(Group, First);
  Expect("PutCheckPoint", {"Begin Put " + Id + " " + Data, "Begin PutAction " + Id + " 0 " + Data + " 1"}, Copy,
         {"End PutAction", "End Put"});
  Get(Group);
  Expect("Get, check point", {"Begin Get " + Id}, Repair, {"End Get 0 " + Data + " 0 1"});
  Object->DeleteLastRecord(Group);
  Expect("DeleteLastRecord", {"Begin DeleteLastRecord " + Id}, Copy, {"End DeleteLastRecord " + Id});
  Object->ClearAll(Group);
  Expect("ClearAll", {"Begin ClearAll " + Id}, {}, {"End ClearAll"});
}

TEST_F(History, ALeftoverCopyIsPutBackByTheNextOperation) {
  const std::string Old = Record(Group, 7, First), Torn = Old + "torn";
  const auto Leave = [&] { Write(FileOf(Group), Torn), Write(CopyOf(Group), Old); };
  const auto Expect = [&](const char* What, const std::string& File, auto Operation) {
    Leave();
    Operation();
    EXPECT_EQ(File, Read(FileOf(Group))) << What;
    EXPECT_FALSE(Exists(CopyOf(Group))) << What;
    ClearFiles();
  };
  Expect("Get", Old, [&] { EXPECT_EQ(Ordinary(7, First), Get(Group)); });
  Expect("Put", Old + Record(Group, 8, Second), [&] { EXPECT_EQ(S_OK, Object->Put(Group, 8, Second)); });
  Expect("PutCheckPoint", Old + Record(CLSID_UHistory, 0, Second),
         [&] { EXPECT_EQ(S_OK, Object->PutCheckPoint(Group, Second)); });
  Expect("DeleteLastRecord", "<no file>", [&] { EXPECT_EQ(S_OK, Object->DeleteLastRecord(Group)); });
  Leave();
  DeleteFileA(FileOf(Group).c_str());
  EXPECT_EQ(Ordinary(7, First), Get(Group)) << "the file had not been written anew yet";
}

TEST_F(History, AnEmptyCopyMeansThatThereWasNoGroup) {
  Write(FileOf(Group), "partial");
  Write(CopyOf(Group), "");
  EXPECT_EQ(None, Get(Group));
  EXPECT_EQ(0u, TreeOf(Service("History")).size());

  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_EQ("", Read(CopyOf(Group)));
  EXPECT_EQ(None, Get(Group));
  EXPECT_EQ(0u, TreeOf(Service("History")).size());
}

TEST_F(History, ClearAllRemovesALeftoverCopyToo) {
  Write(FileOf(Group), Record(Group, 7, First));
  Write(CopyOf(Group), Record(Group, 7, First));
  ASSERT_EQ(S_OK, Object->ClearAll(Group));
  EXPECT_EQ(0u, TreeOf(Service("History")).size());
  EXPECT_EQ(None, Get(Group));
  EXPECT_EQ(S_OK, Object->ClearAll(Group)) << "an empty group is clear already";
}

TEST_F(History, ATornGroupIsRefusedAndNotChanged) {
  constexpr HRESULT Corrupt = static_cast<HRESULT>(0x80040200 + ERROR_FILE_CORRUPT);
  for (const std::string& Torn : {std::string("?"), Record(Group, 7, First) + "?", std::string(71, '\0')}) {
    Write(FileOf(Group), Torn);
    TNewest Newest;
    for (int Operation = 0; Operation < 3; ++Operation) {
      EXPECT_EQ(Corrupt, Operation == 0   ? Object->Put(Group, 8, Second)
                         : Operation == 1 ? Object->DeleteLastRecord(Group)
                                          : Object->Get(Group, &Newest.Code, &Newest.DataID, &Newest.NoMoreRecords,
                                                        &Newest.ThisIsCheckPoint));
      EXPECT_EQ("The file '" + FileOf(Group) + "' is damaged: its size is not a multiple of 36 bytes.", ErrorText());
      EXPECT_EQ(Torn, Read(FileOf(Group)));
    }
    ASSERT_EQ(S_OK, Object->ClearAll(Group));
  }
  EXPECT_EQ(S_OK, Object->Put(Other, 1, First)) << "the lock is free again";
  Write(FileOf(Group), "");
  EXPECT_EQ(None, Get(Group));
}

TEST_F(History, AFailedAppendLeavesTheGroupAsItWas) {
  ASSERT_EQ(S_OK, Object->Put(Group, 7, First));
  {
    // The first write makes the group's file anew from the copy.
    TFault Fault("WriteFile", FailsWith<decltype(&WriteFile), 0>, {1, 1, ERROR_DISK_FULL});
    EXPECT_EQ(static_cast<HRESULT>(0x80040270), Object->Put(Group, 8, Second));
  }
  EXPECT_EQ("Begin CheckBkp " + Id + " 1", Lines().end()[-2]) << "no End line of Put";
  EXPECT_EQ(Ordinary(7, First), Get(Group));
}

/// Others are at work here, which a test's own doubles would keep waiting.
class SharedHistory : public History {
 protected:
  SharedHistory() : History(NoDoubles) {}
};

TEST_F(SharedHistory, EveryAcknowledgedRecordOfTwoProcessesIsInItsGroupOnce) {
  constexpr int Count = 40;
  TChild One({"put-records", Id, "1000", std::to_string(Count)}),
      Two({"put-records", Id, "2000", std::to_string(Count)});
  ASSERT_TRUE(One.WaitUntilReady());
  ASSERT_TRUE(Two.WaitUntilReady());
  One.Continue();
  Two.Continue();
  EXPECT_EQ(0u, One.Wait());
  EXPECT_EQ(0u, Two.Wait());
  const std::string Content = Read(FileOf(Group));
  std::multiset<std::string> Found, Expected;
  for (size_t At = 0; At < Content.size(); At += 36) Found.insert(Content.substr(At, 36));
  for (int At = 0; At < Count; ++At)
    for (int Start : {1000, 2000}) Expected.insert(Record(Group, Start + At, NumberedGuid(Start + At)));
  EXPECT_EQ(Expected, Found);
  EXPECT_FALSE(Exists(CopyOf(Group)));
}

}  // namespace
