#include "formats/comma_text.h"

#include <gtest/gtest.h>

namespace {

using TList = std::vector<std::string>;

TEST(CommaText, IsWrittenAndReadBack) {
  const std::pair<TList, std::string> Rows[] = {{{}, ""},
                                                {{"Yes", "No"}, "Yes,No"},
                                                {{"Yes to all", "Cancel"}, "\"Yes to all\",Cancel"},
                                                {{"a,b", "c"}, "\"a,b\",c"},
                                                {{"say \"hi\""}, "\"say \"\"hi\"\"\""},
                                                {{"a\r\nb"}, "\"a\r\nb\""},
                                                {{""}, "\"\""},
                                                {{"", "a", "", "b", ""}, ",a,,b,\"\""},
                                                {{"\xE4\xF6\xFC"}, "\xE4\xF6\xFC"}};
  for (const auto& [Entries, Text] : Rows) {
    EXPECT_EQ(Text, MakeCommaText(Entries));
    EXPECT_EQ(Entries, ParseCommaText(Text));
  }
}

TEST(CommaText, ReadsWhatOthersWrite) {
  EXPECT_EQ((TList{"Yes", "No", "Cancel"}), ParseCommaText("  Yes No , Cancel "));
  EXPECT_EQ((TList{"a", ""}), ParseCommaText("a,"));
  EXPECT_EQ((TList{"never closed, at all"}), ParseCommaText("\"never closed, at all"));
}

}  // namespace
