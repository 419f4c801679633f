#pragma once

#include "support/process.h"
#include "support/tree.h"

#include <gtest/gtest.h>

/// Holds a long text against FOLDER\NAME of the tests' sources. What was found is left in the build folder when it
/// differs.
inline void ExpectText(const std::string& Folder, const std::string& Name, const std::string& Found) {
  std::string Path = "Z:" MENDWORK_TEST_FILES "/" + Folder + "/" + Name;
  for (char& Character : Path) Character = Character == '/' ? '\\' : Character;
  const std::string Left = BuiltFile("tests\\" + Name);
  const bool Same = Read(Path) == Found;
  if (!Same) Write(Left, Found);
  EXPECT_TRUE(Same) << "compare " << Path << " and " << Left;
}
