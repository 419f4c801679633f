#include "formats/type_library_bounds.h"

#include <gtest/gtest.h>

namespace {

/// A library of one type with two members, its data at the very end; tables that it lacks are marked with -1.
std::string Library() {
  constexpr size_t Tables = 0x54 + 4, Types = Tables + 15 * 16, Members = Types + 0x64,
                   Size = Members + 4 + 10 + 2 * 12;
  std::string File(Size, '\0');
  const auto Put = [&](size_t At, uint32_t Number) {
    for (size_t Byte = 0; Byte < 4; ++Byte) File[At + Byte] = static_cast<char>(Number >> 8 * Byte);
  };
  File.replace(0, 4, "MSFT");
  Put(0x20, 1);
  for (size_t Table = 0; Table < 15; ++Table) Put(Tables + Table * 16, 0xFFFFFFFF);
  Put(Tables, Types), Put(Tables + 4, 0x64);
  Put(Types + 4, Members), Put(Types + 0x18, 0x00010001);
  Put(Members, 10);
  return File;
}

TEST(TypeLibraryBounds, EveryCutIsSeenAndNothingElse) {
  const std::string Whole = Library();
  EXPECT_FALSE(IsCutOffTypeLibrary(Whole));
  EXPECT_FALSE(IsCutOffTypeLibrary(Whole + "more"));
  for (size_t Size = 4; Size < Whole.size(); ++Size) EXPECT_TRUE(IsCutOffTypeLibrary(Whole.substr(0, Size))) << Size;
  for (const char* Other : {"", "MSF", "MZ", "SLTG"}) EXPECT_FALSE(IsCutOffTypeLibrary(Other)) << Other;
  // Counts that lie are told from memory that is there.
  for (size_t At = 4; At < Whole.size(); ++At) IsCutOffTypeLibrary(std::string(Whole).replace(At, 1, 1, '\xFF'));
}

}  // namespace
