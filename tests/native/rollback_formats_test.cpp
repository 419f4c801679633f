#include "formats/backup_items.h"
#include "formats/log_record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

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

/// Reads an item behind its tag, and gives whether it fits; `Left` is what follows its fields.
template <class TItem>
bool Decode(const std::string& Bytes, TItem& Item, uint64_t* Left = nullptr) {
  TMemorySource Source(Bytes.substr(ItemTagSize));
  TItemReader Reader(Source);
  Item.Fields(Reader);
  if (Left) *Left = Source.Remaining();
  return Reader.Good();
}

std::string Lying(std::string Bytes, size_t At, uint32_t Number) {
  for (size_t Digit = 0; Digit < sizeof Number; ++Digit) Bytes[At + Digit] = static_cast<char>(Number >> 8 * Digit);
  return Bytes;
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

/// An item has these bytes, is read back from them, and is refused at every shorter length and with a lie in any of its
/// lengths and counts, which stand at `Lengths`.
template <class TItem>
void ExpectFormat(const TItem& Item, const std::string& Expected, std::initializer_list<size_t> Lengths) {
  ASSERT_EQ(Expected, EncodeItem(Item));
  TItem Read;
  uint64_t Left = 0;
  ASSERT_TRUE(Decode(Expected + "content", Read, &Left));
  EXPECT_EQ(7u, Left);
  EXPECT_EQ(Expected, EncodeItem(Read));
  const auto Refused = [](const std::string& Bytes) {
    TItem None;
    return !Decode(Bytes, None);
  };
  for (size_t Size = ItemTagSize; Size < Expected.size(); ++Size) EXPECT_TRUE(Refused(Expected.substr(0, Size)));
  // 0x10000001 GUIDs are 16 bytes when the product wraps around at 32 bits.
  const auto TooMany = static_cast<uint32_t>(Expected.size());
  for (const size_t At : Lengths)
    for (const uint32_t Lie : {TooMany, 0x10000000u, 0x10000001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
      EXPECT_TRUE(Refused(Lying(Expected, At, Lie))) << At << " " << Lie;
}

std::string Text(const TGuidBytes& Guid) { return std::string(Guid.begin(), Guid.end()); }
std::string Number(char Low) { return {Low, 0, 0, 0}; }

const TSingleFileItem File{"C:\\App\\a.dll", 0x21, 0x0102030405060708, 2, UINT64_MAX};
const TGuidBytes One = Counting(0), Two = Counting(16), Three = Counting(32);

TEST(BackupItems, HaveTheseBytesAndAreRefusedWhenShortOrLying) {
  ExpectFormat(File,
               std::string("\3\0\0\0\x0C\0\0\0C:\\App\\a.dll\x21\0\0\0\x08\7\6\5\4\3\2\1\2\0\0\0\0\0\0\0"
                           "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
                           48),
               {4});
  ExpectFormat(TFileSetItem{{One, Two}, {Three}, {}},
               Number(4) + Number(2) + Text(One) + Text(Two) + Number(1) + Text(Three) + Number(0), {4, 40, 60});
  ExpectFormat(TRegistryValueItem{0x80000001, "Key", "Name", 7, {'a', 0}},
               std::string("\2\0\0\0\1\0\0\x80\3\0\0\0Key\4\0\0\0Name\7\0\0\0\2\0\0\0a\0", 33), {8, 15, 27});
  ExpectFormat(TRegistryKeyItem{0x80000005, "Key", {One}, {Two}},
               std::string("\3\0\0\0\5\0\0\x80\3\0\0\0Key", 15) + Number(1) + Text(One) + Number(1) + Text(Two),
               {8, 15, 35});
}

TEST(BackupItems, TakeNoMemoryForALie) {
  for (const uint32_t Length : {0x10000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    TSingleFileItem Item;
    EXPECT_FALSE(Decode(Lying(Number(3) + Number(0), 4, Length) + std::string(0x20000, 'x'), Item)) << Length;
    EXPECT_GT(64u, Item.Path.capacity());
    EXPECT_EQ(0u, Item.LastWrite) << "what follows stays empty";
  }
  TFileSetItem Set;
  EXPECT_FALSE(Decode(Lying(Number(4) + Number(0), 4, 0x10000001) + Text(One), Set));
  EXPECT_EQ(0u, Set.Files.capacity());
}

TEST(BackupItems, ArePlausibleOnlyAsSaved) {
  TSingleFileItem Item = File;
  for (uint32_t Bit = 0; Bit < 32; ++Bit) {
    Item.Attributes = uint32_t{1} << Bit;
    constexpr uint32_t DirectoryBit = 4, FirstFlagBit = 24;
    EXPECT_EQ(Bit != DirectoryBit && Bit < FirstFlagBit, Item.Plausible()) << Bit;
  }
  const std::string CutShort("a\0b", 3);
  EXPECT_TRUE(File.Plausible());
  EXPECT_FALSE((TSingleFileItem{"", 0, 0, 0, 0}.Plausible()));
  EXPECT_FALSE((TSingleFileItem{CutShort, 0, 0, 0, 0}.Plausible()));
  for (const uint32_t Root : {0u, 0x7FFFFFFFu, 0x80000000u, 0x80000005u, 0x80000006u}) {
    const bool Good = Root == 0x80000000 || Root == 0x80000005;
    EXPECT_EQ(Good, (TRegistryValueItem{Root, "Key", "", 0, {}}.Plausible())) << Root;
    EXPECT_EQ(Good, (TRegistryKeyItem{Root, "", {}, {}}.Plausible())) << Root;
  }
  EXPECT_FALSE((TRegistryValueItem{0x80000001, CutShort, "", 0, {}}.Plausible()));
  EXPECT_FALSE((TRegistryValueItem{0x80000001, "Key", CutShort, 0, {}}.Plausible()));
  EXPECT_FALSE((TRegistryKeyItem{0x80000001, CutShort, {}, {}}.Plausible()));
}

}  // namespace
