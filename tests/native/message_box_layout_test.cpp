#include "formats/message_box_layout.h"

#include <gtest/gtest.h>

namespace {

std::string Place(const TBoxRectangle& At) {
  return std::to_string(At.Left) + "," + std::to_string(At.Top) + " " + std::to_string(At.Width) + "x" +
         std::to_string(At.Height) + "; ";
}

// Icons of 32 x 31, a caption of 19, lines of 13, a screen of 1025 x 769.
TEST(MessageBoxLayout, PlacesEverythingToThePixel) {
  const struct {
    const char* Name;
    int Buttons, TextHeight, LineWidth;
    const char* Places;  // of the window, the text and the first button
  } Rows[] = {{"buttons are wider", 2, 13, 80, "397,330 231x109; 56,12 80x13; 12,55 100x23; "},
              {"text is wider", 1, 13, 400, "278,330 468x109; 56,12 400x13; 184,55 100x23; "},
              {"text wraps", 2, 39, 700, "328,326 368x117; 56,12 300x39; 80,63 100x23; "},
              {"no buttons", 0, 13, 80, "438,330 148x109; 56,12 80x13; 77,55 100x23; "},
              {"wider than the screen", 12, 13, 0, "-138,330 1301x109; 56,12 0x13; 12,55 100x23; "}};
  for (const auto& Row : Rows) {
    const auto Box = LayOutMessageBox({Row.Buttons, Row.TextHeight, Row.LineWidth, 13, 32, 31, 19, 1025, 769});
    EXPECT_EQ(Row.Places, Place(Box.Window) + Place(Box.Text) + Place(Box.FirstButton)) << Row.Name;
    EXPECT_EQ(107, Box.ButtonStep);
  }
}

}  // namespace
