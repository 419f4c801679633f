#include "mendctl/call_log.h"

#include "formats/log_line.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <unordered_map>

namespace {

/// Who writes lines under a name.
enum class TWriter : uint8_t {
  Client,   ///< somebody outside, in his own words
  Wrapper,  ///< the retry layer, which only the library calls
  Service,  ///< a class that others of the library call, too
  Change,   ///< a class that only clients call
};

TWriter WriterOf(std::string_view Name) {
  constexpr std::string_view Changes[] = {"UFile", "URegistry", "UCom", "UGarbage", "UMacro", "UInno"};
  constexpr std::string_view Classes[] = {
#define CLASS(Name, Id) #Name,
#include "server/class_ids.inc"
#undef CLASS
  };
  if (Name == "Common") return TWriter::Wrapper;
  if (std::ranges::find(Changes, Name) != std::end(Changes)) return TWriter::Change;
  return std::ranges::find(Classes, Name) != std::end(Classes) ? TWriter::Service : TWriter::Client;
}

int64_t SecondsOf(const TLogTime& Time) {
  using namespace std::chrono;
  const auto Day = year(Time.Year) / static_cast<int>(Time.Month) / static_cast<int>(Time.Day);
  constexpr int64_t SecondsOfMinute = 60, MinutesOfHour = 60, SecondsOfDay = 86400;
  return sys_days(Day).time_since_epoch().count() * SecondsOfDay +
         (Time.Hour * MinutesOfHour + Time.Minute) * SecondsOfMinute + Time.Second;
}

std::string_view RoutineOf(std::string_view Words) { return Words.substr(0, Words.find(' ')); }
std::string_view ArgumentsOf(std::string_view Words) {
  return Words.substr(std::min(Words.size(), RoutineOf(Words).size() + 1));
}

bool Contains(std::string_view Text, std::string_view Part) { return Text.find(Part) != std::string_view::npos; }

// ---- Lines

/// Where the lines end. The system ends them with CR LF, and one inside a text would not be one: a file without any CR
/// LF has been through something that made LF of it.
class TLineSplitter {
 public:
  explicit TLineSplitter(std::string_view Bytes) : Bytes(Bytes), Break(Contains(Bytes, "\r\n") ? "\r\n" : "\n") {}

  bool AtEnd() const { return At == Bytes.size(); }
  uint64_t Offset() const { return At; }
  /// The next line without its end; `Whole` tells whether it had one.
  std::string_view Take(bool& Whole) {
    const size_t End = Bytes.find(Break, At);
    Whole = End != std::string_view::npos;
    const std::string_view Line = Bytes.substr(At, Whole ? End - At : End);
    At = Whole ? End + Break.size() : Bytes.size();
    return Line;
  }

 private:
  std::string_view Bytes, Break;
  size_t At = 0;
};

/// What a line is, for the order of all of them.
enum class TEventKind : uint8_t { Begin, End, Note };
struct TEvent {
  uint32_t Index : 30;  ///< of the call or note
  uint32_t Kind : 2;
};

/// Who a call is within the log. A client may give his calls any number, so the name counts.
struct TCallKey {
  uint32_t Process, Id, Name;
  bool operator==(const TCallKey&) const = default;
};
struct TCallKeyHash {
  size_t operator()(const TCallKey& Key) const {
    constexpr uint64_t Spread = 0x9E3779B97F4A7C15;
    const uint64_t Mixed = ((uint64_t{Key.Process} << 32 | Key.Id) ^ uint64_t{Key.Name} << 17) * Spread;
    return static_cast<size_t>(Mixed ^ Mixed >> 32);
  }
};

/// The first pass: the lines, the processes, and which End line belongs to which Begin line. Nothing is nested yet.
class TLineReader {
 public:
  explicit TLineReader(TCallLog& Log) : Log(Log) {}

  void Read(std::string_view Bytes) {
    for (TLineSplitter Lines(Bytes); !Lines.AtEnd();) {
      const uint64_t Offset = Lines.Offset();
      bool Whole = true;
      const std::string_view Text = Lines.Take(Whole);
      Log.LastLineCut = !Whole;
      ++Log.Lines;
      if (const auto Line = ParseLogLine(Text))
        Put(*Line);
      else
        PutStray(Bytes, Offset, Text.size());
    }
  }

  std::vector<TEvent> Events;
  std::vector<TWriter> Writers;  ///< of the names

 private:
  void Put(const TLogLine& Line) {
    const uint32_t Name = NameIndex(Line.Name);
    const bool Begins = Line.Action == "Begin", Ends = Line.Action == "End";
    const TWriter Writer = Writers[Name];
    if (Writer != TWriter::Client && Begins) LookForRestart(Line.Id);
    const int64_t Time = SecondsOf(Line.Time);
    CountLine(Time);
    const TCallKey Key{ProcessIndex(), static_cast<uint32_t>(Line.Id), Writer == TWriter::Client ? Name : NoIndex};
    if (Begins)
      PutBegin(Line, Key, Name, Time);
    else if (Ends && IsKnownCall(Key))
      PutEnd(Line, Key, Time);
    else
      PutNote(Line, Key, Name, Time);
  }

  /// The call ids of a process begin with 1, so one that was used before belongs to the next process. One that is lower
  /// than others and was not used is that of a thread which took its number and came late with its line.
  void LookForRestart(int32_t Id) {
    constexpr int32_t EarlyThreads = 64;
    if (Log.Processes.empty()) AddProcess();
    const bool Used = Ids.contains({ProcessIndex(), static_cast<uint32_t>(Id), NoIndex});
    if (Used || (Id == 1 && LargestId > EarlyThreads)) AddProcess();
    LargestId = std::max(LargestId, Id);
  }

  void AddProcess() {
    Log.Processes.emplace_back();
    LargestId = 0;
  }

  void CountLine(int64_t Time) {
    if (Log.Processes.empty()) AddProcess();
    TLogProcess& Process = Log.Processes.back();
    if (Process.Lines++ == 0) Process.First = Time;
    Process.Last = Time;
  }

  void PutStray(std::string_view Bytes, uint64_t Offset, size_t Size) {
    const bool GoesOn = !Log.Strays.empty() && Log.Strays.back().Line + Log.Strays.back().Count == Log.Lines;
    if (!GoesOn) Log.Strays.push_back({Offset, {}, Log.Lines, 0});
    TStrayLines& Strays = Log.Strays.back();
    Strays.Bytes = Bytes.substr(static_cast<size_t>(Strays.Offset), static_cast<size_t>(Offset + Size - Strays.Offset));
    ++Strays.Count;
  }

  void PutBegin(const TLogLine& Line, const TCallKey& Key, uint32_t Name, int64_t Time) {
    const uint32_t Index = static_cast<uint32_t>(Log.Calls.size());
    TLogProcess& Process = Log.Processes.back();
    if (Process.Calls++ == 0) Process.FirstCall = Index;
    TLogCall& Call = Log.Calls.emplace_back();
    Call.Words = Line.Text;
    Call.Begin = Call.End = Time;
    Call.Name = Name;
    Call.Process = Key.Process;
    Call.Id = Line.Id;
    Call.Line = Call.LastLine = Log.Lines;
    const auto [Place, New] = Ids.try_emplace(Key, Index);
    if (!New) {
      Shadowed[Index] = Place->second;
      Place->second = Index;
    }
    PutEvent(TEventKind::Begin, Index);
  }

  bool IsKnownCall(const TCallKey& Key) const {
    const auto Known = Ids.find(Key);
    return Known != Ids.end() && Known->second != NoIndex && Log.Calls[Known->second].EndLine == 0;
  }

  void PutEnd(const TLogLine& Line, const TCallKey& Key, int64_t Time) {
    uint32_t& Known = Ids.find(Key)->second;
    const uint32_t Index = Known;
    TLogCall& Call = Log.Calls[Index];
    Call.Result = Line.Text;
    Call.End = Time;
    Call.EndLine = Call.LastLine = Log.Lines;
    Call.Ended = TCallEnd::Told;
    if (const auto Outer = Shadowed.find(Index); Outer != Shadowed.end()) {
      Known = Outer->second;
      Shadowed.erase(Outer);
    }
    PutEvent(TEventKind::End, Index);
  }

  void PutNote(const TLogLine& Line, const TCallKey& Key, uint32_t Name, int64_t Time) {
    const auto [Known, New] = Ids.try_emplace(Key, NoIndex);
    PutEvent(TEventKind::Note, static_cast<uint32_t>(Log.Notes.size()));
    Log.Notes.push_back({Line.Action, Line.Text, Time, Name, Key.Process, Line.Id, Log.Lines, Known->second, NoIndex});
  }

  void PutEvent(TEventKind Kind, uint32_t Index) { Events.push_back({Index, static_cast<uint32_t>(Kind)}); }

  uint32_t ProcessIndex() const { return static_cast<uint32_t>(Log.Processes.size()) - 1; }

  uint32_t NameIndex(std::string_view Name) {
    if (LastName < Log.Names.size() && Log.Names[LastName] == Name) return LastName;
    const auto [Place, New] = NameIndexes.try_emplace(Name, static_cast<uint32_t>(Log.Names.size()));
    if (New) {
      Log.Names.push_back(Name);
      Writers.push_back(WriterOf(Name));
    }
    return LastName = Place->second;
  }

  TCallLog& Log;
  /// The calls by their ids, in all processes; an id that only a line without a call used has no index.
  std::unordered_map<TCallKey, uint32_t, TCallKeyHash> Ids;
  /// The call that was open under the number of a later one; clients' only.
  std::unordered_map<uint32_t, uint32_t> Shadowed;
  std::unordered_map<std::string_view, uint32_t> NameIndexes;
  uint32_t LastName = NoIndex;
  int32_t LargestId = 0;
};

// ---- Nesting

/// The second pass, over one process after the other: which call is made in which, and how those without an End line
/// ended. It knows in advance which calls have one.
class TNesting {
 public:
  TNesting(TCallLog& Log, const std::vector<TWriter>& Writers)
      : Log(Log), Writers(Writers), Over(Log.Calls.size()), Children(Log.Calls.size()), Exceptions(Log.Calls.size()) {}

  void Put(const TEvent& Event) {
    const uint32_t Process = Event.Kind == static_cast<uint32_t>(TEventKind::Note) ? Log.Notes[Event.Index].Process
                                                                                   : Log.Calls[Event.Index].Process;
    if (Process != Current) Finish();
    Current = Process;
    switch (static_cast<TEventKind>(Event.Kind)) {
      case TEventKind::Begin:
        return Begin(Event.Index);
      case TEventKind::End:
        return End(Event.Index);
      case TEventKind::Note:
        return Note(Event.Index);
    }
  }

  /// The process has no more lines.
  void Finish() {
    CloseSilent(nullptr, false);
    Sweep(TCallEnd::Open, [](uint32_t) { return true; });
  }

 private:
  /// So many open calls are looked at when one of a kind is sought: a file whose calls never end must not cost more.
  static constexpr size_t Reach = 64;

  bool Ends(uint32_t Call) const { return Log.Calls[Call].EndLine != 0; }
  TWriter WriterOfCall(uint32_t Call) const { return Writers[Log.Calls[Call].Name]; }

  void Begin(uint32_t Index) {
    TLogCall& Call = Log.Calls[Index];
    CloseSilent(&Call, false);
    const TWriter Writer = Writers[Call.Name];
    const bool FromOutside = Writer == TWriter::Client || (Writer == TWriter::Change && IsOutermost(Call));
    if (FromOutside) CloseUpToClient();
    SetParent(Index, ParentOf(Call, FromOutside));
    if (Writer == TWriter::Client && !Ends(Index))
      Call.Ended = TCallEnd::ByDesign;  // who has his own words need not have a word for the end
    else
      Open.push_back(Index);
  }

  void End(uint32_t Index) {
    CloseSilent(nullptr, false);
    CloseAbove(Index);
    Over[Index] = true;
    DropOver();
  }

  void Note(uint32_t Index) {
    TLogNote& Note = Log.Notes[Index];
    const bool Own = Note.Call != NoIndex && !Over[Note.Call];
    const bool Client = Writers[Note.Name] == TWriter::Client;
    const bool Exception = !Client && Note.Action == "Exception";
    CloseSilent(nullptr, Exception && !Own);
    if (Own) {
      CloseAbove(Note.Call);
    } else if (Client) {
      CloseUpToClient();
      Note.Call = InnermostClient();
    } else {
      Note.Call = Open.empty() || Note.Action == "End" ? NoIndex : Open.back();
    }
    if (Note.Call != NoIndex) Extend(Log.Calls[Note.Call], Note.Line, Note.Time);
    if (!Exception) return;
    if (Note.Call == NoIndex || Exceptions[Note.Call]++ < TCallLog::MostFailuresOfCall)
      Log.Failures.push_back({Note.Call, Index, Note.Line});
    if (Note.Call != NoIndex) Log.Calls[Note.Call].Failed = true;
    if (!Own) Strike(Note);
  }

  /// A failure is on its way out: it ends all calls up to the one that goes on, which has an End line.
  void Strike(const TLogNote& Note) {
    while (!Open.empty() && !Ends(Open.back())) {
      Extend(Log.Calls[Open.back()], Note.Line, Note.Time);
      Close(TCallEnd::Exception);
    }
  }

  // -- Calls that are over without an End line

  static void Extend(TLogCall& Call, uint32_t Line, int64_t Time) {
    if (Call.EndLine != 0) return;
    Call.LastLine = Line;
    Call.End = Time;
  }

  void Close(TCallEnd How) {
    TLogCall& Call = Log.Calls[Open.back()];
    if (Call.EndLine == 0) {
      Call.Ended = How;
      Call.Failed = Call.Failed || How != TCallEnd::ByDesign;
    }
    Over[Open.back()] = true;
    DropOver();
  }

  void DropOver() {
    while (!Open.empty() && Over[Open.back()]) Open.pop_back();
  }

  /// Closes open calls, innermost first, up to one that ends later or is none of those. The innermost one is where it
  /// went wrong.
  void Sweep(TCallEnd How, const auto& IsOne) {
    for (bool First = true; !Open.empty() && !Ends(Open.back()) && IsOne(Open.back()); First = false) {
      if (First) Log.Failures.push_back({Open.back(), NoIndex, Log.Calls[Open.back()].Line});
      Close(How);
    }
  }

  /// A line of `Call` shows that it goes on, so whatever it made is over.
  void CloseAbove(uint32_t Call) {
    Sweep(TCallEnd::Unexplained, [&](uint32_t Each) { return Each > Call; });
  }

  /// A client speaks, or calls: nothing of the library is open but what other threads do.
  void CloseUpToClient() {
    Sweep(TCallEnd::Unexplained, [&](uint32_t Each) { return WriterOfCall(Each) != TWriter::Client; });
  }

  /// The routines that end without an End line by design; what comes behind them shows that they did. `Next` is the
  /// call that begins now, if one does.
  void CloseSilent(const TLogCall* Next, bool Exception) {
    while (!Open.empty() && !Ends(Open.back()) && EndedSilently(Open.back(), Next, Exception))
      Close(TCallEnd::ByDesign);
  }

  bool EndedSilently(uint32_t Index, const TLogCall* Next, bool Exception) const {
    const TLogCall& Call = Log.Calls[Index];
    const std::string_view Name = Log.Names[Call.Name], Routine = RoutineOf(Call.Words);
    const bool NextIsWrapper = Next && Writers[Next->Name] == TWriter::Wrapper;
    if (Name == "Common" &&
        Routine == "RetryForceDirectories")  // the walk goes up with the same routine, or is at its end
      return Children[Index] == 0 && !(NextIsWrapper && RoutineOf(Next->Words) == Routine &&
                                       ArgumentsOf(Call.Words).starts_with(ArgumentsOf(Next->Words)));
    const bool Walk = Name == "UTransactionLog" && Routine == "Rollback";
    const bool Group = Name == "UHistory" && (Routine == "Get" || Routine == "DeleteLastRecord");
    // With a file they open it next.
    return (Walk || Group) && Children[Index] == 1 && !Exception &&
           !(NextIsWrapper && RoutineOf(Next->Words) == "RetryCreateFile" &&
             Contains(Next->Words, Walk ? "\\update.prt " : ArgumentsOf(Call.Words)));
  }

  // -- Where a call belongs

  /// Whether a call of a class for clients comes from a client, and not from the same class or a rollback.
  bool IsOutermost(const TLogCall& Call) const {
    if (RoutineOf(Call.Words) == "Rollback") return false;
    size_t Seen = 0;
    for (auto Each = Open.rbegin(); Each != Open.rend() && Seen < Reach; ++Each, ++Seen) {
      const TLogCall& Outer = Log.Calls[*Each];
      if (!Over[*Each] && Outer.Name == Call.Name) return !Outer.EndLine && !CanMake(Outer, Call);
    }
    return true;
  }

  /// Whether a routine of a class is one that the other one calls.
  static bool CanMake(const TLogCall& Outer, const TLogCall& Inner) {
    constexpr std::string_view OnlyInside[] = {"CopySomeFile", "DeleteSomeFiles", "DeleteEmptyDirectory",
                                               "WriteToGrbFile", "DeleteDuplicatesInLists"};
    constexpr std::string_view Logged = "Logged";
    const std::string_view Routine = RoutineOf(Inner.Words), Whole = RoutineOf(Outer.Words);
    const bool IsLogged = Whole.ends_with(Logged);
    const std::string_view Plain = Whole.substr(0, Whole.size() - (IsLogged ? Logged.size() : 0));
    const bool ByExtension = (Plain == "Reg" || Plain == "UnReg") && Routine.starts_with(Plain) && Routine != Plain;
    return std::ranges::find(OnlyInside, Routine) != std::end(OnlyInside) || Whole == "Rollback" ||
           (IsLogged && Routine == Plain) || (ByExtension && Routine.ends_with(Logged) == IsLogged);
  }

  /// The innermost call that is open long enough; of a client, when the new one comes from outside.
  uint32_t ParentOf(const TLogCall& Call, bool FromOutside) const {
    size_t Seen = 0;
    for (auto Each = Open.rbegin(); Each != Open.rend() && Seen < Reach; ++Each, ++Seen) {
      const TLogCall& Outer = Log.Calls[*Each];
      const bool LastsLonger = !Outer.EndLine || Outer.EndLine > Call.EndLine;
      if (!Over[*Each] && LastsLonger && (!FromOutside || WriterOfCall(*Each) == TWriter::Client)) return *Each;
    }
    return NoIndex;
  }

  uint32_t InnermostClient() const {
    size_t Seen = 0;
    for (auto Each = Open.rbegin(); Each != Open.rend() && Seen < Reach; ++Each, ++Seen)
      if (!Over[*Each] && WriterOfCall(*Each) == TWriter::Client) return *Each;
    return NoIndex;
  }

  void SetParent(uint32_t Index, uint32_t Parent) {
    if (Parent == NoIndex) return;
    ++Children[Parent];
    TLogCall& Call = Log.Calls[Index];
    Call.Shallow = Log.Calls[Parent].Depth == TCallLog::MostDepth;
    Call.Parent = Call.Shallow ? Log.Calls[Parent].Parent : Parent;
    Call.Depth = Log.Calls[Call.Parent].Depth + 1;
  }

  TCallLog& Log;
  const std::vector<TWriter>& Writers;
  std::vector<bool> Over;
  std::vector<uint32_t> Children;    ///< how many calls each has made
  std::vector<uint32_t> Exceptions;  ///< how many lines of the kind each has
  std::vector<uint32_t> Open;        ///< innermost last; with some that are over
  uint32_t Current = 0;
};

// ---- What follows from the nesting

void LinkCalls(TCallLog& Log) {
  for (size_t Index = Log.Calls.size(); Index-- > 0;) {
    TLogCall& Call = Log.Calls[Index];
    uint32_t& First =
        Call.Parent == NoIndex ? Log.Processes[Call.Process].FirstRoot : Log.Calls[Call.Parent].FirstChild;
    Call.Next = First;
    First = static_cast<uint32_t>(Index);
    if (Call.Parent == NoIndex) continue;
    TLogCall& Parent = Log.Calls[Call.Parent];
    Parent.InnerCalls += Call.InnerCalls + 1;
    Parent.InnerLines += Call.InnerLines + 1 + (Call.EndLine ? 1 : 0);
    if (Parent.EndLine || Call.LastLine <= Parent.LastLine) continue;
    Parent.LastLine = Call.LastLine;
    Parent.End = Call.End;
  }
}

void LinkNotes(TCallLog& Log) {
  for (size_t Index = Log.Notes.size(); Index-- > 0;) {
    TLogNote& Note = Log.Notes[Index];
    uint32_t& First = Note.Call == NoIndex ? Log.Processes[Note.Process].FirstNote : Log.Calls[Note.Call].FirstNote;
    Note.Next = First;
    First = static_cast<uint32_t>(Index);
    if (Note.Call != NoIndex) ++Log.Calls[Note.Call].InnerLines;
  }
}

void CountFailures(TCallLog& Log) {
  std::ranges::sort(Log.Failures, {}, &TLogFailure::Line);
  for (uint32_t Index = 0; Index < Log.Failures.size(); ++Index) {
    const TLogFailure& Failure = Log.Failures[Index];
    TLogProcess& Process =
        Log.Processes[Failure.Note == NoIndex ? Log.Calls[Failure.Call].Process : Log.Notes[Failure.Note].Process];
    if (Process.Failures++ == 0) Process.FirstFailure = Index;
  }
}

}  // namespace

TCallLog ReadCallLog(std::string_view Bytes) {
  TCallLog Log;
  TLineReader Reader(Log);
  Reader.Read(Bytes);
  TNesting Nesting(Log, Reader.Writers);
  for (const TEvent& Event : Reader.Events) Nesting.Put(Event);
  Nesting.Finish();
  LinkNotes(Log);
  LinkCalls(Log);
  CountFailures(Log);
  return Log;
}
