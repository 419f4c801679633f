#include "services/message_box_layout.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using TPlace = std::array<int, 4>;
TPlace Place(const TBoxRectangle& At) { return {At.Left, At.Top, At.Width, At.Height}; }

struct TRow {
  const char* Name;
  int Buttons, TextHeight, LineWidth, LineHeight;
  TPlace Window, Text, FirstButton;
};

class MessageBoxLayout : public testing::TestWithParam<TRow> {};

// Icons of 32 x 31, a caption of 19, a screen of 1025 x 769.
TEST_P(MessageBoxLayout, PlacesEverythingToThePixel) {
  const TRow& Row = GetParam();
  const TBoxLayout Layout =
      LayOutMessageBox({Row.Buttons, Row.TextHeight, Row.LineWidth, Row.LineHeight, 32, 31, 19, 1025, 769});
  EXPECT_EQ(Row.Window, Place(Layout.Window));
  EXPECT_EQ(Row.Text, Place(Layout.Text));
  EXPECT_EQ(Row.FirstButton, Place(Layout.FirstButton));
  EXPECT_EQ(107, Layout.ButtonStep);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MessageBoxLayout,
    testing::Values(
        TRow{"buttons_are_wider", 2, 13, 80, 13, {397, 330, 231, 109}, {56, 12, 80, 13}, {12, 55, 100, 23}},
        TRow{"text_is_wider", 1, 13, 299, 13, {329, 330, 367, 109}, {56, 12, 299, 13}, {133, 55, 100, 23}},
        TRow{"text_is_too_long_yet_one_line",
             1,
             13,
             400,
             13,
             {278, 330, 468, 109},
             {56, 12, 400, 13},
             {184, 55, 100, 23}},
        TRow{"text_wraps", 2, 39, 700, 13, {328, 326, 368, 117}, {56, 12, 300, 39}, {80, 63, 100, 23}},
        TRow{"short_lines_wrap_too", 1, 26, 40, 13, {328, 330, 368, 109}, {56, 12, 300, 26}, {134, 55, 100, 23}},
        TRow{"no_buttons", 0, 13, 80, 13, {438, 330, 148, 109}, {56, 12, 80, 13}, {77, 55, 100, 23}},
        TRow{"wider_than_the_screen", 12, 13, 0, 13, {-138, 330, 1301, 109}, {56, 12, 0, 13}, {12, 55, 100, 23}}),
    [](const auto& Info) { return std::string(Info.param.Name); });

}  // namespace
