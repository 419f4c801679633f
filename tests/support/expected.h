#pragma once

#include "support/process.h"
#include "support/tree.h"

#include <gtest/gtest.h>

#include <sstream>

/// Holds a long text against FOLDER\NAME of the tests' sources; no text needs no file. What was found is left in the
/// build folder when it differs.
inline void ExpectText(const std::string& Folder, const std::string& Name, const std::string& Found) {
  const std::string Path = "Z:" MENDWORK_TEST_FILES "/" + Folder + "/" + Name;
  const std::string Wanted = Exists(Path) ? Read(Path) : "", Left = BuiltFile("tests\\" + Folder + "\\" + Name);
  if (Wanted == Found) return;
  Write(Left, Found);
  std::istringstream Ours(Found), Theirs(Wanted);
  std::string Line, Other;
  int Number = 1;
  for (; std::getline(Ours, Line) && std::getline(Theirs, Other) && Line == Other; ++Number) Other.clear();
  ADD_FAILURE() << Name << ", line " << Number << ":\n  " << Line << "\ninstead of\n  " << Other << "\nwhole: " << Left;
}
