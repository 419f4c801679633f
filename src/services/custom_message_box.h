#pragma once

#include "base/windows_api.h"

#include <string>
#include <vector>

/// What a custom message box shows.
struct TCustomBox {
  std::string Text;
  std::string Caption;
  long IcoType;  ///< a system icon's identifier (32512 to 32517); any other leaves the icon's space empty
  std::vector<std::string> Buttons;
  std::string DefButton;  ///< the button with exactly this caption is the default one and gets the focus
  HWND Owner;             ///< may be null; is not disabled
};

/// Shows the box and waits for a button: gives its caption, or an empty text when Enter closed the box itself or the
/// thread was asked to quit (the box is then destroyed and the request posted again). Handles messages of the box and
/// its children only. Fails with the system's error when the window cannot be made.
std::string ShowCustomBox(const TCustomBox& Box);

/// Registers and unregisters the box's window class (unit start and stop).
void RegisterBoxClass();
void UnregisterBoxClass();
