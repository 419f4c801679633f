#include "formats/uninstall_log.h"

#include "base/numbers.h"
#include "formats/crc32.h"
#include "support/memory_file.h"
#include "support/raw_uninstall_log.h"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>

namespace {

const std::string Name = "\5a.dll\xFF";
const std::string TwoRecords = Record(0x82, 0x10, Name) + Record(0xFFFF, 0xFFFFFFFF, "");
const TRawLog Small{.NumRecs = 2, .Blocks = Block(TwoRecords)};

std::string DataOf(const TUninstallRecord& Rec) { return std::string(Rec.Data().begin(), Rec.Data().end()); }

using TFacts = std::vector<std::tuple<uint16_t, int32_t, std::string>>;
TFacts FactsOf(const TUninstallLog& Log) {
  TFacts Facts;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next)
    Facts.emplace_back(Rec->RecordType, Rec->ExtraValue, DataOf(*Rec));
  return Facts;
}
const TFacts SmallFacts = {{0x82, 0x10, Name}, {0xFFFF, -1, ""}};

/// The records that a log gives, or nothing for one that is refused; what was read of it goes into `Read`.
std::optional<TFacts> Load(const std::string& Bytes, TUninstallLog& Read) {
  try {
    LoadFrom(Bytes, Read);
  } catch (const EUninstallLogError&) {
    return std::nullopt;
  }
  return FactsOf(Read);
}
std::optional<TFacts> Load(const std::string& Bytes) {
  TUninstallLog Read;
  return Load(Bytes, Read);
}

void AddData(TUninstallLog& Log, uint16_t Type, const std::string& Data, int32_t ExtraValue) {
  Log.AddRecord(Type, {reinterpret_cast<const uint8_t*>(Data.data()), Data.size()}, ExtraValue);
}

TEST(Crc32, IsTheStandardOneAtEveryLengthAndAddress) {
  EXPECT_EQ(0xCBF43926u, Crc32("123456789", 9));
  EXPECT_EQ(0u, Crc32(nullptr, 0));
  std::string Bytes;
  for (int At = 0; At < 200; ++At) Bytes += static_cast<char>(At * 97 + At / 7);
  for (size_t First = 0; First < 17; ++First)
    for (size_t Size = 0; First + Size <= Bytes.size(); Size += 1 + Size / 40)
      ASSERT_EQ(SlowCrc(Bytes.substr(First, Size)), Crc32(Bytes.data() + First, Size)) << First << " " << Size;
}

// ---- Writing

TEST(UninstallLog, IsSavedAndLoadedByteForByte) {
  for (const bool Is64Bit : {false, true}) {
    TUninstallLog Log;
    Log.Is64Bit = Is64Bit;
    Log.ApplicationId = "{App}";
    Log.ApplicationName = "Orvane Notes";
    Log.Flags = 0x81;
    Log.Version = 44;
    AddData(Log, 0x82, Name, 0x10);
    AddData(Log, 0xFFFF, "", -1);
    std::string Bytes;
    SaveTo(Bytes, Log);
    TRawLog Expected = Small;
    Expected.Id = Is64Bit ? Id64 : Id32;
    Expected.Flags = 0x81;
    EXPECT_EQ(Expected.Bytes(), Bytes);

    TUninstallLog Read;
    EXPECT_EQ(SmallFacts, Load(Bytes, Read));
    EXPECT_EQ(2, Read.Count());
    EXPECT_EQ(Is64Bit, Read.Is64Bit);
    EXPECT_EQ("{App} Orvane Notes", Read.ApplicationId + " " + Read.ApplicationName);
    EXPECT_EQ(0x81, Read.Flags);
    EXPECT_EQ(0, Read.Version) << "the file's is not taken over";
    EXPECT_TRUE(Read.EndsWithLastRecord());
  }
}

TEST(UninstallLog, TextsAreCutTo127Characters) {
  TUninstallLog Log, Read;
  Log.ApplicationId = std::string(127, 'i');
  Log.ApplicationName = std::string(300, 'n');
  std::string Bytes;
  SaveTo(Bytes, Log);
  EXPECT_EQ(
      (TRawLog{.ApplicationId = Log.ApplicationId, .ApplicationName = std::string(127, 'n'), .Version = 0}.Bytes()),
      Bytes);
  // A place without a NUL is a text of its whole size.
  ASSERT_TRUE(Load(TRawLog{.ApplicationId = std::string(128, 'i')}.Bytes(), Read));
  EXPECT_EQ(std::string(128, 'i'), Read.ApplicationId);
}

TEST(UninstallLog, TheStreamIsCutIntoBlocksOf4096) {
  // A record whose header lies across a block's end, streams that fill their last block, and more blocks than are
  // written at once.
  const std::vector<std::vector<size_t>> Cases = {
      {4096 - 10}, {8192 - 10}, {4097 - 10}, {4096 - 15, 100}, {300000, 0, 1}};
  for (const std::vector<size_t>& Sizes : Cases) {
    TUninstallLog Log;
    std::string Stream;
    for (const size_t Size : Sizes) {
      std::string Data;
      while (Data.size() < Size) Data += static_cast<char>(Data.size() * 31 + Data.size() / 256);
      AddData(Log, 7, Data, 8);
      Stream += Record(7, 8, Data);
    }
    std::string Bytes;
    SaveTo(Bytes, Log);
    EXPECT_TRUE(BlocksOf(Stream) == Bytes.substr(448)) << Stream.size();
    EXPECT_TRUE(FactsOf(Log) == Load(Bytes)) << Stream.size();
  }
}

TEST(UninstallLog, AppendingKeepsTheOldBlocksAndWhatIsNotItsOwn) {
  TRawLog Old = Small;
  Old.ApplicationId = Padded("{App}", 20) + "behind the NUL";
  Old.Flags = 0x12340001;
  Old.Reserved = "reserved" + std::string(100, 'r');
  for (const bool UpdateName : {false, true}) {
    TUninstallLog New;
    New.ApplicationId = "{App}";
    New.ApplicationName = "New Name";
    New.Flags = 0x82;
    New.AddStringRecord(0x82, {"b.dll"}, 0);
    AddData(New, 1, "x", 2);
    std::string Bytes = Old.Bytes() + "not part of the log";
    SaveTo(Bytes, New, true, UpdateName);
    TRawLog Expected = Old;
    Expected.Version = 45;
    Expected.NumRecs = 4;
    Expected.Flags = 0x12340083;
    if (UpdateName) Expected.ApplicationName = Padded("New Name", 9) + "tes";
    Expected.Blocks += Block(FileRecord("b.dll", 0) + Record(1, 2, "x"));
    EXPECT_EQ(Expected.Bytes(), Bytes);
  }
}

TEST(UninstallLog, AppendingNothingCutsTheFileAndKeepsTheNumbers) {
  TUninstallLog Nothing;
  Nothing.ApplicationId = "{App}";
  TRawLog Old = Small;
  Old.Version = 12;
  Old.Crc = 0x11111111;
  std::string Bytes = Old.Bytes() + std::string(5000, '?');
  SaveTo(Bytes, Nothing, true);
  Old.Crc = -1;
  EXPECT_EQ(Old.Bytes(), Bytes);
}

TEST(UninstallLog, IsNotAppendedToWhenItsCountIsFullOrItsEndLies) {
  TUninstallLog One;
  One.ApplicationId = "{App}";
  AddData(One, 1, "", 1);
  TRawLog Old = Small;
  Old.NumRecs = 0x7FFFFFFE;
  std::string Bytes = Old.Bytes();
  SaveTo(Bytes, One, true);
  EXPECT_EQ(Number(0x7FFFFFFFu), Bytes.substr(324, 4));
  const auto Size = static_cast<int64_t>(Small.Bytes().size());
  for (const auto& [NumRecs, End] : std::initializer_list<std::pair<uint32_t, int64_t>>{
           {0x7FFFFFFF, -1}, {0xFFFFFFFF, -1}, {2, 0}, {2, 447}, {2, Size + 1}, {2, 0xFFFFFFFF}}) {
    Old.NumRecs = NumRecs;
    Old.EndOffset = End;
    Bytes = Old.Bytes();
    EXPECT_THROW(SaveTo(Bytes, One, true), EUninstallLogError) << NumRecs << " " << End;
    if (End < 0) Bytes.resize(Old.Bytes().size());  // new blocks that no header tells of
    EXPECT_EQ(Old.Bytes(), Bytes);
  }
}

TEST(UninstallLog, AFailedSaveLeavesTheOldLog) {
  TUninstallLog New;
  New.ApplicationId = "{App}";
  for (const size_t Size : {10u, 200000u}) AddData(New, 1, std::string(Size, 'n'), 1);
  std::string Bytes;
  int Operations = 0;
  for (bool Failed = true; Failed; ++Operations) {
    Bytes = Small.Bytes() + "behind the end";
    try {
      New.Save(OpenerOf(Bytes, Operations), "", true, false);
      Failed = false;
    } catch (const EFileError& Error) {
      EXPECT_EQ(TMemoryFile::BrokenDisk, Error.Code);
      EXPECT_EQ(SmallFacts, Load(Bytes)) << Operations;
      EXPECT_EQ(Small.Bytes().substr(0, 448), Bytes.substr(0, 448)) << Operations;
    }
  }
  EXPECT_LE(7, Operations) << "header read, cut, blocks, flushed, header written";
  EXPECT_EQ(4u, Load(Bytes)->size());
}

// ---- Reading

enum TOutcome { Refused, Whole, SomethingBehind };
struct TReading {
  const char* Name;
  TOutcome Outcome;
  int Records;  ///< what has been read stays, also of a log that is refused
  void (*Change)(TRawLog& Raw);
};
class ChangedLog : public testing::TestWithParam<TReading> {};

TEST_P(ChangedLog, IsReadOrRefused) {
  TRawLog Raw = Small;
  GetParam().Change(Raw);
  TUninstallLog Read;
  EXPECT_EQ(GetParam().Outcome != Refused, Load(Raw.Bytes(), Read).has_value());
  EXPECT_EQ(TFacts(SmallFacts.begin(), SmallFacts.begin() + GetParam().Records), FactsOf(Read));
  EXPECT_EQ(GetParam().Records, Read.Count());
  if (GetParam().Outcome != Refused) {
    EXPECT_EQ(GetParam().Outcome == Whole, Read.EndsWithLastRecord());
  }
}

void SetCrc(TRawLog& Raw, uint32_t Crc) { Raw.Crc = Crc, Raw.Reserved = std::string(108, '?'); }
void BreakBlock(TRawLog& Raw, uint32_t Flags) { Raw.Flags = Flags, Raw.Blocks[8] ^= 1; }
const std::string Front = TwoRecords.substr(0, 3), Back = TwoRecords.substr(3);

INSTANTIATE_TEST_SUITE_P(
    Rows, ChangedLog,
    testing::Values(
        TReading{"version_45", Whole, 2, [](TRawLog& Raw) { Raw.Version = 45; }},
        TReading{"version_46", Refused, 0, [](TRawLog& Raw) { Raw.Version = 46; }},
        TReading{"negative_version", Whole, 2, [](TRawLog& Raw) { Raw.Version = 0xFFFFFFFF; }},
        TReading{"mark_for_a_checksum", Whole, 2, [](TRawLog& Raw) { SetCrc(Raw, 0x11111111); }},
        TReading{"wrong_checksum", Refused, 0, [](TRawLog& Raw) { SetCrc(Raw, 0x11111112); }},
        TReading{"unchecked_blocks", Whole, 2, [](TRawLog& Raw) { BreakBlock(Raw, 2); }},
        TReading{"checked_blocks", Refused, 0, [](TRawLog& Raw) { BreakBlock(Raw, 0xFFFFFFFD); }},
        TReading{"empty_blocks", Whole, 2,
                 [](TRawLog& Raw) {
                   Raw.Blocks = Block("") + Block(Front) + Block("") + Block("") + Block(Back) + Block("");
                 }},
        TReading{"rest_of_a_block", SomethingBehind, 2, [](TRawLog& Raw) { Raw.Blocks = Block(TwoRecords + "x"); }},
        TReading{"further_block", SomethingBehind, 2, [](TRawLog& Raw) { Raw.Blocks += Block("x"); }},
        TReading{"damaged_block_behind", SomethingBehind, 2, [](TRawLog& Raw) { Raw.Blocks += "x"; }},
        TReading{"uncounted_record", SomethingBehind, 1, [](TRawLog& Raw) { Raw.NumRecs = 1; }},
        TReading{"negative_count", SomethingBehind, 0, [](TRawLog& Raw) { Raw.NumRecs = 0xFFFFFFFF; }},
        TReading{"other_id", Refused, 0, [](TRawLog& Raw) { Raw.Id = "Inno Setup Uninstall Log (c)"; }},
        TReading{"text_behind_the_id", Refused, 0, [](TRawLog& Raw) { Raw.Id = Padded(Id32, 63) + "x"; }},
        TReading{"block_of_4097", Refused, 0, [](TRawLog& Raw) { Raw.Blocks = Block(Padded(TwoRecords, 4097)); }},
        TReading{"one_record_too_many", Refused, 2, [](TRawLog& Raw) { ++Raw.NumRecs; }},
        TReading{"end_in_a_block_header", Refused, 0, [](TRawLog& Raw) { Raw.EndOffset = 448 + 11; }},
        TReading{"end_in_the_data", Refused, 0, [](TRawLog& Raw) { Raw.EndOffset = 448 + 12 + 26; }},
        TReading{"end_behind_the_file", Refused, 2, [](TRawLog& Raw) { Raw.NumRecs = 3, Raw.EndOffset = 0xFFFFFFFF; }},
        TReading{"record_of_4_gib", Refused, 0,
                 [](TRawLog& Raw) { Raw.Blocks = Block(TwoRecords.substr(0, 6) + Number(0xFFFFFFFFu) + "a"); }},
        TReading{"second_block", Refused, 1,
                 [](TRawLog& Raw) {
                   Raw.Blocks = Block(TwoRecords.substr(0, 20)) + Block(TwoRecords.substr(20)).replace(8, 1, "?");
                 }}),
    [](const auto& Info) { return std::string(Info.param.Name); });

TEST(UninstallLog, EveryCutAndEveryFlippedBitIsNoticed) {
  const std::string Good = Small.Bytes();
  for (size_t Size = 0; Size < Good.size(); ++Size) EXPECT_FALSE(Load(Good.substr(0, Size))) << Size;
  for (size_t Bit = 0; Bit < Good.size() * 8; ++Bit) {
    std::string Bytes = Good;
    Bytes[Bit / 8] = static_cast<char>(Bytes[Bit / 8] ^ 1 << Bit % 8);
    EXPECT_FALSE(Load(Bytes)) << Bit;
  }
}

// ---- Strings

TEST(StringLists, AreEncodedAndExtracted) {
  const auto Long = [](size_t Size) { return std::string(Size, 'x'); };
  const std::pair<std::vector<std::string>, std::string> Rows[] = {
      {{}, "\xFF"},
      {{""}, std::string("\0\xFF", 2)},
      {{"ab", "\xFF"}, "\2ab\1\xFF\xFF"},
      {{Long(252)}, "\xFC" + Long(252) + "\xFF"},
      {{Long(253)}, std::string("\xFD\xFD\0", 3) + Long(253) + "\xFF"},
      {{Long(65535)}, "\xFD\xFF\xFF" + Long(65535) + "\xFF"},
      {{Long(65536)}, std::string("\xFE\0\0\1\0", 5) + Long(65536) + "\xFF"}};
  for (const auto& [Strings, Bytes] : Rows) {
    SCOPED_TRACE(Bytes.size());
    TUninstallLog Log;
    Log.AddStringRecord(0x82, Strings, 5);
    EXPECT_EQ(45, Log.Version);
    ASSERT_TRUE(Bytes == DataOf(*Log.First()));
    std::vector<std::string> Read(Strings.size() + 1, "old");
    EXPECT_EQ(Strings.size(), TUninstallLog::ExtractRecordStrings(*Log.First(), Read));
    EXPECT_EQ("", Read.back());
    Read.pop_back();
    EXPECT_TRUE(Strings == Read);
  }
}

TEST(StringLists, EndWithinTheData) {
  const std::string Whole = std::string("\2ab\xFD\3\0cde\xFE\4\0\0\0fghi\0\xFF", 20);
  const std::vector<std::string> All = {"ab", "cde", "fghi", ""};
  const size_t Ends[] = {3, 9, 18, 19};
  for (size_t Size = 0; Size <= Whole.size(); ++Size) {
    TUninstallLog Log;
    AddData(Log, 1, Whole.substr(0, Size), 0);
    std::vector<std::string> Read(5, "old"), Expected(5);
    size_t Count = 0;
    while (Count < 4 && Ends[Count] <= Size) Expected[Count] = All[Count], ++Count;
    EXPECT_EQ(Count, TUninstallLog::ExtractRecordStrings(*Log.First(), Read)) << Size;
    EXPECT_EQ(Expected, Read) << Size;
  }
}

TEST(StringLists, StopWhenThereIsNoMoreRoomAndAtLies) {
  const auto Extract = [](const std::string& Data, size_t Room) {
    TUninstallLog Log;
    AddData(Log, 1, Data, 0);
    std::vector<std::string> Read(Room, "old");
    Read.resize(TUninstallLog::ExtractRecordStrings(*Log.First(), Read));
    return Read;
  };
  using TList = std::vector<std::string>;
  EXPECT_EQ((TList{"a", "b"}), Extract("\1a\1b\1c\xFF", 2));
  EXPECT_EQ((TList{}), Extract("\1a\xFF", 0));
  EXPECT_EQ((TList{"a"}), Extract("\1a\xFF\1b\xFF", 5));
  for (const char* Lie : {"\1a\4bcd", "\1a\xFD\4\4bcd", "\1a\xFE\xFF\xFF\xFF\xFF@"})
    EXPECT_EQ((TList{"a"}), Extract(Lie, 5));
}

// ---- The list in memory

TEST(UninstallLog, RecordsAreDeletedFromAnywhere) {
  TUninstallLog Log;
  for (const char* Data : {"a", "b", "c", "d"}) AddData(Log, 1, Data, 0);
  EXPECT_EQ(Log.First(), Log.DeleteRecord(Log.First()->Next));
  EXPECT_EQ(nullptr, Log.DeleteRecord(Log.First()));
  EXPECT_EQ(Log.First(), Log.DeleteRecord(Log.Last()));
  AddData(Log, 1, "e", 0);
  EXPECT_EQ((TFacts{{1, 0, "c"}, {1, 0, "e"}}), FactsOf(Log));
  EXPECT_EQ(Log.First(), Log.Last()->Previous);
  EXPECT_EQ(2, Log.Count());
  Log.ApplicationId = Log.ApplicationName = "x";
  Log.Flags = 1;
  Log.Version = 45;
  Log.Clear();
  EXPECT_EQ(nullptr, Log.First());
  EXPECT_EQ("0", Log.ApplicationId + Log.ApplicationName + std::to_string(Log.Flags));
  EXPECT_EQ(45, Log.Version);
}

}  // namespace
