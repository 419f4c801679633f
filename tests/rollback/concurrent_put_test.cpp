#include "support/child.h"
#include "support/sandbox.h"

#include <set>

namespace {

using ConcurrentPut = TSandbox;

TEST_F(ConcurrentPut, EveryAcknowledgedEntryOfTwoProcessesIsInTheLogOnce) {
  constexpr int Count = 50;
  TChild One({"put-entries", "1000", std::to_string(Count)}), Two({"put-entries", "2000", std::to_string(Count)});
  ASSERT_TRUE(One.WaitUntilReady());
  ASSERT_TRUE(Two.WaitUntilReady());
  One.Continue();
  Two.Continue();
  EXPECT_EQ(0u, One.Wait());
  EXPECT_EQ(0u, Two.Wait());

  const std::string Content = Read(Service("update.prt"));
  ASSERT_EQ(2u * Count * 36, Content.size());
  std::multiset<int> Codes;
  for (size_t At = 0; At < Content.size(); At += 36) {
    int Code = 0;
    std::memcpy(&Code, Content.data() + At + 16, sizeof Code);
    Codes.insert(Code);
  }
  for (int Code = 0; Code < Count; ++Code) {
    EXPECT_EQ(1u, Codes.count(1000 + Code));
    EXPECT_EQ(1u, Codes.count(2000 + Code));
  }
  EXPECT_FALSE(Exists(Service("update.prt.bkp")));
}

}  // namespace
