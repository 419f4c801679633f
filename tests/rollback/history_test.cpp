#include "rollback/records.h"
#include "support/module_calls.h"
#include "support/sandbox_test.h"

#include <functional>

namespace {

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

class History : public TSandboxTest {
 protected:
  std::string FileOf(const GUID& GroupID) const { return Service("History\\" + GuidText(GroupID)); }
  TNewest Get(const GUID& GroupID) {
    TNewest Result;
    EXPECT_EQ(S_OK, Object->Get(GroupID, &Result.Code, &Result.DataID, &Result.NoMoreRecords, &Result.ThisIsCheckPoint))
        << ErrorText();
    return Result;
  }
  static TNewest Ordinary(long Code, const GUID& DataID) { return {Code, DataID, VARIANT_FALSE, VARIANT_FALSE}; }

  const GUID Group = NumberedGuid(1), Other = NumberedGuid(2);
  const GUID First = NumberedGuid(11), Second = NumberedGuid(12);
  const std::string File = FileOf(Group), Copy = File + ".bkp";
  TComRef<IUHistory> Object = Make<IUHistory>(CLSID_UHistory);
};

TEST_F(History, RecordsComeBackLastInFirstOut) {
  ASSERT_EQ(S_OK, Object->Put(Group, 7, First));
  ASSERT_EQ(S_OK, Object->PutCheckPoint(Group, Second));
  ASSERT_EQ(S_OK, Object->Put(Group, 0, Second));
  ASSERT_EQ(S_OK, Object->Put(Other, -5, First));
  EXPECT_EQ(RecordOf(Group, 7, First) + RecordOf(CLSID_UHistory, 0, Second) + RecordOf(Group, 0, Second), Read(File));
  EXPECT_EQ(RecordOf(Other, -5, First), Read(FileOf(Other)));

  // A code of 0 alone makes no check point.
  EXPECT_EQ(Ordinary(0, Second), Get(Group));
  EXPECT_EQ(Ordinary(0, Second), Get(Group)) << "reading leaves the record";
  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_EQ((TNewest{0, Second, VARIANT_FALSE, VARIANT_TRUE}), Get(Group));
  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_EQ(Ordinary(7, First), Get(Group));
  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_FALSE(Exists(File));
  EXPECT_EQ(None, Get(Group));
  EXPECT_EQ(Ordinary(-5, First), Get(Other)) << "groups are independent";
  EXPECT_EQ(1u, TreeOf(Service("History")).size()) << "no backup copy stays";
}

TEST_F(History, ALeftoverCopyIsPutBackByTheNextOperation) {
  const std::string Old = RecordOf(Group, 7, First);
  const std::pair<std::function<HRESULT()>, std::string> Rows[] = {
      {[&] { return Get(Group) == Ordinary(7, First) ? S_OK : E_FAIL; }, Old},
      {[&] { return Object->Put(Group, 8, Second); }, Old + RecordOf(Group, 8, Second)},
      {[&] { return Object->PutCheckPoint(Group, Second); }, Old + RecordOf(CLSID_UHistory, 0, Second)},
      {[&] { return Object->DeleteLastRecord(Group); }, "<no file>"},
      {[&] { return Object->ClearAll(Group); }, "<no file>"}};
  for (const bool Torn : {true, false})
    for (const auto& [Operation, Expected] : Rows) {
      DeleteFileA(File.c_str());  // it may not have been written anew yet
      if (Torn) Write(File, Old + "torn");
      Write(Copy, Old);
      EXPECT_EQ(S_OK, Operation());
      EXPECT_EQ(Expected, Read(File));
      EXPECT_FALSE(Exists(Copy));
    }
}

TEST_F(History, AnEmptyCopyMeansThatThereWasNoGroup) {
  Write(File, "partial");
  Write(Copy, "");
  EXPECT_EQ(None, Get(Group));
  EXPECT_EQ(0u, TreeOf(Service("History")).size());

  ASSERT_EQ(S_OK, Object->DeleteLastRecord(Group));
  EXPECT_EQ("", Read(Copy));
  EXPECT_EQ(None, Get(Group));
  EXPECT_EQ(0u, TreeOf(Service("History")).size());
  EXPECT_EQ(S_OK, Object->ClearAll(Group)) << "an empty group is clear already";
}

TEST_F(History, AFailedAppendLeavesTheGroupAsItWas) {
  ASSERT_EQ(S_OK, Object->Put(Group, 7, First));
  {
    // The first write makes the group's file anew from the copy.
    TFault Fault("WriteFile", {1, 1, ERROR_DISK_FULL});
    EXPECT_EQ(static_cast<HRESULT>(0x80040270), Object->Put(Group, 8, Second));
  }
  EXPECT_EQ(Ordinary(7, First), Get(Group));
}

}  // namespace
