#include "rollback/records.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <set>

namespace {

/// put-entries FIRST COUNT: entries with the codes FIRST, FIRST + 1, ... for the do-nothing class.
const TRole PutEntries("put-entries", [](const TWords& Words, TScriptedDialog&) {
  const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  return RepeatWhenLetGo(std::stoi(Words.at(1)), [&, First = std::stoi(Words.at(0))](int At) {
    return Log->Put(CLSID_UCanRollback, First + At, NumberedGuid(First + At));
  });
});
/// put-records GROUP FIRST COUNT: records with the codes FIRST, FIRST + 1, ...
const TRole PutRecords("put-records", [](const TWords& Words, TScriptedDialog&) {
  const auto History = Make<IUHistory>(CLSID_UHistory);
  const GUID Group = Guid(Words.at(0).c_str());
  return RepeatWhenLetGo(std::stoi(Words.at(2)), [&, First = std::stoi(Words.at(1))](int At) {
    return History->Put(Group, First + At, NumberedGuid(First + At));
  });
});

/// Others are at work here, which a test's own doubles would keep waiting.
class ConcurrentPut : public TSandboxTest {
 protected:
  ConcurrentPut() : TSandboxTest(NoDoubles) {}

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
