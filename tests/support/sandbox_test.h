#pragma once

#include "support/sandbox.h"
#include "support/tree.h"

#include <gtest/gtest.h>

/// The fixture of the tests: a sandbox, and a part of the registry, HKEY_CURRENT_USER\Software\MendworkTests, which is
/// empty at first.
class TSandboxTest : public testing::Test, public TSandbox {
 protected:
  explicit TSandboxTest(TLogChoice Choice = LogInMemory) : TSandbox(Choice) { DeleteKeyTree(TestKey); }
  ~TSandboxTest() override { DeleteKeyTree(TestKey); }

 public:
  static constexpr wchar_t TestKey[] = L"Software\\MendworkTests";
  static constexpr unsigned long User = 0x80000001;

  static std::wstring Wide(const std::wstring& Name) { return TestKey + (Name.empty() ? Name : L"\\" + Name); }
  /// The name of a key below the root, as callers pass it.
  static std::string Key(const std::string& Name = "") {
    return "Software\\MendworkTests" + (Name.empty() ? Name : "\\" + Name);
  }
  static TRegistryTree Tree() { return RegistryTreeOf(TestKey); }
  /// One value as it is stored.
  static TRegistryEntry Value(const std::wstring& KeyName, const std::wstring& Name) {
    return RegistryTreeOf(Wide(KeyName))[Name];
  }
};
