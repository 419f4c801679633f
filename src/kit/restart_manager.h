#pragma once

#include <functional>
#include <string>
#include <vector>

/// Who holds a file, as the system's Restart Manager tells it. It is loaded when it is asked; where it is missing or
/// does not know, nobody is told.
struct THolder {
  std::wstring Name;  ///< as the system shows it to users
  unsigned long ProcessId = 0;
};

/// Calls `Ask` with the holders of the files, while the system still knows them, unless there is none. When it gives
/// true, they are asked to end; whoever has something to save may refuse.
void WithHoldersOf(const std::vector<std::wstring>& Files,
                   const std::function<bool(const std::vector<THolder>& Holders)>& Ask);
