#pragma once

/// The arithmetic of the custom message box, in pixels; drawing and measuring are the caller's.

struct TBoxMeasures {
  int ButtonCount;
  int WrappedTextHeight;          ///< of the text word-wrapped to 300 pixels
  int LineWidth, LineHeight;      ///< extent of the text on one line
  int IconWidth, IconHeight;      ///< SM_CXICON, SM_CYICON
  int CaptionHeight;              ///< SM_CYCAPTION
  int ScreenWidth, ScreenHeight;  ///< of the primary screen
};

struct TBoxRectangle {
  int Left, Top, Width, Height;
};

struct TBoxLayout {
  TBoxRectangle Window;       ///< on the screen, frame included, centred on the primary screen
  TBoxRectangle Text;         ///< in the window's client area, like the rest
  TBoxRectangle FirstButton;  ///< the others follow to the right
  int ButtonStep;             ///< from one button's left edge to the next one's
};

TBoxLayout LayOutMessageBox(const TBoxMeasures& Measures);

/// The width to which a long text is wrapped.
constexpr int WrapWidth = 300;
/// Free space at the edges and between the parts.
constexpr int BoxMargin = 12;
