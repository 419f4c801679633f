#pragma once

#include <cstddef>
#include <deque>
#include <string>

/// The texts of the boxes that were shown or answered, the latest of them.
class TMessageList {
 public:
  static constexpr size_t Most = 200;  ///< of which more are not kept

  void Add(std::wstring Text);
  void Clear();
  /// The latest one as the box had it; empty when there is none.
  std::wstring Last() const { return Texts.empty() ? L"" : Texts.back(); }
  /// All of them, from the first: each without its empty lines, and an empty line between two of them. A line before
  /// them tells how many earlier ones there were.
  std::wstring All() const;

 private:
  std::deque<std::wstring> Texts;
  size_t Forgotten = 0;
};
