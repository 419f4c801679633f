#include "support/process.h"

#include <gtest/gtest.h>

int main(int Count, char** Words) {
  if (const int Status = PlayRole(Count, Words); Status >= 0) return Status;
  testing::InitGoogleTest(&Count, Words);
  return RUN_ALL_TESTS();
}
