#pragma once

#include <filesystem>
#include <fstream>
#include <string_view>

/// A file that is made, with the folders above it. What is there already is not written over: that raises EWrongUse. A
/// write that fails raises ECannotRead.
class TNewFile {
 public:
  explicit TNewFile(const std::filesystem::path& Path);
  void Write(std::string_view Bytes);
  void Finish();

 private:
  std::filesystem::path Path;
  std::ofstream File;
};

void WriteNewFile(const std::filesystem::path& Path, std::string_view Content);
