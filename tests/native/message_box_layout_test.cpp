#include "formats/message_box_layout.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using TPlace = std::array<int, 4>;
TPlace Place(const TBoxRectangle& At) { return {At.Left, At.Top, At.Width, At.Height}; }

// Icons of 32 x 31, a caption of 19, a screen of 1025 x 769.
TEST(MessageBoxLayout, PlacesEverythingToThePixel) {
  const struct {
    const char* Name;
    int Buttons, TextHeight, LineWidth;
    TPlace Window, Text, FirstButton;
  } Rows[] = {{"buttons are wider", 2, 13, 80, {397, 330, 231, 109}, {56, 12, 80, 13}, {12, 55, 100, 23}},
              {"text is wider", 1, 13, 299, {329, 330, 367, 109}, {56, 12, 299, 13}, {133, 55, 100, 23}},
              {"too long, yet one line", 1, 13, 400, {278, 330, 468, 109}, {56, 12, 400, 13}, {184, 55, 100, 23}},
              {"text wraps", 2, 39, 700, {328, 326, 368, 117}, {56, 12, 300, 39}, {80, 63, 100, 23}},
              {"no buttons", 0, 13, 80, {438, 330, 148, 109}, {56, 12, 80, 13}, {77, 55, 100, 23}},
              {"wider than the screen", 12, 13, 0, {-138, 330, 1301, 109}, {56, 12, 0, 13}, {12, 55, 100, 23}}};
  constexpr int LineHeight = 13;
  for (const auto& Row : Rows) {
    SCOPED_TRACE(Row.Name);
    const TBoxLayout Layout =
        LayOutMessageBox({Row.Buttons, Row.TextHeight, Row.LineWidth, LineHeight, 32, 31, 19, 1025, 769});
    EXPECT_EQ(Row.Window, Place(Layout.Window));
    EXPECT_EQ(Row.Text, Place(Layout.Text));
    EXPECT_EQ(Row.FirstButton, Place(Layout.FirstButton));
    EXPECT_EQ(107, Layout.ButtonStep);
  }
}

}  // namespace
