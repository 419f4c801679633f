#include "rollback/backup_items.h"
#include "rollback/log_record.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TGuidBytes Counting(uint8_t First) {
  TGuidBytes Guid;
  for (uint8_t& Byte : Guid) Byte = First++;
  return Guid;
}

/// An item in memory. Reading beyond its end fails the test.
class TMemorySource final : public TByteSource {
 public:
  explicit TMemorySource(std::string Bytes) : Bytes(std::move(Bytes)) {}
  uint64_t Remaining() const override { return Bytes.size() - At; }
  void Read(void* Buffer, uint32_t Size) override {
    ASSERT_LE(Size, Remaining());
    std::memcpy(Buffer, Bytes.data() + At, Size);
    At += Size;
  }

 private:
  std::string Bytes;
  size_t At = 0;
};

/// Reads an item behind its tag.
template <class TItem>
bool Decode(const std::string& Bytes, TItem& Item, uint64_t& Left) {
  TMemorySource Source(Bytes.substr(ItemTagSize));
  TItemReader Reader(Source);
  Item.Fields(Reader);
  Left = Source.Remaining();
  return Reader.Good();
}

void Lie(std::string& Bytes, size_t At, uint32_t Number) {
  for (size_t Digit = 0; Digit < sizeof Number; ++Digit) Bytes[At + Digit] = static_cast<char>(Number >> 8 * Digit);
}

TEST(LogRecord, Has36BytesWithoutPadding) {
  const TLogRecord Record{Counting(1), -2, Counting(0xF0)};
  const TLogRecordBytes Bytes = EncodeRecord(Record);
  EXPECT_EQ((TLogRecordBytes{1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,
                             13,   14,   15,   16,   0xFE, 0xFF, 0xFF, 0xFF, 0xF0, 0xF1, 0xF2, 0xF3,
                             0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF}),
            Bytes);
  EXPECT_EQ(Record, DecodeRecord(Bytes));
  for (const int32_t Code : {INT32_MIN, INT32_MAX, 0, 0x01020304})
    EXPECT_EQ(Code, DecodeRecord(EncodeRecord({{}, Code, {}})).Code);
}

TEST(GuidText, IsTheRegistryFormInUpperCase) {
  EXPECT_EQ("{03020100-0504-0706-0809-0A0B0C0D0E0F}", GuidText(Counting(0)));
  EXPECT_EQ("{F3F2F1F0-F5F4-F7F6-F8F9-FAFBFCFDFEFF}", GuidText(Counting(0xF0)));
  EXPECT_EQ(Counting(0xF0), ParseGuid("{f3f2F1f0-F5f4-f7F6-f8f9-fAfbfcfdfeff}"));
}

TEST(GuidText, NothingElseIsRead) {
  const std::string Good = GuidText(Counting(0));
  for (size_t At = 0; At < Good.size(); ++At) {
    EXPECT_FALSE(ParseGuid(Good.substr(0, At)));
    for (const char Wrong : {'g', '/', ':', '@', '`', ' ', '\0', '}'}) {
      std::string Text = Good;
      Text[At] = Wrong;
      EXPECT_EQ(Text == Good, ParseGuid(Text).has_value()) << Text;
    }
  }
  EXPECT_FALSE(ParseGuid(Good + " "));
}

const TSingleFileItem File{"C:\\App\\a.dll", 0x21, 0x0102030405060708, 2, UINT64_MAX};

TEST(SingleFileItem, HasTheseBytesAndIsReadToItsContent) {
  const std::string Bytes = EncodeItem(File);
  EXPECT_EQ(std::string("\3\0\0\0\x0C\0\0\0C:\\App\\a.dll\x21\0\0\0\x08\7\6\5\4\3\2\1\2\0\0\0\0\0\0\0"
                        "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
                        48),
            Bytes);
  TSingleFileItem Read;
  uint64_t Left = 0;
  ASSERT_TRUE(Decode(Bytes + "content", Read, Left));
  EXPECT_EQ(7u, Left);
  EXPECT_EQ(Bytes, EncodeItem(Read));
  EXPECT_TRUE(Read.Plausible());
}

TEST(SingleFileItem, IsRefusedWhenShortOrLying) {
  const std::string Whole = EncodeItem(File);
  uint64_t Left = 0;
  for (size_t Size = ItemTagSize; Size < Whole.size(); ++Size) {
    TSingleFileItem Item;
    EXPECT_FALSE(Decode(Whole.substr(0, Size), Item, Left)) << Size;
    EXPECT_EQ(0u, Item.LastWrite);
  }
  for (const uint32_t Length : {0x10000u, 0x7FFFFFFFu, 0xFFFFFFFFu, static_cast<uint32_t>(Whole.size())}) {
    std::string Bytes = Whole + std::string(Length == 0x10000 ? 0x20000 : 0, 'x');
    Lie(Bytes, ItemTagSize, Length);
    TSingleFileItem Item;
    EXPECT_FALSE(Decode(Bytes, Item, Left)) << Length;
    EXPECT_GT(64u, Item.Path.capacity()) << "memory was taken for the lie";
  }
}

TEST(FileSetItem, IsWrittenAndReadBackAndRefusedWhenShortOrLying) {
  const TFileSetItem Set{{Counting(0), Counting(16)}, {Counting(32)}, {}};
  const std::string Whole = EncodeItem(Set);
  std::string Expected("\4\0\0\0\2\0\0\0", 8);
  for (int Byte = 0; Byte < 32; ++Byte) Expected += static_cast<char>(Byte);
  Expected += std::string("\1\0\0\0", 4);
  for (int Byte = 32; Byte < 48; ++Byte) Expected += static_cast<char>(Byte);
  Expected += std::string(4, '\0');
  EXPECT_EQ(Expected, Whole);
  TFileSetItem Read;
  uint64_t Left = 9;
  ASSERT_TRUE(Decode(Whole, Read, Left));
  EXPECT_EQ(0u, Left);
  EXPECT_EQ(Whole, EncodeItem(Read));
  for (size_t Size = ItemTagSize; Size < Whole.size(); ++Size) {
    TFileSetItem Item;
    EXPECT_FALSE(Decode(Whole.substr(0, Size), Item, Left)) << Size;
  }
  // 0x10000001 GUIDs are 16 bytes when the product wraps around at 32 bits.
  for (const uint32_t Count : {5u, 0x10000000u, 0x10000001u, 0x80000000u, 0xFFFFFFFFu}) {
    std::string Bytes = Whole;
    Lie(Bytes, ItemTagSize, Count);
    TFileSetItem Item;
    EXPECT_FALSE(Decode(Bytes, Item, Left)) << Count;
    EXPECT_EQ(0u, Item.Files.capacity()) << "memory was taken for the lie";
    EXPECT_TRUE(Item.Folders.empty() && Item.Subsets.empty());
  }
}

TEST(SingleFileItem, IsPlausibleOnlyWithAPathAndAttributes) {
  TSingleFileItem Item = File;
  for (uint32_t Bit = 0; Bit < 32; ++Bit) {
    Item.Attributes = uint32_t{1} << Bit;
    constexpr uint32_t DirectoryBit = 4, FirstFlagBit = 24;
    EXPECT_EQ(Bit != DirectoryBit && Bit < FirstFlagBit, Item.Plausible()) << Bit;
  }
  Item.Attributes = 0;
  Item.Path = "";
  EXPECT_FALSE(Item.Plausible());
  Item.Path = std::string("C:\\a\0b", 6);
  EXPECT_FALSE(Item.Plausible());
}

}  // namespace
