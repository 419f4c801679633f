// The inputs of the fuzzers, in tests/fuzz/kept: every kind of content, and what once broke a promise.

#include "fuzz/targets.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

void RunAll(const std::string& Name, void (*Target)(TFuzzInput)) {
  int Count = 0;
  for (const auto& Entry : std::filesystem::directory_iterator(MENDWORK_SOURCE_DIR "/tests/fuzz/kept/" + Name)) {
    std::printf("%s\n", Entry.path().c_str());
    std::ifstream File(Entry.path(), std::ios::binary);
    const std::vector<uint8_t> Bytes((std::istreambuf_iterator<char>(File)), {});
    Target(Bytes);
    ++Count;
  }
  EXPECT_GT(Count, 0) << Name;
}

TEST(KeptInputs, BreakNothing) {
  RunAll("uninstall_log", FuzzUninstallLog);
  RunAll("backup_items", FuzzBackupItems);
}

}  // namespace
