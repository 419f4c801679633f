#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

namespace {

using TNames = std::set<std::string>;

std::string ContentOf(const std::filesystem::path& Path) {
  std::ostringstream Content;
  Content << std::ifstream(Path).rdbuf();
  return Content.str();
}

TNames NamesIn(const std::string& Text, const std::regex& Pattern) {
  TNames Names;
  for (std::sregex_iterator At(Text.begin(), Text.end(), Pattern), End; At != End; ++At) Names.insert((*At)[1]);
  return Names;
}

TEST(Messages, AreAllShownBySomeCode) {
  const std::filesystem::path Sources = MENDWORK_SOURCE_DIR "/src";
  TNames Unused = NamesIn(ContentOf(Sources / "server/messages.inc"), std::regex("MESSAGE\\((Msg\\w+),"));
  ASSERT_EQ(58u, Unused.size());
  for (const auto& File : std::filesystem::recursive_directory_iterator(Sources))
    if (File.path().extension() == ".cpp" || File.path().extension() == ".h")
      for (const std::string& Name : NamesIn(ContentOf(File.path()), std::regex("\\b(Msg\\w+)"))) Unused.erase(Name);
  // Of the table, shown by nothing.
  const TNames Never = {"MsgLineBreak", "MsgCannotFlush", "MsgCannotWriteKey"};
  for (const std::string& Name : Never) EXPECT_EQ(1u, Unused.erase(Name)) << Name;
  EXPECT_EQ(TNames(), Unused);
}

}  // namespace
