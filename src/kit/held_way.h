#pragma once

#include "base/handles.h"

#include <string>
#include <vector>

/// The folders on the way to a file, so many of them from its own upwards, held as long as this object lives: nobody
/// can put a link in their place.
class THeldWay {
 public:
  THeldWay(const std::wstring& Name, size_t Depth);

  /// False when one of them is a link. One that is missing is none.
  bool IsPlain() const { return Plain; }

 private:
  std::vector<TFileHandle> Held;
  bool Plain = true;
};
