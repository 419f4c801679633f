#include "formats/uninstall_log.h"

#include "support/memory_file.h"
#include "support/raw_uninstall_log.h"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>

namespace {

using TFacts = std::vector<std::tuple<uint16_t, int32_t, std::string>>;

std::string DataOf(const TUninstallRecord& Rec) { return std::string(Rec.Data().begin(), Rec.Data().end()); }

TFacts FactsOf(const TUninstallLog& Log) {
  TFacts Facts;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next)
    Facts.emplace_back(Rec->RecordType, Rec->ExtraValue, DataOf(*Rec));
  return Facts;
}

/// The records that a log gives, or nothing for one that is refused; what was read of it goes into `Read`.
std::optional<TFacts> Load(const std::string& Bytes, TUninstallLog& Read) {
  try {
    LoadFrom(Bytes, Read);
  } catch (const EUninstallLogError&) {
    return std::nullopt;
  }
  return FactsOf(Read);
}

void Add(TUninstallLog& Log, const std::string& Data, uint16_t Type = 1, int32_t ExtraValue = 2) {
  Log.AddRecord(Type, {reinterpret_cast<const uint8_t*>(Data.data()), Data.size()}, ExtraValue);
}

const std::string Name = "\5a.dll\xFF";
const std::string TwoRecords = Record(0x82, 0x10, Name) + Record(0xFFFF, 0xFFFFFFFF, "");
const TFacts Two = {{0x82, 0x10, Name}, {0xFFFF, -1, ""}};
const TRawLog Small{.NumRecs = 2, .Blocks = Block(TwoRecords)};

TEST(UninstallLog, IsSavedByteForByteAndLoadedAgain) {
  const struct {
    bool Is64Bit;
    std::string Id, Name, SavedName;
    std::vector<size_t> Sizes;  // of records
  } Rows[] = {{false, "{App}", "Orvane Notes", "Orvane Notes", {7, 0}},
              {true, std::string(127, 'i'), std::string(128, 'n'), std::string(127, 'n'), {}},
              // A record whose header lies across a block's end, streams that fill their last block, and more blocks
              // than are written at once.
              {true, "", "", "", {4096 - 15, 100}},
              {true, "", "", "", {4096 - 10}},
              {true, "", "", "", {4097 - 10}},
              {true, "", "", "", {300000, 0, 1}}};
  for (const auto& Row : Rows) {
    TUninstallLog Log, Read;
    Log.Is64Bit = Row.Is64Bit;
    Log.ApplicationId = Row.Id;
    Log.ApplicationName = Row.Name;
    Log.Flags = 0x81;
    Log.Version = 44;
    std::string Stream, Bytes = "an older one";
    for (const size_t Size : Row.Sizes) {
      std::string Data;
      while (Data.size() < Size) Data += static_cast<char>(Data.size() * 31 + Data.size() / 256);
      Add(Log, Data, 0x8182, -5);
      Stream += Record(0x8182, 0xFFFFFFFB, Data);
    }
    SaveTo(Bytes, Log);
    const auto Count = static_cast<uint32_t>(Row.Sizes.size());
    const TRawLog Expected{Row.Is64Bit ? Id64 : Id32, Row.Id, Row.SavedName, 44, Count, 0x81, Small.Reserved,
                           BlocksOf(Stream)};
    EXPECT_TRUE(Expected.Bytes() == Bytes) << Count;
    EXPECT_TRUE(FactsOf(Log) == Load(Bytes, Read)) << Count;
    EXPECT_EQ(std::tie(Row.Is64Bit, Row.Id, Row.SavedName),
              std::tie(Read.Is64Bit, Read.ApplicationId, Read.ApplicationName));
    EXPECT_EQ(0x81, Read.Flags);
    EXPECT_EQ(0, Read.Version) << "the file's is not taken over";
    EXPECT_TRUE(Read.EndsWithLastRecord());
  }
}

TEST(UninstallLog, IsNotAppendedToWhenItsCountIsFullOrItsEndLies) {
  TUninstallLog One;
  One.ApplicationId = "{App}";
  Add(One, "");
  const auto Size = static_cast<int64_t>(Small.Bytes().size());
  for (const auto& [NumRecs, End] : std::initializer_list<std::pair<uint32_t, int64_t>>{
           {0x7FFFFFFE, Size}, {0x7FFFFFFF, Size}, {0xFFFFFFFF, Size}, {2, 447}, {2, Size + 1}, {2, 0xFFFFFFFF}}) {
    SCOPED_TRACE(std::to_string(NumRecs) + " " + std::to_string(End));
    const std::string Old = TRawLog{.NumRecs = NumRecs, .Blocks = Small.Blocks, .EndOffset = End}.Bytes();
    std::string Bytes = Old;
    if (NumRecs == 0x7FFFFFFE) {
      SaveTo(Bytes, One, true);
      EXPECT_EQ(Number(0x7FFFFFFFu), Bytes.substr(324, 4));
    } else {
      EXPECT_THROW(SaveTo(Bytes, One, true), EUninstallLogError);
      EXPECT_EQ(Old, Bytes.substr(0, Old.size()));
    }
  }
}

TEST(UninstallLog, IsReadOrRefused) {
  enum TOutcome { Refused, Whole, SomethingBehind };
  const std::string Front = TwoRecords.substr(0, 3), Back = TwoRecords.substr(3);
  const struct {
    TOutcome Outcome;
    size_t Records;  // what has been read stays, also of a log that is refused
    TRawLog Raw;
  } Rows[] = {
      {Whole, 2, {.Version = 45}},
      {Refused, 0, {.Version = 46}},
      {Whole, 2, {.Version = 0xFFFFFFFF}},
      {Whole, 2, {.Reserved = std::string(108, '?'), .Crc = 0x11111111}},  // the mark for a checksum
      {Refused, 0, {.Reserved = std::string(108, '?'), .Crc = 0x11111112}},
      {Whole, 2, {.Flags = 2, .Blocks = Block(TwoRecords).replace(8, 1, "?")}},  // unchecked blocks
      {Refused, 0, {.Flags = 0xFFFFFFFD, .Blocks = Block(TwoRecords).replace(8, 1, "?")}},
      {Refused, 1, {.Blocks = Block(TwoRecords.substr(0, 20)) + Block(TwoRecords.substr(20)).replace(8, 1, "?")}},
      {Whole, 2, {.Blocks = Block("") + Block(Front) + Block("") + Block("") + Block(Back) + Block("")}},
      {SomethingBehind, 2, {.Blocks = Block(TwoRecords + "x")}},
      {SomethingBehind, 2, {.Blocks = Block(TwoRecords) + Block("x")}},
      {SomethingBehind, 2, {.Blocks = Block(TwoRecords) + "x"}},  // damaged
      {Whole, 0, {.NumRecs = 0xFFFFFFFF, .Blocks = Block("")}},
      {SomethingBehind, 1, {.NumRecs = 1}},
      {SomethingBehind, 0, {.NumRecs = 0xFFFFFFFF}},
      {Refused, 2, {.NumRecs = 3}},
      {Refused, 0, {.Id = "Inno Setup Uninstall Log (c)"}},
      {Refused, 0, {.Id = Padded(Id32, 63) + "x"}},
      {Refused, 0, {.Blocks = Block(Padded(TwoRecords, 4097))}},
      {Whole, 2, {.Blocks = Block(TwoRecords) + Block("")}},
      {Refused, 0, {.EndOffset = 448 + 11}},
      {Refused, 0, {.EndOffset = 448 + 12 + 26}},
      {Refused, 2, {.NumRecs = 3, .EndOffset = 0xFFFFFFFF}},
      {Refused, 0, {.Blocks = Block(TwoRecords.substr(0, 6) + Number(0xFFFFFFFFu) + "a")}}};  // a record of 4 GiB
  for (const auto& Row : Rows) {
    SCOPED_TRACE(&Row - Rows);
    TRawLog Raw = Row.Raw;
    TUninstallLog Read;
    if (Raw.Blocks.empty()) Raw.Blocks = Small.Blocks;
    if (Raw.NumRecs == 0) Raw.NumRecs = Small.NumRecs;
    EXPECT_EQ(Row.Outcome != Refused, Load(Raw.Bytes(), Read).has_value());
    EXPECT_EQ(TFacts(Two.begin(), Two.begin() + static_cast<ptrdiff_t>(Row.Records)), FactsOf(Read));
    EXPECT_EQ(Row.Outcome == SomethingBehind, Row.Outcome != Refused && !Read.EndsWithLastRecord());
  }
  // A place without a NUL is a text of its whole size.
  TUninstallLog Read;
  EXPECT_TRUE(Load(TRawLog{.ApplicationId = std::string(128, 'i')}.Bytes(), Read));
  EXPECT_EQ(std::string(128, 'i'), Read.ApplicationId);
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
  const auto Long = [](size_t Size) { return std::string(Size, 'x'); };
  const std::pair<std::vector<std::string>, std::string> Rows[] = {
      {{}, "\xFF"},
      {{"", "ab", "\xFF"}, std::string("\0\2ab\1\xFF\xFF", 7)},
      {{Long(252), Long(253)}, "\xFC" + Long(252) + std::string("\xFD\xFD\0", 3) + Long(253) + "\xFF"},
      {{Long(65535), Long(65536)},
       "\xFD\xFF\xFF" + Long(65535) + std::string("\xFE\0\0\1\0", 5) + Long(65536) + "\xFF"}};
  for (const auto& [Strings, Bytes] : Rows) {
    TUninstallLog Log;
    Log.AddStringRecord(0x82, Strings, 5);
    EXPECT_EQ(45, Log.Version);
    EXPECT_TRUE(Bytes == DataOf(*Log.First())) << Bytes.size();
  }
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
