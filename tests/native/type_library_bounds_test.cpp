#include "formats/type_library_bounds.h"

#include "base/numbers.h"

#include <gtest/gtest.h>

namespace {

// A library of one type with two members, its data at the very end; tables that it lacks are marked with -1.
TEST(TypeLibraryBounds, ShowEveryCutAndNothingElse) {
  // With the entry for a help module, and without.
  for (const uint32_t Flags : {0x100u, 0u}) {
    const uint32_t Tables = 0x54 + 4 + (Flags ? 4 : 0), Types = Tables + 15 * 16, Members = Types + 0x64;
    const size_t Size = Members + 4 + 10 + 2 * 12;
    std::string Whole(Size, '\0');
    Whole.replace(0, 4, "MSFT").replace(Tables, 15 * 16, 15 * 16, '\xFF');
    const uint32_t Numbers[][2] = {
        {0x14, Flags}, {0x20, 1}, {Tables, Types}, {Tables + 4, 0x64}, {Types + 4, Members}, {Types + 0x18, 0x00010001},
        {Members, 10}};
    for (const auto& [At, Number] : Numbers) PutNumber(reinterpret_cast<uint8_t*>(&Whole[At]), Number);
    EXPECT_FALSE(IsCutOffTypeLibrary(Whole) || IsCutOffTypeLibrary(Whole + "more"));
    for (size_t At = 4; At < Size; ++At) {
      EXPECT_TRUE(IsCutOffTypeLibrary(Whole.substr(0, At))) << At;
      // Counts that lie are told from memory that is there.
      IsCutOffTypeLibrary(std::string(Whole).replace(At, 1, 1, '\xFF'));
    }
  }
  for (const char* Other : {"", "MSF", "MZ", "SLTG"}) EXPECT_FALSE(IsCutOffTypeLibrary(Other)) << Other;
}

}  // namespace
