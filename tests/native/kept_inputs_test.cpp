// The inputs of the fuzzers, in tests/fuzz/kept: every kind of content, and what once broke a promise.

#include "fuzz/targets.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

TEST(KeptInputs, BreakNothing) {
  for (const auto& [Name, Target] : {std::pair{"uninstall_log", &FuzzUninstallLog},
                                     {"backup_items", &FuzzBackupItems},
                                     {"kit_files", &FuzzKitFiles},
                                     {"state", &FuzzState},
                                     {"call_log", &FuzzCallLog}})
    for (const auto& Entry :
         std::filesystem::directory_iterator(MENDWORK_SOURCE_DIR "/tests/fuzz/kept/" + std::string(Name))) {
      std::printf("%s\n", Entry.path().c_str());
      std::ifstream File(Entry.path(), std::ios::binary);
      const std::vector<uint8_t> Bytes((std::istreambuf_iterator<char>(File)), {});
      ASSERT_FALSE(Bytes.empty());
      Target(Bytes);
    }
}

}  // namespace
