#pragma once

#include "formats/backup_items.h"

#include <cstdlib>
#include <string_view>

/// An item in memory. Reading beyond its end ends the program.
class TMemorySource final : public TByteSource {
 public:
  explicit TMemorySource(std::string_view Bytes) : Bytes(Bytes) {}
  uint64_t Remaining() const override { return Bytes.size(); }
  void Read(void* Buffer, uint32_t Size) override {
    if (Size > Bytes.size()) std::abort();
    Bytes.copy(static_cast<char*>(Buffer), Size);
    Bytes.remove_prefix(Size);
  }

  std::string_view Bytes;
};
