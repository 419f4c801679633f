#include "installer/uninstall_log.h"

#include "installer/crc32.h"
#include "server/little_endian.h"
#include "support/memory_file.h"
#include "support/raw_uninstall_log.h"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>

namespace {

const std::string TwoRecords = Record(0x82, 0x10,
                                      std::string("\x05"
                                                  "a.dll\xFF",
                                                  7)) +
                               Record(0xFFFF, 0xFFFFFFFF, "");
const TRawLog Small{.NumRecs = 2, .Blocks = Block(TwoRecords)};

using TFacts = std::vector<std::tuple<uint16_t, int32_t, std::string>>;
TFacts FactsOf(const TUninstallLog& Log) {
  TFacts Facts;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next)
    Facts.emplace_back(Rec->RecordType, Rec->ExtraValue, std::string(Rec->Data().begin(), Rec->Data().end()));
  return Facts;
}
const TFacts SmallFacts = {{0x82, 0x10,
                            std::string("\x05"
                                        "a.dll\xFF",
                                        7)},
                           {0xFFFF, -1, ""}};

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

std::string DataOf(const TUninstallRecord& Rec) { return std::string(Rec.Data().begin(), Rec.Data().end()); }

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

TEST(UninstallLog, EmptyIsAHeader) {
  std::string Bytes = "what was there before";
  SaveTo(Bytes, TUninstallLog());
  EXPECT_EQ((TRawLog{.ApplicationId = "", .ApplicationName = "", .Version = 0}.Bytes()), Bytes);
  EXPECT_EQ(448u, Bytes.size());
}

TEST(UninstallLog, IsSavedAndLoadedByteForByte) {
  for (const bool Is64Bit : {false, true}) {
    TUninstallLog Log;
    Log.Is64Bit = Is64Bit;
    Log.ApplicationId = "{App}";
    Log.ApplicationName = "Orvane Notes";
    Log.Flags = 0x81;
    Log.Version = 44;
    AddData(Log, 0x82,
            std::string("\x05"
                        "a.dll\xFF",
                        7),
            0x10);
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
    std::string Expected, Bytes;
    for (size_t At = 0; At < Stream.size(); At += 4096) Expected += Block(Stream.substr(At, 4096));
    SaveTo(Bytes, Log);
    EXPECT_TRUE(Expected == Bytes.substr(448)) << Stream.size();
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
    Expected.Blocks += Block(Record(0x82, 0,
                                    std::string("\x05"
                                                "b.dll\xFF",
                                                7)) +
                             Record(1, 2, "x"));
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

TEST(UninstallLog, CountsUpToTheLargestNumber) {
  TUninstallLog One;
  One.ApplicationId = "{App}";
  AddData(One, 1, "", 1);
  for (const auto& [NumRecs, Fits] : std::initializer_list<std::pair<uint32_t, bool>>{
           {0x7FFFFFFE, true}, {0x7FFFFFFF, false}, {0x80000000, false}, {0xFFFFFFFF, false}}) {
    TRawLog Old = Small;
    Old.NumRecs = NumRecs;
    std::string Bytes = Old.Bytes();
    if (Fits) {
      SaveTo(Bytes, One, true);
      EXPECT_EQ(Number(NumRecs + 1), Bytes.substr(324, 4));
    } else {
      EXPECT_THROW(SaveTo(Bytes, One, true), EUninstallLogError) << NumRecs;
      EXPECT_EQ(Old.Bytes(), Bytes.substr(0, Old.Bytes().size())) << "the old header and blocks";
    }
  }
}

TEST(UninstallLog, IsNotCutWhereItDoesNotEnd) {
  const auto Size = static_cast<int64_t>(Small.Bytes().size());
  for (const int64_t End : {int64_t{0}, int64_t{447}, Size + 1, int64_t{0xFFFFFFFF}}) {
    TRawLog Old = Small;
    Old.EndOffset = End;
    std::string Bytes = Old.Bytes();
    EXPECT_THROW(SaveTo(Bytes, TUninstallLog(), true), EUninstallLogError) << End;
    EXPECT_EQ(Old.Bytes(), Bytes);
  }
  std::string Short(447, '\0');
  EXPECT_THROW(SaveTo(Short, TUninstallLog(), true), EFileError);
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

TEST(UninstallLog, OpensItsFileForItselfAlone) {
  using TCall = std::tuple<std::string, TFileDisposition, TFileAccess, TFileSharing>;
  std::vector<TCall> Calls;
  std::string Bytes;
  const auto Opener = [&](const std::string& Name, TFileDisposition Disposition, TFileAccess Access,
                          TFileSharing Sharing) {
    Calls.emplace_back(Name, Disposition, Access, Sharing);
    return std::make_unique<TMemoryFile>(Bytes);
  };
  TUninstallLog().Save(Opener, "new", false, false);
  TUninstallLog().Save(Opener, "old", true, false);
  EXPECT_EQ((std::vector<TCall>{{"new", TFileDisposition::CreateAlways, TFileAccess::ReadWrite, TFileSharing::None},
                                {"old", TFileDisposition::OpenExisting, TFileAccess::ReadWrite, TFileSharing::None}}),
            Calls);
}

// ---- Reading

TEST(UninstallLog, VersionsUpTo45AreRead) {
  for (const auto& [Version, Good] : std::initializer_list<std::pair<uint32_t, bool>>{
           {45, true}, {46, false}, {0, true}, {0xFFFFFFFF, true}, {0x7FFFFFFF, false}}) {
    TRawLog Raw = Small;
    Raw.Version = Version;
    EXPECT_EQ(Good, Load(Raw.Bytes()).has_value()) << Version;
  }
}

TEST(UninstallLog, AHeaderWithTheMarkInItsChecksumIsNotChecked) {
  TRawLog Raw = Small;
  Raw.Crc = 0x11111111;
  Raw.Reserved = std::string(108, '?');
  EXPECT_EQ(SmallFacts, Load(Raw.Bytes()));
  Raw.Crc = 0x11111112;
  EXPECT_FALSE(Load(Raw.Bytes()));
}

TEST(UninstallLog, BlocksAreNotCheckedWhenAFlagSaysSo) {
  for (const auto& [Flags, Good] :
       std::initializer_list<std::pair<uint32_t, bool>>{{2, true}, {0xFF, true}, {0, false}, {0xFFFFFFFD, false}}) {
    TRawLog Raw = Small;
    Raw.Flags = Flags;
    Raw.Blocks[8] ^= 1;
    EXPECT_EQ(Good, Load(Raw.Bytes()).has_value()) << Flags;
  }
}

TEST(UninstallLog, EmptyBlocksArePassedOver) {
  TRawLog Raw = Small;
  Raw.Blocks =
      Block("") + Block(TwoRecords.substr(0, 3)) + Block("") + Block("") + Block(TwoRecords.substr(3)) + Block("");
  TUninstallLog Read;
  EXPECT_EQ(SmallFacts, Load(Raw.Bytes(), Read));
  EXPECT_TRUE(Read.EndsWithLastRecord());
}

TEST(UninstallLog, WhatIsBehindTheLastRecordIsNoticed) {
  for (const auto& [Name, Blocks, NumRecs] : std::initializer_list<std::tuple<const char*, std::string, uint32_t>>{
           {"in its block", Block(TwoRecords + "x"), 2},
           {"in a further one", Block(TwoRecords) + Block("x"), 2},
           {"which is damaged", Block(TwoRecords) + "x", 2},
           {"when a record is not counted", Block(TwoRecords), 1},
           {"when none is", Block(TwoRecords), 0},
           {"or fewer than that", Block(TwoRecords), 0xFFFFFFFF}}) {
    TRawLog Raw = Small;
    Raw.Blocks = Blocks;
    Raw.NumRecs = NumRecs;
    TUninstallLog Read;
    EXPECT_TRUE(Load(Raw.Bytes(), Read)) << Name;
    EXPECT_FALSE(Read.EndsWithLastRecord()) << Name;
    EXPECT_EQ(NumRecs > 2 ? 0 : static_cast<int32_t>(NumRecs), Read.Count()) << Name;
  }
}

struct TDamage {
  const char* Name;
  void (*Do)(TRawLog& Raw);
  int RecordsBefore;  ///< what has been read stays
};
class DamagedLog : public testing::TestWithParam<TDamage> {};

TEST_P(DamagedLog, IsRefused) {
  TRawLog Raw = Small;
  GetParam().Do(Raw);
  TUninstallLog Read;
  EXPECT_FALSE(Load(Raw.Bytes(), Read));
  EXPECT_EQ(GetParam().RecordsBefore, Read.Count());
}

void PatchBlock(TRawLog& Raw, size_t At, uint32_t Value) { Raw.Blocks.replace(At, 4, Number(Value)); }

INSTANTIATE_TEST_SUITE_P(
    Rows, DamagedLog,
    testing::Values(
        TDamage{"other_id", [](TRawLog& Raw) { Raw.Id = "Inno Setup Uninstall Log (c)"; }, 0},
        TDamage{"text_behind_the_id", [](TRawLog& Raw) { Raw.Id = Padded(Id32, 63) + "x"; }, 0},
        TDamage{"complement", [](TRawLog& Raw) { Raw.Blocks[4] ^= 1; }, 0},
        TDamage{"block_of_4097", [](TRawLog& Raw) { Raw.Blocks = Block(Padded(TwoRecords, 4097)); }, 0},
        TDamage{"huge_block", [](TRawLog& Raw) { PatchBlock(Raw, 0, 0xFFFFFFFF), PatchBlock(Raw, 4, 0); }, 0},
        TDamage{"data", [](TRawLog& Raw) { Raw.Blocks.back() ^= 1; }, 0},
        TDamage{"one_record_too_many", [](TRawLog& Raw) { ++Raw.NumRecs; }, 2},
        TDamage{"very_many", [](TRawLog& Raw) { Raw.NumRecs = 0x7FFFFFFF; }, 2},
        TDamage{"end_in_a_block_header", [](TRawLog& Raw) { Raw.EndOffset = 448 + 11; }, 0},
        TDamage{"end_in_the_data", [](TRawLog& Raw) { Raw.EndOffset = 448 + 12 + 26; }, 0},
        TDamage{"end_in_the_header", [](TRawLog& Raw) { Raw.EndOffset = 0; }, 0},
        TDamage{"end_behind_the_file", [](TRawLog& Raw) { Raw.NumRecs = 3, Raw.EndOffset = 0xFFFFFFFF; }, 2},
        TDamage{"record_of_4_gib",
                [](TRawLog& Raw) { Raw.Blocks = Block(TwoRecords.substr(0, 6) + Number(0xFFFFFFFFu) + "a"); }, 0},
        TDamage{"record_of_4_gib_behind_the_file",
                [](TRawLog& Raw) {
                  Raw.Blocks = Block(TwoRecords.substr(0, 6) + Number(0xFFFF0000u) + "a");
                  Raw.EndOffset = 0xFFFFFFFF;
                },
                0},
        TDamage{"second_record_lies",
                [](TRawLog& Raw) { Raw.Blocks = Block(TwoRecords.substr(0, TwoRecords.size() - 4) + Number(1u)); }, 1},
        TDamage{"second_block",
                [](TRawLog& Raw) {
                  Raw.Blocks = Block(TwoRecords.substr(0, 20)) + Block(TwoRecords.substr(20)).replace(8, 1, "?");
                },
                1}),
    [](const auto& Info) { return std::string(Info.param.Name); });

TEST(UninstallLog, EveryTruncatedLengthIsRefused) {
  const std::string Whole = Small.Bytes();
  for (size_t Size = 0; Size < Whole.size(); ++Size) EXPECT_FALSE(Load(Whole.substr(0, Size))) << Size;
}

TEST(UninstallLog, EveryFlippedBitIsNoticed) {
  const std::string Whole = Small.Bytes();
  for (size_t Bit = 0; Bit < Whole.size() * 8; ++Bit) {
    std::string Bytes = Whole;
    Bytes[Bit / 8] = static_cast<char>(Bytes[Bit / 8] ^ 1 << Bit % 8);
    EXPECT_FALSE(Load(Bytes)) << Bit;
  }
}

// ---- Strings

struct TStringsRow {
  const char* Name;
  std::vector<std::string> Strings;
  std::string Bytes;
};
class StringLists : public testing::TestWithParam<TStringsRow> {};

TEST_P(StringLists, AreEncodedAndExtracted) {
  const auto& [Name, Strings, Bytes] = GetParam();
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

INSTANTIATE_TEST_SUITE_P(
    Rows, StringLists,
    testing::Values(
        TStringsRow{"none", {}, "\xFF"}, TStringsRow{"one_empty", {""}, std::string("\0\xFF", 2)},
        TStringsRow{"two", {"ab", "\xFF"}, "\2ab\1\xFF\xFF"},
        TStringsRow{"of_252", {std::string(252, 'x')}, "\xFC" + std::string(252, 'x') + "\xFF"},
        TStringsRow{"of_253", {std::string(253, 'x')}, std::string("\xFD\xFD\0", 3) + std::string(253, 'x') + "\xFF"},
        TStringsRow{"of_65535", {std::string(65535, 'x')}, "\xFD\xFF\xFF" + std::string(65535, 'x') + "\xFF"},
        TStringsRow{
            "of_65536", {std::string(65536, 'x')}, std::string("\xFE\0\0\1\0", 5) + std::string(65536, 'x') + "\xFF"}),
    [](const auto& Info) { return std::string(Info.param.Name); });

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
  EXPECT_EQ((TList{"a"}), Extract("\1a\4bcd", 5));
  EXPECT_EQ((TList{"a"}), Extract("\1a\xFE\xFF\xFF\xFF\xFF"
                                  "bcd",
                                  5));
  EXPECT_EQ((TList{"a"}), Extract(std::string("\1a\xFD\4\0bcd", 8), 5));
}

// ---- The list in memory

TEST(UninstallLog, RecordsAreDeletedFromAnywhere) {
  TUninstallLog Log;
  for (const char* Data : {"a", "b", "c", "d"}) AddData(Log, 1, Data, 0);
  const auto All = [&] {
    std::string Forwards, Backwards;
    for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next) Forwards += DataOf(*Rec);
    for (const TUninstallRecord* Rec = Log.Last(); Rec; Rec = Rec->Previous) Backwards.insert(0, DataOf(*Rec));
    EXPECT_EQ(Forwards, Backwards);
    EXPECT_EQ(static_cast<int32_t>(Forwards.size()), Log.Count());
    return Forwards;
  };
  EXPECT_EQ(Log.First(), Log.DeleteRecord(Log.First()->Next));
  EXPECT_EQ("acd", All());
  EXPECT_EQ(nullptr, Log.DeleteRecord(Log.First()));
  EXPECT_EQ("cd", All());
  EXPECT_EQ(Log.First(), Log.DeleteRecord(Log.Last()));
  EXPECT_EQ("c", All());
  AddData(Log, 1, "e", 0);
  EXPECT_EQ("ce", All());
  Log.ApplicationId = Log.ApplicationName = "x";
  Log.Flags = 1;
  Log.Version = 45;
  Log.Clear();
  EXPECT_EQ("", All());
  EXPECT_EQ("0", Log.ApplicationId + Log.ApplicationName + std::to_string(Log.Flags));
  EXPECT_EQ(45, Log.Version);
}

}  // namespace
