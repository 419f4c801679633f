#include "formats/message_box_layout.h"

#include <algorithm>

TBoxLayout LayOutMessageBox(const TBoxMeasures& Measures) {
  constexpr int ButtonWidth = 100, ButtonHeight = 23, ButtonGap = 7, ButtonStep = ButtonWidth + ButtonGap;
  const int ButtonsWidth = ButtonStep * Measures.ButtonCount - ButtonGap;
  const bool Wraps = Measures.WrappedTextHeight > Measures.LineHeight;
  const int TextWidth = Wraps ? WrapWidth : Measures.LineWidth;
  const int ContentHeight = std::max(Measures.WrappedTextHeight, Measures.IconHeight);
  const int ClientWidth = std::max(ButtonsWidth, Measures.IconWidth + BoxMargin + TextWidth);
  const int Width = ClientWidth + 2 * BoxMargin;
  const int Height = Measures.CaptionHeight + BoxMargin + ContentHeight + BoxMargin + ButtonHeight + BoxMargin;

  TBoxLayout Layout{};
  Layout.Window = {Measures.ScreenWidth / 2 - Width / 2, Measures.ScreenHeight / 2 - Height / 2, Width, Height};
  Layout.Text = {Measures.IconWidth + 2 * BoxMargin, BoxMargin, TextWidth, Measures.WrappedTextHeight};
  Layout.FirstButton = {(Width - ButtonsWidth) / 2, ContentHeight + 2 * BoxMargin, ButtonWidth, ButtonHeight};
  Layout.ButtonStep = ButtonStep;
  return Layout;
}
