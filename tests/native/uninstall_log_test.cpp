#include "formats/uninstall_log.h"

#include "fuzz/targets.h"
#include "support/memory_file.h"
#include "support/raw_uninstall_log.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

void Add(TUninstallLog& Log, const std::string& Data) {
  Log.AddRecord(1, {reinterpret_cast<const uint8_t*>(Data.data()), Data.size()}, 2);
}

const std::string TwoRecords = Record(0x82, 0x10, "\5a.dll\xFF") + Record(0xFFFF, 0xFFFFFFFF, "");
const TRawLog Small{.NumRecs = 2, .Blocks = Block(TwoRecords)};

// Anew, and behind what is there, of which nothing changes that is not the library's.
TEST(UninstallLog, IsLoadedAndSavedByteForByte) {
  const std::string Long(128, 'n');  // fills its place without a NUL
  // A record whose header lies across a block's end, streams that fill their last block, and more blocks than are
  // written at once.
  for (const std::vector<size_t>& Sizes :
       {{}, {7, 0}, {4096 - 15, 100}, {4096 - 10}, {4097 - 10}, std::vector<size_t>{300000, 0, 1}})
    for (const std::string Id : {Id32, Id64}) {
      std::string Stream;
      for (const size_t Size : Sizes) {
        std::string Data;
        while (Data.size() < Size) Data += static_cast<char>(Data.size() * 31 + Data.size() / 256);
        Stream += Record(0x8182, 0xFFFFFFFB, Data);
      }
      TRawLog Raw{.Id = Id, .ApplicationName = Long, .Version = 12, .Flags = 0x12340001, .Blocks = BlocksOf(Stream)};
      Raw.NumRecs = static_cast<uint32_t>(Sizes.size());
      Raw.ApplicationId = Padded("{App}", 20) + "behind the NUL";
      Raw.Reserved = std::string(108, 'r');
      Raw.Crc = 0x11111111;
      TUninstallLog Log;
      EXPECT_TRUE(Load(Raw.Bytes(), Log) && Log.EndsWithLastRecord() && Stream == StreamOf(Log)) << Stream.size();
      EXPECT_EQ(std::tuple(Id == Id64, "{App}", Long, 1, 0),
                std::tie(Log.Is64Bit, Log.ApplicationId, Log.ApplicationName, Log.Flags, Log.Version));

      std::string Bytes = Raw.Bytes() + std::string(5000, '?');
      Log.Flags = 0x82;
      const bool UpdateName = Id == Id32;
      SaveTo(Bytes, Log, true, UpdateName);
      TRawLog Appended = Raw;
      Appended.Flags = 0x12340083;
      Appended.NumRecs *= 2;
      Appended.Blocks += BlocksOf(Stream);
      Appended.Crc = -1;
      if (UpdateName) Appended.ApplicationName.pop_back();
      EXPECT_TRUE(Appended.Bytes() == Bytes) << Stream.size();

      Log.Version = 44;
      SaveTo(Bytes, Log);
      EXPECT_TRUE(
          (TRawLog{Id, "{App}", std::string(127, 'n'), 44, Raw.NumRecs, 0x82, Small.Reserved, Raw.Blocks}).Bytes() ==
          Bytes)
          << Stream.size();
    }
}

TEST(UninstallLog, IsNotAppendedToWhenItsCountIsFullOrItsEndLies) {
  TUninstallLog One;
  One.ApplicationId = "{App}";
  Add(One, "");
  for (const auto& [NumRecs, End] : std::initializer_list<std::pair<uint32_t, int64_t>>{
           {0x7FFFFFFF, -1}, {0xFFFFFFFF, -1}, {2, 447}, {2, Small.Bytes().size() + 1}, {2, 0xFFFFFFFF}}) {
    const std::string Old = TRawLog{.NumRecs = NumRecs, .Blocks = Small.Blocks, .EndOffset = End}.Bytes();
    std::string Bytes = Old;
    EXPECT_THROW(SaveTo(Bytes, One, true), EUninstallLogError) << NumRecs << " " << End;
    EXPECT_EQ(Old, Bytes.substr(0, Old.size())) << NumRecs << " " << End;
  }
  std::string AlmostFull = TRawLog{.NumRecs = 0x7FFFFFFE}.Bytes();
  SaveTo(AlmostFull, One, true);
  EXPECT_EQ(Number(0x7FFFFFFFu), AlmostFull.substr(324, 4));
}

TEST(UninstallLog, IsReadOrRefused) {
  enum TOutcome { Refused, Whole, SomethingBehind };
  constexpr size_t First = 17, Both = 27;  // bytes of the records; of a log that is refused, those before stay
  const std::string Front = TwoRecords.substr(0, 3), Back = TwoRecords.substr(3);
  const struct {
    TOutcome Outcome;
    size_t Read;
    TRawLog Raw;
  } Rows[] = {
      {Whole, Both, {.Version = 45}},
      {Refused, 0, {.Version = 46}},
      {Whole, Both, {.Version = 0xFFFFFFFF}},
      {Whole, Both, {.Reserved = std::string(108, '?'), .Crc = 0x11111111}},  // the mark for a checksum
      {Refused, 0, {.Reserved = std::string(108, '?'), .Crc = 0x11111112}},
      {Whole, Both, {.Flags = 2, .Blocks = Block(TwoRecords).replace(8, 1, "?")}},  // unchecked blocks
      {Refused, 0, {.Flags = 0xFFFFFFFD, .Blocks = Block(TwoRecords).replace(8, 1, "?")}},
      {Refused, First, {.Blocks = Block(TwoRecords.substr(0, 20)) + Block(TwoRecords.substr(20)).replace(8, 1, "?")}},
      {Whole, Both, {.Blocks = Block("") + Block(Front) + Block("") + Block("") + Block(Back) + Block("")}},
      {SomethingBehind, Both, {.Blocks = Block(TwoRecords + "x")}},
      {SomethingBehind, Both, {.Blocks = Block(TwoRecords) + Block("x")}},
      {SomethingBehind, Both, {.Blocks = Block(TwoRecords) + "x"}},  // damaged
      {Whole, 0, {.NumRecs = 0xFFFFFFFF, .Blocks = Block("")}},
      {SomethingBehind, First, {.NumRecs = 1}},
      {Refused, Both, {.NumRecs = 3}},
      {Refused, 0, {.Id = Padded(Id32, 63) + "x"}},
      {Refused, 0, {.Blocks = Block(Padded(TwoRecords, 4097))}},
      {Refused, 0, {.EndOffset = 448 + 11}},
      {Refused, 0, {.EndOffset = 448 + 12 + 26}},
      {Refused, Both, {.NumRecs = 3, .EndOffset = 0xFFFFFFFF}},
      {Refused, 0, {.Blocks = Block(TwoRecords.substr(0, 6) + Number(0xFFFFFFFFu) + "a")}}};  // a record of 4 GiB
  for (const auto& Row : Rows) {
    TRawLog Raw = Row.Raw;
    TUninstallLog Read;
    if (Raw.Blocks.empty()) Raw.Blocks = Small.Blocks;
    if (Raw.NumRecs == 0) Raw.NumRecs = Small.NumRecs;
    EXPECT_EQ(Row.Outcome != Refused, Load(Raw.Bytes(), Read)) << &Row - Rows;
    EXPECT_EQ(TwoRecords.substr(0, Row.Read), StreamOf(Read)) << &Row - Rows;
    EXPECT_EQ(Row.Outcome == SomethingBehind, Row.Outcome != Refused && !Read.EndsWithLastRecord()) << &Row - Rows;
  }
}

TEST(UninstallLog, NoticesEveryCutAndEveryFlippedBit) {
  const std::string Good = Small.Bytes();
  for (size_t Bit = 0; Bit < Good.size() * 8; ++Bit) {
    TUninstallLog Cut, Flipped;
    std::string Bytes = Good;
    Bytes[Bit / 8] = static_cast<char>(Bytes[Bit / 8] ^ 1 << Bit % 8);
    EXPECT_FALSE(Load(Good.substr(0, Bit / 8), Cut) || Load(Bytes, Flipped)) << Bit;
  }
}

TEST(StringLists, HaveTheseBytes) {
  TUninstallLog Log;
  std::vector<std::string> Strings = {"", "ab", "\xFF"};
  std::string Bytes("\0\2ab\1\xFF", 6);
  const std::pair<std::string, size_t> Longer[] = {
      {"\xFC", 252}, {{"\xFD\xFD\0", 3}, 253}, {"\xFD\xFF\xFF", 65535}, {{"\xFE\0\0\1\0", 5}, 65536}};
  for (const auto& [Length, Size] : Longer) Bytes += Length + Strings.emplace_back(Size, 'x');
  Log.AddStringRecord(0x82, Strings, 5);
  EXPECT_TRUE(Record(0x82, 5, Bytes + "\xFF") == StreamOf(Log));
}

TEST(StringLists, AreReadToTheirEndOrTheDatasOrTheRooms) {
  const std::string Whole = std::string("\2ab\xFD\3\0cde\xFE\4\0\0\0fghi\0\xFF\1x", 22);
  const std::vector<std::string> All = {"ab", "cde", "fghi", "", ""};
  constexpr size_t Ends[] = {3, 9, 18, 19, 99};
  for (size_t Size = 0; Size <= Whole.size(); ++Size)
    for (size_t Room = 0; Room <= 5; ++Room) {
      TUninstallLog Log;
      Add(Log, Whole.substr(0, Size));
      std::vector<std::string> Read(Room, "old"), Expected(Room);
      size_t Count = 0;
      for (; Count < Room && Ends[Count] <= Size; ++Count) Expected[Count] = All[Count];
      EXPECT_EQ(Count, TUninstallLog::ExtractRecordStrings(*Log.First(), Read)) << Size;
      EXPECT_EQ(Expected, Read) << Size;
    }
}

}  // namespace
