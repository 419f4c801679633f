#include "formats/backup_items.h"

#include "support/memory_file.h"
#include "support/raw_uninstall_log.h"

#include <gtest/gtest.h>

namespace {

constexpr TGuidBytes Guid{0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7,
                          0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF};
const std::string GuidBytes(Guid.begin(), Guid.end());

TEST(GuidText, IsReadInAnyCaseAndNothingElseIs) {
  const std::string Good = "{F3F2F1F0-F5F4-F7F6-F8F9-FAFBFCFDFEFF}";
  EXPECT_EQ(Good, GuidText(Guid));
  EXPECT_EQ(Guid, ParseGuid("{f3f2F1f0-F5f4-f7F6-f8f9-fAfbfcfdfeff}"));
  EXPECT_FALSE(ParseGuid(Good + " "));
  for (size_t At = 0; At < Good.size(); ++At) {
    EXPECT_FALSE(ParseGuid(Good.substr(0, At)));
    for (const char Wrong : {'g', '/', ':', '@', '`', 'G', '\0'})
      EXPECT_FALSE(ParseGuid(std::string(Good).replace(At, 1, 1, Wrong))) << At << Wrong;
  }
}

/// What an item's fields are written as once they have been read; "" when they do not fit.
template <class TItem>
std::string ReadAndWritten(std::string_view Bytes, TItem) {
  TMemorySource Source(Bytes.substr(ItemTagSize));
  TItemReader Reader(Source);
  TItem Item;
  Item.Fields(Reader);
  return Reader.Good() ? EncodeItem(Item) : "";
}

/// An item has these bytes, is read back from them, and is refused at every shorter length and with a lie in any of its
/// lengths and counts, which stand at `Lengths`.
void ExpectFormat(const auto& Item, const std::string& Bytes, std::initializer_list<size_t> Lengths) {
  EXPECT_EQ(Bytes, EncodeItem(Item));
  EXPECT_EQ(Bytes, ReadAndWritten(Bytes + "content", Item));
  for (size_t Size = ItemTagSize; Size < Bytes.size(); ++Size)
    EXPECT_EQ("", ReadAndWritten(Bytes.substr(0, Size), Item)) << Size;
  // 0x10000001 GUIDs are 16 bytes when the product wraps around at 32 bits.
  for (const uint32_t Lie : {static_cast<uint32_t>(Bytes.size()), 0x10000001u, 0x7FFFFFFFu, 0xFFFFFFFFu})
    for (const size_t At : Lengths)
      EXPECT_EQ("", ReadAndWritten(std::string(Bytes).replace(At, 4, Number(Lie)), Item)) << At << " " << Lie;
}

TEST(BackupItems, HaveTheseBytesAndAreRefusedWhenShortOrLying) {
  ExpectFormat(TSingleFileItem{"a.dll", 0x21, 0x0102030405060708, 2, UINT64_MAX},
               std::string("\3\0\0\0\5\0\0\0a.dll\x21\0\0\0\x08\7\6\5\4\3\2\1\2\0\0\0\0\0\0\0", 33) +
                   "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
               {4});
  ExpectFormat(TFileSetItem{{Guid, {}}, {Guid}, {}},
               Number(4) + Number(2) + GuidBytes + std::string(16, '\0') + Number(1) + GuidBytes + Number(0),
               {4, 40, 60});
  ExpectFormat(TRegistryValueItem{0x80000001, "Key", "Name", 7, {'a', 0}},
               std::string("\2\0\0\0\1\0\0\x80\3\0\0\0Key\4\0\0\0Name\7\0\0\0\2\0\0\0a\0", 33), {8, 15, 27});
  ExpectFormat(TRegistryKeyItem{0x80000005, "Key", {Guid}, {Guid}},
               std::string("\3\0\0\0\5\0\0\x80\3\0\0\0Key", 15) + Number(1) + GuidBytes + Number(1) + GuidBytes,
               {8, 15, 35});
  // The content of a large file is no path.
  for (const uint32_t Size : {0xFFFFu, 0x10000u})
    EXPECT_EQ(Size == 0xFFFF,
              ReadAndWritten(Number(3) + Number(Size) + std::string(0x20000, 'x'), TSingleFileItem{}) != "");
}

TEST(BackupItems, ArePlausibleOnlyAsSaved) {
  const std::string CutShort("a\0b", 3);
  for (uint32_t Bit = 0; Bit < 32; ++Bit)
    EXPECT_EQ(Bit != 4 && (Bit < 23 || Bit == 29), (TSingleFileItem{"a", uint32_t{1} << Bit, 0, 0, 0}.Plausible()))
        << Bit;
  for (const std::string& Path : {std::string(), CutShort})
    EXPECT_FALSE((TSingleFileItem{Path, 0, 0, 0, 0}.Plausible()));
  for (const uint32_t Root : {0x7FFFFFFFu, 0x80000000u, 0x80000005u, 0x80000006u}) {
    const bool IsRoot = Root == 0x80000000 || Root == 0x80000005;
    EXPECT_EQ(IsRoot, (TRegistryKeyItem{Root, "", {}, {}}.Plausible())) << Root;
    EXPECT_EQ(IsRoot, (TRegistryValueItem{Root, "", "", 0, {}}.Plausible())) << Root;
  }
  EXPECT_FALSE((TRegistryKeyItem{0x80000001, CutShort, {}, {}}.Plausible()));
  EXPECT_FALSE((TRegistryValueItem{0x80000001, CutShort, "", 0, {}}.Plausible()));
  EXPECT_FALSE((TRegistryValueItem{0x80000001, "", CutShort, 0, {}}.Plausible()));
}

}  // namespace
