#include "mendctl/call_log.h"

#include "formats/log_line.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace {

constexpr char Folder[] = MENDWORK_SOURCE_DIR "/tests/mendctl/";

std::string ContentOf(const std::string& Name) {
  std::ifstream File(Folder + Name, std::ios::binary);
  EXPECT_TRUE(File) << Name;
  return {std::istreambuf_iterator<char>(File), {}};
}

TCallLogOptions InLatin1() {
  TCallLogOptions Options;
  Options.ToUtf8 = [](std::string_view Ansi) {
    std::string Text;
    for (const char Byte : Ansi) {
      if (Byte & 0x80) Text += static_cast<char>(0xC0 | (Byte >> 6 & 3));
      Text += static_cast<char>(Byte & 0x80 ? 0x80 | (Byte & 0x3F) : Byte);
    }
    return Text;
  };
  return Options;
}

std::string ToldOf(const std::string& Bytes) { return CallLogText(ReadCallLog(Bytes), InLatin1(), false); }

// A case is a title, the lines of a log without their date, "=>" and what is told of them.
TEST(CallLog, NestsCallsAndFindsWhatFailed) {
  const std::string Cases = ContentOf("call_log_cases.txt");
  size_t Count = 0;
  for (size_t At = 0, End; At < Cases.size(); At = End, ++Count) {
    End = std::min(Cases.find("\n# ", At), Cases.size() - 1) + 1;
    const size_t Told = Cases.find("\n=>\n", At), First = Cases.find('\n', At) + 1;
    std::string Log;
    for (size_t Line = First; Line <= Told; Line = Cases.find('\n', Line) + 1)
      Log += (Cases.substr(Line, 8).find(':') == 2 ? "2026.01.01 " : "") +
             Cases.substr(Line, Cases.find('\n', Line) - Line) + "\r\n";
    EXPECT_EQ(Cases.substr(Told + 4, End - 1 - (Told + 4)), ToldOf(Log)) << Cases.substr(At, First - At);
  }
  EXPECT_EQ(8u, Count);
}

TEST(CallLog, IsToldInWordsAndForPrograms) {
  const std::string Bytes = ContentOf("update.log");
  const TCallLog Log = ReadCallLog(Bytes);
  TCallLogOptions All = InLatin1(), Errors = All, Calls = All, One = All;
  Errors.Errors = Calls.Calls = true;
  One.Call = 28;
  One.Process = 2;
  const std::pair<const char*, const TCallLogOptions*> Rows[] = {
      {"", &All}, {"_errors", &Errors}, {"_calls", &Calls}, {"_call", &One}};
  for (const auto& [Name, Options] : Rows) {
    EXPECT_EQ(ContentOf("call_log" + std::string(Name) + ".txt"), CallLogText(Log, *Options, false));
    EXPECT_EQ(ContentOf("call_log" + std::string(Name) + ".json"), CallLogJson(Log, *Options).dump(2) + "\n");
  }
  EXPECT_NE(std::string::npos, CallLogText(Log, Errors, true).find("\x1b[1;31merror 2: File not found.\x1b[0m"));
  One.Process = 3;
  EXPECT_NE(std::string::npos, CallLogText(Log, One, false).find("No call has the id 28."));
  One.Process = 4;
  EXPECT_EQ("The log has 3 processes.\n", CallLogText(Log, One, false));
}

TEST(CallLog, IsReadWhereverItWasCut) {
  const std::string Bytes = ContentOf("update.log").substr(0, 5000),
                    Whole = ToldOf(Bytes.substr(0, Bytes.rfind('\n') + 1));
  EXPECT_NE(std::string::npos, ToldOf(Bytes).find("\nThe last line is cut off.\n"));
  std::string OtherBreaks = Bytes.substr(0, Bytes.rfind('\n') + 1);
  std::erase(OtherBreaks, '\r');
  EXPECT_EQ(Whole, ToldOf(OtherBreaks));
  const std::string Line = "2026.12.31 23:59:59 -7 a b c<#NL>d ";
  const auto Parsed = ParseLogLine(Line);
  ASSERT_TRUE(Parsed);
  EXPECT_EQ(std::tuple(31, 59, -7, "a", "b", "c\nd "),
            std::tuple(Parsed->Time.Day, Parsed->Time.Second, Parsed->Id, Parsed->Name, Parsed->Action,
                       WithLineBreaks(Parsed->Text)));
  for (size_t Size = 0; Size < Line.size(); ++Size)
    EXPECT_EQ(Size > 26, ParseLogLine(Line.substr(0, Size)).has_value());
  for (size_t At = 0; At < 23; ++At) EXPECT_FALSE(ParseLogLine(std::string(Line).replace(At, 1, "/"))) << At;
}

TEST(CallLog, OfAnyoneHarmsNeitherTheTerminalNorThePageNorTheStack) {
  std::string Bytes = "2026.01.01 10:00:00 1 U\xC3 \xFF\x1B[2J </script><!--\x07\xC2\x9B\r\n\xE4\x1B\n";
  for (int Id = 1; Id <= 5000; ++Id) Bytes += "2026.01.01 10:00:01 " + std::to_string(Id) + " UBackup Begin B \xC2\r\n";
  const TCallLog Log = ReadCallLog(Bytes);
  EXPECT_EQ(1u, Log.Failures.size());
  EXPECT_EQ(TCallLog::MostDepth, Log.Calls.back().Depth);
  const std::string Text = CallLogText(Log, {}, false), Page = CallLogPage(Log, {}, "</title>");
  EXPECT_NE(std::string::npos, Text.find("- U\xEF\xBF\xBD \xEF\xBF\xBD\\x1b[2J: </script><!--\\x07\\x9b\n"));
  EXPECT_EQ(std::string::npos, Text.find_first_of("\x1B\x07\r"));
  EXPECT_NO_THROW(CallLogJson(Log, {}).dump());
  const size_t Data = Page.find(R"({"title":"\u003c/title>")"), End = Page.find('<', Data);
  EXPECT_EQ("}</script>\n<script>", Page.substr(End - 1, 19)) << "the first markup behind the data ends it";
}

}  // namespace
