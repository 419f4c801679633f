// Every input that once broke a promise, or that a fuzzer would have to look for, in tests/fuzz/kept/TARGET.

#include "fuzz/targets.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

TEST(KeptInputs, BreakNothing) {
  for (const TFuzzTargetRow& Target : FuzzTargets) {
    int Count = 0;
    for (const auto& Entry : std::filesystem::directory_iterator(std::filesystem::path(MENDWORK_SOURCE_DIR) / "tests" /
                                                                 "fuzz" / "kept" / Target.Name)) {
      std::printf("%s\n", Entry.path().c_str());
      std::ifstream File(Entry.path(), std::ios::binary);
      const std::string Bytes((std::istreambuf_iterator<char>(File)), {});
      Target.Run({reinterpret_cast<const uint8_t*>(Bytes.data()), Bytes.size()});
      ++Count;
    }
    EXPECT_GT(Count, 0) << Target.Name;
  }
}

}  // namespace
