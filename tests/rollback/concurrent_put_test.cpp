#include "rollback/records.h"
#include "support/child.h"
#include "support/sandbox.h"

#include <set>

namespace {

/// Others are at work here, which a test's own doubles would keep waiting.
class ConcurrentPut : public TSandbox {
 protected:
  ConcurrentPut() : TSandbox(NoDoubles) {}

  /// Two processes run a command with a first number and a count behind it. What each was told had succeeded is in the
  /// file once.
  void ExpectEveryRecordOnce(const std::vector<std::string>& Command, const std::string& File, const GUID& Id) {
    constexpr int Count = 50;
    const auto With = [&](const char* First) {
      std::vector<std::string> Result = Command;
      Result.insert(Result.end(), {First, std::to_string(Count)});
      return Result;
    };
    TChild One(With("1000")), Two(With("2000"));
    ASSERT_TRUE(One.WaitUntilReady());
    ASSERT_TRUE(Two.WaitUntilReady());
    One.Continue();
    Two.Continue();
    EXPECT_EQ(0u, One.Wait());
    EXPECT_EQ(0u, Two.Wait());

    const std::string Content = Read(File);
    std::multiset<std::string> Found, Expected;
    for (size_t At = 0; At < Content.size(); At += LogRecordSize) Found.insert(Content.substr(At, LogRecordSize));
    for (int At = 0; At < Count; ++At)
      for (const int Code : {1000 + At, 2000 + At}) Expected.insert(RecordOf(Id, Code, NumberedGuid(Code)));
    EXPECT_EQ(Expected, Found);
    EXPECT_FALSE(Exists(File + ".bkp"));
  }
};

TEST_F(ConcurrentPut, LeavesEveryEntryInTheTransactionLog) {
  ExpectEveryRecordOnce({"put-entries"}, Service("update.prt"), CLSID_UCanRollback);
}

TEST_F(ConcurrentPut, LeavesEveryRecordInItsHistoryGroup) {
  const GUID Group = NumberedGuid(1);
  ExpectEveryRecordOnce({"put-records", GuidText(Group)}, Service("History\\" + GuidText(Group)), Group);
}

}  // namespace
