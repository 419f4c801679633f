#include "formats/type_library_bounds.h"

#include "base/numbers.h"

#include <gtest/gtest.h>

namespace {

constexpr uint32_t None = 0xFFFFFFFF, Packed = 0x80000000;

// A library of one coclass with a function and a variable, a list of custom data, a text and an array, its members at
// the very end; tables that it lacks are marked with -1.
TEST(TypeLibraryBounds, ShowEveryCutAndWhatLeadsNowhere) {
  // With the entry for a help module, and without.
  for (const uint32_t Flags : {0x100u, 0u}) {
    const uint32_t Tables = 0x54 + 4 + (Flags ? 4 : 0), Types = Tables + 15 * 16, Custom = Types + 0x64;
    const uint32_t Reference = Custom + 2 * 12, Name = Reference + 16, Value = Name + 12, String = Value + 10;
    const uint32_t Described = String + 8, Array = Described + 8, Members = Array + 16;
    const uint32_t Function = Members + 4, Variable = Function + 0x18 + 12, Size = Variable + 0x14 + 2 * 12;
    std::string Whole(Size, '\0');
    Whole.replace(0, 4, "MSFT").replace(Tables, 15 * 16, 15 * 16, '\xFF');
    const auto Table = [&](uint32_t Number) { return Tables + Number * 16; };
    const auto With = [&](uint32_t At, uint32_t Number) {
      std::string Changed = Whole;
      PutNumber(reinterpret_cast<uint8_t*>(&Changed.at(At)), Number);
      return Changed;
    };
    const uint32_t Numbers[][2] = {{0x14, Flags},
                                   {0x20, 1},
                                   {0x40, 0},
                                   {Table(0), Types},
                                   {Table(0) + 4, 0x64},
                                   {Table(3), Reference},
                                   {Table(3) + 4, 16},
                                   {Table(7), Name},
                                   {Table(7) + 4, 12},
                                   {Table(8), String},
                                   {Table(8) + 4, 8},
                                   {Table(9), Described},
                                   {Table(9) + 4, 8},
                                   {Table(10), Array},
                                   {Table(10) + 4, 16},
                                   {Table(11), Value},
                                   {Table(11) + 4, 10},
                                   {Table(12), Custom},
                                   {Table(12) + 4, 24},
                                   {Types, 5},
                                   {Types + 4, Members},
                                   {Types + 0x18, 0x00010001},
                                   {Types + 0x48, None},
                                   {Types + 0x4C, 1},
                                   {Custom + 4, 0},
                                   {Custom + 8, 12},
                                   {Custom + 12 + 4, Packed},
                                   {Custom + 12 + 8, None},
                                   {Reference + 8, None},
                                   {Reference + 12, None},
                                   {Value, 0x00040008},
                                   {Described, 28},
                                   {Array, Packed},
                                   {Array + 4, 1},
                                   {Members, 0x18 + 12 + 0x14},
                                   {Function, 0x18 + 12},
                                   {Function + 4, Packed},
                                   {Function + 0x14, 1},
                                   {Variable, 0x14},
                                   {Variable + 4, Packed},
                                   {Variable + 0xC, 2},
                                   {Variable + 0x10, 0}};
    for (const auto& [At, Number] : Numbers) Whole = With(At, Number);
    EXPECT_FALSE(IsDamagedTypeLibrary(Whole) || IsDamagedTypeLibrary(Whole + "more"));
    // Behind the end of a table, round in a circle, or between two entries.
    const uint32_t Wrong[][2] = {{0x40, 24},         {Table(0), Packed},  {Types + 0x34, 1},    {Types + 0x48, 13},
                                 {Types + 0x4C, 2},  {Types + 0x54, 1},   {Custom + 12 + 8, 0}, {Custom + 4, 5},
                                 {Reference, 1},     {Reference, 0x64},   {Value, 0x00050008},  {String, 7},
                                 {Described + 4, 9}, {Array, 8},          {Array + 4, 2},       {Members, 0x18},
                                 {Function, 0x17},   {Function + 4, 8},   {Function + 0x14, 2}, {Variable, 0x13},
                                 {Variable, 0x15},   {Variable + 0x10, 5}};
    for (const auto& [At, Number] : Wrong) EXPECT_TRUE(IsDamagedTypeLibrary(With(At, Number))) << At << " " << Number;
    for (uint32_t At = 4; At < Size; ++At) {
      EXPECT_TRUE(IsDamagedTypeLibrary(Whole.substr(0, At))) << At;
      // Counts that lie are told from memory that is there.
      IsDamagedTypeLibrary(std::string(Whole).replace(At, 1, 1, '\xFF'));
    }
  }
  for (const char* Other : {"", "MSF", "MZ", "SLTG"}) EXPECT_FALSE(IsDamagedTypeLibrary(Other)) << Other;
}

}  // namespace
