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
    const auto Put = [&](uint32_t At, uint32_t Number) {
      PutNumber(reinterpret_cast<uint8_t*>(&Whole.at(At)), Number);
    };
    const auto Breaks = [&](uint32_t At, uint32_t Number) {
      const uint32_t Before = NumberAt<uint32_t>(&Whole.at(At));
      Put(At, Number);
      EXPECT_TRUE(IsDamagedTypeLibrary(Whole)) << At << " " << Number;
      Put(At, Before);
    };
    Put(0x14, Flags), Put(0x20, 1), Put(0x40, 0), Put(Table(0), Types), Put(Table(0) + 4, 0x64),
        Put(Table(3), Reference), Put(Table(3) + 4, 16), Put(Table(7), Name), Put(Table(7) + 4, 12),
        Put(Table(8), String), Put(Table(8) + 4, 8), Put(Table(9), Described), Put(Table(9) + 4, 8),
        Put(Table(10), Array), Put(Table(10) + 4, 16), Put(Table(11), Value), Put(Table(11) + 4, 10),
        Put(Table(12), Custom), Put(Table(12) + 4, 24), Put(Types, 5), Put(Types + 4, Members),
        Put(Types + 0x18, 0x00010001), Put(Types + 0x48, None), Put(Types + 0x4C, 1), Put(Custom + 4, 0),
        Put(Custom + 8, 12), Put(Custom + 12 + 4, Packed), Put(Custom + 12 + 8, None), Put(Reference + 8, None),
        Put(Reference + 12, None), Put(Value, 0x00040008), Put(Described, 28), Put(Array, Packed), Put(Array + 4, 1),
        Put(Members, 0x18 + 12 + 0x14), Put(Function, 0x18 + 12), Put(Function + 4, Packed), Put(Function + 0x14, 1),
        Put(Variable, 0x14), Put(Variable + 4, Packed), Put(Variable + 0xC, 2), Put(Variable + 0x10, 0);
    EXPECT_FALSE(IsDamagedTypeLibrary(Whole) || IsDamagedTypeLibrary(Whole + "more"));
    // Behind the end of a table, round in a circle, or between two entries.
    Breaks(0x40, 24), Breaks(Table(0), Packed), Breaks(Types + 0x34, 1), Breaks(Types + 0x48, 13),
        Breaks(Types + 0x4C, 2), Breaks(Types + 0x54, 1), Breaks(Custom + 12 + 8, 0), Breaks(Custom + 4, 5),
        Breaks(Reference, 1), Breaks(Reference, 0x64), Breaks(Value, 0x00050008), Breaks(String, 7),
        Breaks(Described + 4, 9), Breaks(Array, 8), Breaks(Array + 4, 2), Breaks(Members, 0x18), Breaks(Function, 0x17),
        Breaks(Function + 4, 8), Breaks(Function + 0x14, 2), Breaks(Variable, 0x13), Breaks(Variable, 0x15),
        Breaks(Variable + 0x10, 5);
    for (uint32_t At = 4; At < Size; ++At) {
      EXPECT_TRUE(IsDamagedTypeLibrary(Whole.substr(0, At))) << At;
      // Counts that lie are told from memory that is there.
      IsDamagedTypeLibrary(std::string(Whole).replace(At, 1, 1, '\xFF'));
    }
  }
  for (const char* Other : {"", "MSF", "MZ", "SLTG"}) EXPECT_FALSE(IsDamagedTypeLibrary(Other)) << Other;
}

}  // namespace
