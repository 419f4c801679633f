#include "formats/log_line.h"
#include "mendctl/call_log.h"
#include "mendctl/report.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

namespace {

constexpr std::string_view Page =
#include "mendctl/call_log_page.inc"
    ;

/// "2024-03-05 14:07:31", which is local time as the log has it.
std::string StampOf(int64_t Seconds) {
  using namespace std::chrono;
  const sys_seconds Time{seconds(Seconds)};
  const auto Day = floor<days>(Time);
  const year_month_day Date(Day);
  const hh_mm_ss Clock(Time - Day);
  std::array<char, 64> Text{};
  std::snprintf(Text.data(), Text.size(), "%04d-%02u-%02u %02d:%02d:%02d", static_cast<int>(Date.year()),
                static_cast<unsigned>(Date.month()), static_cast<unsigned>(Date.day()),
                static_cast<int>(Clock.hours().count()), static_cast<int>(Clock.minutes().count()),
                static_cast<int>(Clock.seconds().count()));
  return Text.data();
}

constexpr size_t DateSize = 11;  // with the blank behind it
std::string ClockOf(int64_t Seconds) { return StampOf(Seconds).substr(DateSize); }

const char* WordOf(TCallEnd Ended) {
  switch (Ended) {
    case TCallEnd::Told:
      return "end line";
    case TCallEnd::ByDesign:
      return "by design";
    case TCallEnd::Exception:
      return "exception";
    case TCallEnd::Unexplained:
      return "unexplained";
    case TCallEnd::Open:
      break;
  }
  return "open";
}

bool IsAscii(std::string_view Text) {
  return std::ranges::all_of(Text, [](char Byte) { return static_cast<unsigned char>(Byte) < 0x80; });
}

std::string_view Trimmed(std::string_view Text) {
  const size_t First = std::min(Text.find_first_not_of(" \n"), Text.size());
  Text.remove_prefix(First);
  return Text.substr(0, Text.find_last_not_of(" \n") + 1);
}

/// Whatever is no UTF-8 becomes the replacement character.
std::string ValidUtf8(std::string Text) {
  return nlohmann::json::parse(
      nlohmann::json(std::move(Text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

/// The first word and the rest.
struct TWords {
  std::string_view First, Rest;
};
TWords SplitWords(std::string_view Text) {
  const size_t Blank = std::min(Text.find(' '), Text.size());
  return {Text.substr(0, Blank), Text.substr(std::min(Blank + 1, Text.size()))};
}

bool StartsPath(std::string_view Text) {
  const auto IsLetter = [](char Each) { return (Each | 0x20) >= 'a' && (Each | 0x20) <= 'z'; };
  return Text.starts_with("\\\\") || (Text.size() > 2 && IsLetter(Text[0]) && Text[1] == ':' && Text[2] == '\\');
}

bool IsNumber(std::string_view Word) {
  return !Word.empty() && Word.find_first_not_of("-0123456789") == std::string_view::npos;
}

/// The first full name of a file or folder among arguments; empty when there is none. Arguments are parted by blanks,
/// and names may have some: what no name can hold, the next name, and numbers end it.
std::string_view PathIn(std::string_view Arguments) {
  constexpr size_t DriveSize = 3;
  size_t Begin = 0;
  while (Begin < Arguments.size() && !StartsPath(Arguments.substr(Begin)))
    Begin = std::min(Arguments.find(' ', Begin), Arguments.size() - 1) + 1;
  std::string_view Path = Arguments.substr(Begin);
  for (size_t Blank = Path.find(' '); Blank != std::string_view::npos; Blank = Path.find(' ', Blank + 1)) {
    const std::string_view Word = SplitWords(Path.substr(Blank + 1)).First;
    if (StartsPath(Word) || Word.find_first_of("/:\"<>|\n") != std::string_view::npos) Path = Path.substr(0, Blank);
  }
  while (Path.size() > DriveSize && Path.find(' ') != std::string_view::npos &&
         IsNumber(Path.substr(Path.rfind(' ') + 1)))
    Path = Path.substr(0, Path.rfind(' '));
  return Path;
}

/// Whether a path leads into the folder where the system keeps its state.
bool IsOwnFile(std::string_view Path) {
  return Path.find("\\Updates\\Mendwork\\") != std::string_view::npos ||
         Path.find("\\Updates\\Mendwork64\\") != std::string_view::npos;
}

/// What a box said, and what was answered.
struct TBox {
  std::string Text, Answer;
};

/// What a failure comes to, in words.
struct TFailureFacts {
  std::string Time, Text, File, Arguments;  ///< the last ones of the innermost call
  std::optional<int64_t> Number;
  std::optional<TBox> Box;
  std::vector<std::string> Within;  ///< the calls, outermost first
  std::string GoesOn;               ///< the one that caught it
};

/// The texts of a log, in UTF-8.
class TTeller {
 public:
  TTeller(const TCallLog& Log, const TCallLogOptions& Options) : Log(Log), Options(Options) {
    LastBox.resize(Log.Calls.size(), NoIndex);
    for (uint32_t Index = 0; Index < Log.Calls.size(); ++Index)
      if (Log.Calls[Index].Parent != NoIndex && IsBox(Log.Calls[Index])) LastBox[Log.Calls[Index].Parent] = Index;
  }

  std::string Utf8(std::string_view Text) const {
    if (IsAscii(Text)) return std::string(Text);
    return ValidUtf8(Options.ToUtf8 ? Options.ToUtf8(Text) : std::string(Text));
  }

  /// With its line breaks as such.
  std::string Text(std::string_view Bytes) const { return Utf8(WithLineBreaks(Bytes)); }
  std::string NameText(uint32_t Name) const { return Utf8(Log.Names[Name]); }
  std::string Routine(const TLogCall& Call) const { return Text(SplitWords(Call.Words).First); }
  std::string Arguments(const TLogCall& Call) const { return Text(SplitWords(Call.Words).Rest); }

  /// What the End line says behind the routine's name, of so many bytes.
  std::string Result(const TLogCall& Call, size_t MostBytes = std::string_view::npos) const {
    const std::string_view Name = SplitWords(Call.Words).First;
    const std::string_view Said = Call.Result.starts_with(Name) ? Call.Result.substr(Name.size()) : Call.Result;
    return Text(Trimmed(Said).substr(0, MostBytes));
  }

  /// "UFile.CopyFile"; the names of the wrappers speak for themselves.
  std::string Label(const TLogCall& Call) const {
    return (Log.Names[Call.Name] == "Common" ? "" : NameText(Call.Name) + ".") + Routine(Call);
  }

  /// The same, of a length that can be told with each failure inside.
  std::string ShortLabel(const TLogCall& Call) const {
    constexpr size_t MostBytes = 80;
    const std::string_view Name = Log.Names[Call.Name];
    return (Name == "Common" ? "" : Utf8(Name.substr(0, MostBytes)) + ".") +
           Text(SplitWords(Call.Words.substr(0, MostBytes)).First);
  }

  /// Unless the clock was set back.
  static std::optional<int64_t> Seconds(const TLogCall& Call) {
    return Call.End < Call.Begin ? std::nullopt : std::optional(Call.End - Call.Begin);
  }

  /// The labels of a call and those around it, outermost first; of many, those at both ends.
  std::vector<std::string> Within(uint32_t Index) const {
    constexpr size_t MostShown = 8;
    std::vector<uint32_t> Path;
    for (; Index != NoIndex; Index = Log.Calls[Index].Parent) Path.push_back(Index);
    std::vector<std::string> Labels;
    for (size_t At = Path.size(); At-- > 0;) {
      const size_t FromOutside = Path.size() - 1 - At;
      if (FromOutside < MostShown / 2 || At < MostShown / 2)
        Labels.push_back(ShortLabel(Log.Calls[Path[At]]));
      else if (FromOutside == MostShown / 2)
        Labels.emplace_back("...");
    }
    return Labels;
  }

  TFailureFacts Facts(const TLogFailure& Failure) const {
    TFailureFacts Facts;
    if (Failure.Note != NoIndex)
      PutError(Log.Notes[Failure.Note], Facts);
    else
      PutSilence(Log.Calls[Failure.Call], Facts);
    Facts.File = FileOf(Failure.Call);
    if (Failure.Call != NoIndex && !IsBox(Log.Calls[Failure.Call])) Facts.Arguments = Given(Log.Calls[Failure.Call]);
    Facts.Within = Within(Failure.Call);
    Facts.Box = BoxOf(Failure);
    for (uint32_t Call = Failure.Call; Call != NoIndex && Facts.GoesOn.empty(); Call = Log.Calls[Call].Parent)
      if (Log.Calls[Call].EndLine) Facts.GoesOn = ShortLabel(Log.Calls[Call]);
    return Facts;
  }

  const TCallLog& Log;
  const TCallLogOptions& Options;

 private:
  /// A text that stands for more than one failure is told to this length.
  static constexpr size_t MostOfText = 1000;
  std::string Given(const TLogCall& Call) const { return Text(SplitWords(Call.Words.substr(0, MostOfText)).Rest); }

  bool IsBox(const TLogCall& Call) const { return Log.Names[Call.Name] == "UDialog"; }

  void PutError(const TLogNote& Note, TFailureFacts& Facts) const {
    Facts.Time = StampOf(Note.Time);
    const std::string Whole = Text(Note.Text);
    const TWords Words = SplitWords(Whole);
    int64_t Number = 0;
    const char* const End = Words.First.data() + Words.First.size();
    const auto Parsed = std::from_chars(Words.First.data(), End, Number);
    const bool HasNumber = Parsed.ec == std::errc() && Parsed.ptr == End;
    if (HasNumber) Facts.Number = Number;
    Facts.Text = Trimmed(HasNumber ? Words.Rest : Whole);
  }

  void PutSilence(const TLogCall& Call, TFailureFacts& Facts) const {
    Facts.Time = StampOf(Call.Begin);
    if (Call.Ended == TCallEnd::Unexplained)
      Facts.Text = "It failed without a reason in the log, as a call does whose arguments are refused.";
    else if (IsBox(Call))
      Facts.Text = "The log of the process ends while this box is on the screen.";
    else
      Facts.Text = "The log of the process ends inside.";
  }

  /// The innermost file of the application that is named, else of the system.
  std::string FileOf(uint32_t Index) const {
    std::string Own;
    for (; Index != NoIndex; Index = Log.Calls[Index].Parent) {
      const TLogCall& Call = Log.Calls[Index];
      const std::string All = IsBox(Call) ? std::string() : Given(Call);
      const std::string_view Path = PathIn(All);
      if (!Path.empty() && !IsOwnFile(Path)) return std::string(Path);
      if (Own.empty()) Own = Path;
    }
    return Own;
  }

  std::optional<TBox> BoxOf(const TLogFailure& Failure) const {
    if (Failure.Call == NoIndex) return std::nullopt;
    const uint32_t Index = IsBox(Log.Calls[Failure.Call]) ? Failure.Call : LastBox[Failure.Call];
    if (Index == NoIndex || Log.Calls[Index].Line > Failure.Line) return std::nullopt;
    constexpr std::string_view TextLabel = "Text=", CaptionLabel = " Caption=", ResultLabel = "Result=";
    std::string Said = Given(Log.Calls[Index]), Answer = Result(Log.Calls[Index], MostOfText);
    Said = Said.substr(0, Said.rfind(CaptionLabel));
    if (Said.starts_with(TextLabel)) Said.erase(0, TextLabel.size());
    if (Answer.starts_with(ResultLabel)) Answer.erase(0, ResultLabel.size());
    return TBox{std::string(Trimmed(Said)), ButtonText(Answer)};
  }

  /// The answer of a standard box is a number; that of a custom one is the button's own text.
  static std::string ButtonText(const std::string& Answer) {
    constexpr std::array Buttons = {"OK", "Cancel", "Abort", "Retry", "Ignore", "Yes", "No"};
    const bool Known = Answer.size() == 1 && Answer[0] >= '1' && static_cast<size_t>(Answer[0] - '1') < Buttons.size();
    return Known ? Buttons[static_cast<size_t>(Answer[0] - '1')] : Answer;
  }

  std::vector<uint32_t> LastBox;  ///< that each call has shown
};

/// The inner calls and notes of a call, or the outermost ones of a process, in the order of their lines. Like notes
/// side by side are told once: `OnNote` gets the first and their number.
void Walk(const TCallLog& Log, uint32_t Call, uint32_t Note, const auto& OnCall, const auto& OnNote) {
  while (Call != NoIndex || Note != NoIndex) {
    const uint32_t CallLine = Call == NoIndex ? UINT32_MAX : Log.Calls[Call].Line;
    if (Note == NoIndex || CallLine < Log.Notes[Note].Line) {
      OnCall(Log.Calls[Call]);
      Call = Log.Calls[Call].Next;
      continue;
    }
    const TLogNote& First = Log.Notes[Note];
    const auto IsLike = [&](const TLogNote& Other) {
      return Other.Line < CallLine && Other.Action == First.Action && Other.Text == First.Text && Other.Id == First.Id;
    };
    size_t Times = 1;
    for (Note = First.Next; Note != NoIndex && IsLike(Log.Notes[Note]); Note = Log.Notes[Note].Next) ++Times;
    OnNote(First, Times);
  }
}

bool IsChosen(const TCallLogOptions& Options, size_t Process) {
  return !Options.Process || *Options.Process == Process + 1;
}

/// The calls of a process that have the id that is asked for.
std::vector<uint32_t> CallsWithId(const TCallLog& Log, const TLogProcess& Process, int32_t Id) {
  std::vector<uint32_t> Found;
  for (uint32_t Index = Process.FirstCall; Index < Process.FirstCall + Process.Calls; ++Index)
    if (Log.Calls[Index].Id == Id) Found.push_back(Index);
  return Found;
}

// ---- JSON

class TJsonTeller : public TTeller {
 public:
  using TTeller::TTeller;

  TJson All() const {
    TJson Processes = TJson::array(), Strays = TJson::array();
    for (size_t Index = 0; Index < Log.Processes.size(); ++Index)
      if (IsChosen(Options, Index)) Processes.push_back(Process(Index));
    for (const TStrayLines& Each : Log.Strays)
      Strays.push_back(
          {{"offset", Each.Offset}, {"line", Each.Line}, {"lines", Each.Count}, {"text", Utf8(Each.Bytes)}});
    return {{"lines", Log.Lines},
            {"last_line_cut", Log.LastLineCut},
            {"seconds_are", "whole ones: the log has no others"},
            {"processes", std::move(Processes)},
            {"stray_lines", std::move(Strays)}};
  }

  TJson Failure(const TLogFailure& Failure) const {
    const TFailureFacts Told = Facts(Failure);
    TJson Json = {{"time", Told.Time}, {"line", Failure.Line}};
    if (Failure.Call != NoIndex) {
      const TLogCall& Call = Log.Calls[Failure.Call];
      Json["call"] = Call.Id;
      Json["ended"] = WordOf(Call.Ended);
    }
    if (Told.Number) Json["error"] = *Told.Number;
    Json["text"] = Told.Text;
    if (!Told.File.empty()) Json["file"] = Told.File;
    if (!Told.Arguments.empty()) Json["arguments"] = Told.Arguments;
    if (Told.Box) Json["box"] = {{"text", Told.Box->Text}, {"answer", Told.Box->Answer}};
    Json["within"] = Told.Within;
    if (!Told.GoesOn.empty()) Json["goes_on_in"] = Told.GoesOn;
    return Json;
  }

 private:
  TJson Process(size_t Index) const {
    const TLogProcess& Process = Log.Processes[Index];
    TJson Json = {{"process", Index + 1},   {"first", StampOf(Process.First)}, {"last", StampOf(Process.Last)},
                  {"lines", Process.Lines}, {"calls", Process.Calls},          {"failures", TJson::array()}};
    if (!Options.Call || Options.Errors)
      for (uint32_t Each = 0; Each < Process.Failures; ++Each)
        Json["failures"].push_back(Failure(Log.Failures[Process.FirstFailure + Each]));
    if (Options.Errors) return Json;
    TJson Tree = TJson::array();
    if (Options.Call) {
      for (const uint32_t Found : CallsWithId(Log, Process, *Options.Call)) {
        Tree.push_back(Call(Log.Calls[Found], true));
        Tree.back()["within"] = Within(Log.Calls[Found].Parent);
      }
    } else {
      Tree = Inner(Process.FirstRoot, Process.FirstNote, !Options.Calls);
    }
    Json["tree"] = std::move(Tree);
    return Json;
  }

  /// No deeper than TCallLog::MostDepth.
  TJson Inner(uint32_t FirstCall, uint32_t FirstNote, bool Deep) const {
    TJson Json = TJson::array();
    Walk(
        Log, FirstCall, FirstNote, [&](const TLogCall& Each) { Json.push_back(Call(Each, Deep)); },
        [&](const TLogNote& Note, size_t Times) {
          Json.push_back({{"line", Note.Line}, {"id", Note.Id}, {"time", StampOf(Note.Time)}});
          TJson& Last = Json.back();
          Last["name"] = NameText(Note.Name);
          Last["action"] = Utf8(Note.Action);
          Last["text"] = Text(Note.Text);
          if (Times > 1) Last["times"] = Times;
        });
    return Json;
  }

  TJson Call(const TLogCall& Call, bool Deep) const {
    TJson Json = {{"line", Call.Line}, {"id", Call.Id}, {"time", StampOf(Call.Begin)}};
    if (const auto Took = Seconds(Call)) Json["seconds"] = *Took;
    Json["name"] = NameText(Call.Name);
    Json["routine"] = Routine(Call);
    Json["arguments"] = Arguments(Call);
    if (std::string Said = Result(Call); !Said.empty()) Json["result"] = std::move(Said);
    Json["ended"] = WordOf(Call.Ended);
    if (Call.Failed) Json["failed"] = true;
    if (Call.Shallow) Json["is_deeper"] = true;
    if (!Call.InnerLines) return Json;
    Json["inner_calls"] = Call.InnerCalls;
    Json["inner_lines"] = Call.InnerLines;
    if (Deep) Json["inner"] = Inner(Call.FirstChild, Call.FirstNote, true);
    return Json;
  }
};

// ---- Text

/// In one line, with nothing that a terminal would obey.
std::string Shown(std::string_view Text) {
  std::string Result;
  bool Gap = false;
  for (size_t At = 0; At < Text.size(); ++At) {
    const auto Byte = static_cast<unsigned char>(Text[At]);
    // The second control characters are two bytes of UTF-8.
    const bool Second = Byte == 0xC2 && At + 1 < Text.size() && static_cast<unsigned char>(Text[At + 1]) < 0xA0;
    if (Byte == '\n' || Text.substr(At, 2) == "\r\n") {
      Gap = true;
      continue;
    }
    if (Gap && !Result.empty()) Result += ' ';
    Gap = false;
    if (Second || Byte < ' ' || Byte == 0x7F)
      Result += "\\x" + HexText(Text.substr(Second ? ++At : At, 1));
    else
      Result += Text[At];
  }
  return Result;
}

std::string Joined(const std::vector<std::string>& Parts) {
  std::string Text;
  for (const std::string& Part : Parts) Text += (Text.empty() ? "" : " > ") + Shown(Part);
  return Text;
}

std::string RightAligned(const std::string& Text, size_t Width) {
  return (Text.size() < Width ? std::string(Width - Text.size(), ' ') : "") + Text;
}

class TTextTeller : public TTeller {
 public:
  TTextTeller(const TCallLog& Log, const TCallLogOptions& Options, bool Colour)
      : TTeller(Log, Options), Paint(Colour) {}

  std::string All() {
    if (Options.Process && (*Options.Process == 0 || *Options.Process > Log.Processes.size()))
      return "The log has " + Processes(Log.Processes.size()) + ".\n";
    Summary();
    for (size_t Index = 0; Index < Log.Processes.size(); ++Index)
      if (IsChosen(Options, Index)) Process(Index);
    if (Options.Call && !Found) Out += "\nNo call has the id " + std::to_string(*Options.Call) + ".\n";
    Strays();
    return std::move(Out);
  }

 private:
  static constexpr char Margin[] = "            ";  // below a time

  void Summary() {
    Out += Processes(Log.Processes.size()) + ", " + Counted(Log.Lines, "line") + ", " +
           Counted(Log.Calls.size(), "call") + ", " + Counted(Log.Failures.size(), "failure") + "\n";
    uint64_t Strays = 0;
    for (const TStrayLines& Each : Log.Strays) Strays += Each.Count;
    if (Strays) Out += Paint.Bad(Counted(Strays, "line") + " of other or damaged form") + "\n";
    if (Log.LastLineCut) Out += Paint.Bad("The last line is cut off.") + "\n";
  }

  static std::string Processes(size_t Number) {
    return Number == 1 ? "1 process" : std::to_string(Number) + " processes";
  }

  void Process(size_t Index) {
    const TLogProcess& Process = Log.Processes[Index];
    const std::vector<uint32_t> Wanted =
        Options.Call ? CallsWithId(Log, Process, *Options.Call) : std::vector<uint32_t>();
    if (Options.Call && Wanted.empty()) return;
    Found = true;
    Heading(Index);
    if (!Options.Call && Process.Failures > 0) {
      Out += "\n  " + Paint.Strong("Failures") + "\n";
      for (uint32_t Each = 0; Each < Process.Failures; ++Each) Failure(Log.Failures[Process.FirstFailure + Each]);
    }
    if (Options.Errors) return;
    Out += "\n  " + Paint.Strong("Calls") + Paint.Weak("  (! failed; in whole seconds, as the log tells)") + "\n";
    Out += "  " + Paint.Weak("time        took     id") + "\n";
    for (const uint32_t Call : Wanted) {
      if (Log.Calls[Call].Parent != NoIndex)
        Out += "  " + Paint.Weak("in " + Joined(Within(Log.Calls[Call].Parent))) + "\n";
      this->Call(Log.Calls[Call], 0);
    }
    if (!Options.Call) Inner(Process.FirstRoot, Process.FirstNote, 0);
  }

  void Heading(size_t Index) {
    const TLogProcess& Process = Log.Processes[Index];
    const std::string First = StampOf(Process.First), Last = StampOf(Process.Last);
    const bool SameDay = First.substr(0, DateSize) == Last.substr(0, DateSize);
    Out += "\n" +
           Paint.Strong("Process " + std::to_string(Index + 1) + "  " + First + " to " +
                        (SameDay ? Last.substr(DateSize) : Last)) +
           "  " + Counted(Process.Lines, "line") + ", " + Counted(Process.Calls, "call") + ", " +
           (Process.Failures ? Paint.Bad(Counted(Process.Failures, "failure")) : "no failures") + "\n";
  }

  void Failure(const TLogFailure& Failure) {
    const TFailureFacts Told = Facts(Failure);
    const std::string Error = Told.Number ? "error " + std::to_string(*Told.Number) + ": " : "";
    Out += "  " + Told.Time.substr(DateSize) + "  " + Paint.Bad(Error + Shown(Told.Text)) + "\n";
    if (!Told.File.empty()) Detail("file", Shown(Told.File));
    if (Told.Box)
      Detail("box", Shown(Told.Box->Text) + (Told.Box->Answer.empty() ? "" : " -> " + Shown(Told.Box->Answer)));
    if (!Told.Arguments.empty() && Told.Arguments != Told.File) Detail("given", Shown(Told.Arguments));
    if (Failure.Call == NoIndex) return Detail("line", std::to_string(Failure.Line));
    Detail("call", std::to_string(Log.Calls[Failure.Call].Id) + ", " + Joined(Told.Within));
    if (!Told.GoesOn.empty()) Detail("then", Shown(Told.GoesOn) + " went on");
  }

  void Detail(const char* What, const std::string& Text) {
    constexpr size_t Width = 6;
    Out += Margin + Paint.Weak(InColumn(What, Width)) + Text + "\n";
  }

  /// No deeper than TCallLog::MostDepth.
  void Inner(uint32_t FirstCall, uint32_t FirstNote, size_t Depth) {
    Walk(
        Log, FirstCall, FirstNote, [&](const TLogCall& Each) { Call(Each, Depth); },
        [&](const TLogNote& Note, size_t Times) { this->Note(Note, Times, Depth); });
  }

  void Call(const TLogCall& Call, size_t Depth) {
    const auto Took = Seconds(Call);
    std::string Line = Label(Call);
    const std::string Given = Arguments(Call), Said = Result(Call);
    if (!Given.empty()) Line += " " + Given;
    if (!Said.empty()) Line += " -> " + Said;
    Row(Call.Begin, Took ? std::to_string(*Took) + (Call.Ended == TCallEnd::Open ? "+ s" : " s") : "?",
        std::to_string(Call.Id), Call.Failed, Depth);
    Out += Call.Failed ? Paint.Bad(Shown(Line)) : Shown(Line);
    if (Options.Calls && Call.InnerLines) Out += Paint.Weak("  (" + Counted(Call.InnerLines, "line") + " inside)");
    Out += "\n";
    if (!Options.Calls || Options.Call) Inner(Call.FirstChild, Call.FirstNote, Depth + 1);
  }

  void Note(const TLogNote& Note, size_t Times, size_t Depth) {
    const std::string Name = Log.Names[Note.Name] == "Common" || Note.Call != NoIndex ? "" : NameText(Note.Name) + " ";
    const std::string Line = Name + Utf8(Note.Action) + ": " + Text(Note.Text);
    Row(Note.Time, "", "", false, Depth);
    Out += "- " + (Note.Action == "Exception" ? Paint.Bad(Shown(Line)) : Paint.Weak(Shown(Line))) +
           (Times > 1 ? "  (" + std::to_string(Times) + " times)" : "") + "\n";
  }

  void Row(int64_t Time, const std::string& Took, const std::string& Id, bool Failed, size_t Depth) {
    constexpr size_t TookWidth = 8, IdWidth = 7, Indent = 2;
    Out += "  " + ClockOf(Time) + RightAligned(Took, TookWidth) + Paint.Weak(RightAligned(Id, IdWidth)) +
           (Failed ? Paint.Bad(" ! ") : "   ") + std::string(Indent * Depth, ' ');
  }

  void Strays() {
    constexpr size_t MostShown = 20, MostBytes = 100;
    if (Log.Strays.empty()) return;
    Out += "\n" + Paint.Strong("Lines of other or damaged form") + "\n";
    for (size_t At = 0; At < std::min(MostShown, Log.Strays.size()); ++At) {
      const TStrayLines& Stray = Log.Strays[At];
      Out += "  " + Counted(Stray.Count, "line") + " from " + std::to_string(Stray.Line) + " on, offset " +
             std::to_string(Stray.Offset) + "  " + Shown(Utf8(Stray.Bytes.substr(0, MostBytes))) +
             (Stray.Bytes.size() > MostBytes ? " ..." : "") + "\n";
    }
    if (Log.Strays.size() > MostShown)
      Out += "  and in " + std::to_string(Log.Strays.size() - MostShown) + " more places\n";
  }

  TPaint Paint;
  std::string Out;
  bool Found = false;
};

// ---- The page

/// The data of the page: rows without names, because there may be many. The page's script knows the columns.
class TPageTeller : public TJsonTeller {
 public:
  using TJsonTeller::TJsonTeller;

  TJson Data(const std::string& Title) const {
    TJson Json = {{"title", ValidUtf8(Title)}, {"lines", Log.Lines}, {"cut", Log.LastLineCut}};
    Fill(Json["names"], Log.Names, [&](std::string_view Name) { return Utf8(Name); });
    Fill(Json["processes"], Log.Processes, [](const TLogProcess& Each) {
      return TJson::array({Each.First, Each.Last, Each.Lines, Each.FirstCall, Each.Calls, Each.Failures});
    });
    Fill(Json["calls"], Log.Calls, [&](const TLogCall& Each) {
      return TJson::array({Index(Each.Parent), Each.Name, Each.Id, Each.Line, Each.LastLine, Each.Begin, Each.End,
                           static_cast<int>(Each.Ended), Each.Failed ? 1 : 0, Text(Each.Words), Result(Each)});
    });
    Fill(Json["notes"], Log.Notes, [&](const TLogNote& Each) {
      return TJson::array(
          {Index(Each.Call), Each.Process, Each.Name, Each.Line, Each.Time, Utf8(Each.Action), Text(Each.Text)});
    });
    Fill(Json["failures"], Log.Failures, [&](const TLogFailure& Each) {
      TJson Told = Failure(Each);
      Told["at"] = Index(Each.Call);
      return Told;
    });
    Fill(Json["strays"], Log.Strays, [&](const TStrayLines& Each) {
      return TJson::array({Each.Line, Each.Count, Each.Offset, Utf8(Each.Bytes)});
    });
    return Json;
  }

 private:
  static int64_t Index(uint32_t Each) { return Each == NoIndex ? -1 : int64_t{Each}; }
  static void Fill(TJson& List, const auto& Elements, const auto& Row) {
    List = TJson::array();
    for (const auto& Each : Elements) List.push_back(Row(Each));
  }
};

/// JSON that cannot end the element that it stands in: only its texts can hold a "<".
std::string InScript(const TJson& Data) {
  std::string Result;
  for (const char Each : Data.dump()) {
    if (Each == '<')
      Result += "\\u003c";
    else
      Result += Each;
  }
  return Result;
}

}  // namespace

nlohmann::ordered_json CallLogJson(const TCallLog& Log, const TCallLogOptions& Options) {
  return TJsonTeller(Log, Options).All();
}

std::string CallLogText(const TCallLog& Log, const TCallLogOptions& Options, bool Colour) {
  return TTextTeller(Log, Options, Colour).All();
}

std::string CallLogPage(const TCallLog& Log, const TCallLogOptions& Options, const std::string& Title) {
  constexpr std::string_view Place = "{{data}}";
  const size_t At = Page.find(Place);
  return std::string(Page.substr(0, At)) + InScript(TPageTeller(Log, Options).Data(Title)) +
         std::string(Page.substr(At + Place.size()));
}
