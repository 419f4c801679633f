#include "mendctl/machine.h"

#include <algorithm>

std::string TReadableFile::Text(uint64_t Offset, uint64_t Most) const {
  const uint64_t Left = Offset < FileSize ? FileSize - Offset : 0;
  std::string Content(static_cast<size_t>(std::min(Left, Most)), '\0');
  Content.resize(ReadAt(Offset, Content.data(), Content.size()));
  return Content;
}
