#include "rollback/backup_items.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

class TMemorySource final : public TByteSource {
 public:
  explicit TMemorySource(const std::string& Bytes) : Bytes(Bytes) {}
  uint64_t Remaining() const override { return Bytes.size() - At; }
  void Read(void* Buffer, uint32_t Size) override {
    ASSERT_LE(Size, Remaining());
    std::memcpy(Buffer, Bytes.data() + At, Size);
    At += Size;
  }

 private:
  const std::string Bytes;
  size_t At = 0;
};

/// Reads the fields behind the tag. Gives whether they fit and nothing is left over.
template <class TItem>
bool Decode(const std::string& Bytes, TItem& Item) {
  TMemorySource Source(Bytes.substr(4));
  TItemReader Reader(Source);
  Item.Fields(Reader);
  return Reader.Good() && Source.Remaining() == 0;
}

std::string Number(uint32_t Value) {
  std::string Bytes;
  for (int At = 0; At < 4; ++At) Bytes += static_cast<char>(Value >> 8 * At & 0xFF);
  return Bytes;
}

const TRegistryValueItem Value{0x80000002, "Software\\X", "n", 0x12345678, {0, 0xFF, 7}};
const std::string ValueBytes = Number(2) + Number(0x80000002) + Number(10) + "Software\\X" + Number(1) + "n" +
                               Number(0x12345678) + Number(3) + std::string("\0\xFF\x07", 3);

TGuidBytes GuidOf(uint8_t First) { return {First, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}; }
std::string BytesOf(const TGuidBytes& Guid) { return std::string(Guid.begin(), Guid.end()); }
const TRegistryKeyItem Key{0x80000001, "K", {GuidOf(1), GuidOf(2)}, {GuidOf(3)}};
const std::string KeyBytes = Number(3) + Number(0x80000001) + Number(1) + "K" + Number(2) + BytesOf(GuidOf(1)) +
                             BytesOf(GuidOf(2)) + Number(1) + BytesOf(GuidOf(3));

TEST(RegistryItems, AreWrittenFieldByFieldAndReadBack) {
  EXPECT_EQ(ValueBytes, EncodeItem(Value));
  EXPECT_EQ(KeyBytes, EncodeItem(Key));
  TRegistryValueItem ReadValue;
  ASSERT_TRUE(Decode(ValueBytes, ReadValue));
  EXPECT_EQ(ValueBytes, EncodeItem(ReadValue));
  TRegistryKeyItem ReadKey;
  ASSERT_TRUE(Decode(KeyBytes, ReadKey));
  EXPECT_EQ(KeyBytes, EncodeItem(ReadKey));
}

template <class TItem>
void ExpectOnlyWholeItemsFit(const std::string& Bytes, const std::vector<size_t>& Counts) {
  for (size_t Length = 4; Length < Bytes.size(); ++Length) {
    TItem Item;
    EXPECT_FALSE(Decode(Bytes.substr(0, Length), Item)) << Length;
  }
  for (const size_t At : Counts)
    for (const uint32_t Lie : {0u, 4u, 0x0FFFFFFFu, 0x10000001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
      TItem Item;
      EXPECT_FALSE(Decode(std::string(Bytes).replace(At, 4, Number(Lie)), Item)) << Lie << " at " << At;
    }
}

TEST(RegistryItems, AShortOrLyingItemDoesNotFit) {
  ExpectOnlyWholeItemsFit<TRegistryValueItem>(ValueBytes, {8, 22, 31});
  ExpectOnlyWholeItemsFit<TRegistryKeyItem>(KeyBytes, {8, 13, 49});
}

TEST(RegistryItems, WhatFollowsALieStaysEmpty) {
  TRegistryValueItem Item;
  EXPECT_FALSE(Decode(std::string(ValueBytes).replace(8, 4, Number(0xFFFFFFFF)), Item));
  EXPECT_EQ(0x80000002u, Item.RootKey);
  EXPECT_TRUE(Item.KeyPath.empty() && Item.Name.empty() && Item.Data.empty() && Item.Type == 0);
}

TEST(RegistryItems, OnlyPlacesInTheRegistryArePlausible) {
  for (const auto& [Root, Good] : std::initializer_list<std::pair<uint32_t, bool>>{
           {0, false}, {0x7FFFFFFF, false}, {0x80000000, true}, {0x80000005, true}, {0x80000006, false}}) {
    EXPECT_EQ(Good, (TRegistryValueItem{Root, "K", "n", 1, {}}.Plausible())) << Root;
    EXPECT_EQ(Good, (TRegistryKeyItem{Root, "K", {}, {}}.Plausible())) << Root;
  }
  const std::string Cut("K\0L", 3);
  EXPECT_FALSE((TRegistryValueItem{0x80000001, Cut, "n", 1, {}}.Plausible()));
  EXPECT_FALSE((TRegistryValueItem{0x80000001, "K", Cut, 1, {}}.Plausible()));
  EXPECT_FALSE((TRegistryKeyItem{0x80000001, Cut, {}, {}}.Plausible()));
  EXPECT_TRUE((TRegistryKeyItem{0x80000001, "", {}, {}}.Plausible())) << "the root itself";
}

}  // namespace
