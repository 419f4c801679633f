#include "server/comma_text.h"

#include <gtest/gtest.h>

namespace {

using TList = std::vector<std::string>;

struct TRow {
  const char* Name;
  TList Entries;
  std::string Text;
};

class CommaText : public testing::TestWithParam<TRow> {};

TEST_P(CommaText, IsWrittenAndReadBack) {
  EXPECT_EQ(GetParam().Text, MakeCommaText(GetParam().Entries));
  EXPECT_EQ(GetParam().Entries, ParseCommaText(GetParam().Text));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CommaText,
    testing::Values(TRow{"none", {}, ""}, TRow{"plain", {"Yes", "No"}, "Yes,No"},
                    TRow{"blank", {"Yes to all", "Cancel"}, "\"Yes to all\",Cancel"},
                    TRow{"comma", {"a,b", "c"}, "\"a,b\",c"}, TRow{"quote", {"say \"hi\""}, "\"say \"\"hi\"\"\""},
                    TRow{"line_break", {"a\r\nb"}, "\"a\r\nb\""}, TRow{"empty_alone", {""}, "\"\""},
                    TRow{"empty_first", {"", "a"}, ",a"}, TRow{"empty_between", {"a", "", "b"}, "a,,b"},
                    TRow{"empty_last", {"a", ""}, "a,\"\""}, TRow{"high_characters", {"\xE4\xF6\xFC"}, "\xE4\xF6\xFC"}),
    [](const auto& Info) { return std::string(Info.param.Name); });

TEST(CommaText, ReadsWhatOthersWrite) {
  EXPECT_EQ((TList{"Yes", "No", "Cancel"}), ParseCommaText("  Yes No , Cancel "));
  EXPECT_EQ((TList{"a", ""}), ParseCommaText("a,"));
  EXPECT_EQ((TList{"never closed, at all"}), ParseCommaText("\"never closed, at all"));
}

}  // namespace
