#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The debug log as a tree of calls. Whatever is in it lies in a few lists, whose elements name one another by index,
/// and refers to the bytes that were read, which the caller keeps as long.

/// Where an index names nothing.
constexpr uint32_t NoIndex = UINT32_MAX;

/// How a call came to its end.
enum class TCallEnd : uint8_t {
  Told,         ///< it has its End line
  ByDesign,     ///< some routines end without one, and nothing went wrong
  Exception,    ///< an Exception line says why it did not come to its End line
  Unexplained,  ///< it is over without an End line, and no line says why: arguments that are refused leave none
  Open,         ///< its process has no more lines: it ended inside, or is still there
};

/// One call: what is between a Begin line and its End line. Times are local seconds since 1970; the log knows no less.
struct TLogCall {
  std::string_view Words;   ///< of the Begin line: the routine and its arguments
  std::string_view Result;  ///< of the End line, as it stands there
  int64_t Begin = 0;
  int64_t End = 0;  ///< of its End line; without one, of the last line that belongs to it
  uint32_t Name = 0, Process = 0;
  int32_t Id = 0;
  uint32_t Line = 0;      ///< of the Begin line, from 1 on
  uint32_t EndLine = 0;   ///< 0 without one
  uint32_t LastLine = 0;  ///< the End line, or the last one that belongs to it
  uint32_t Parent = NoIndex, FirstChild = NoIndex, Next = NoIndex;
  uint32_t FirstNote = NoIndex;
  uint32_t InnerCalls = 0, InnerLines = 0;  ///< at any depth
  uint8_t Depth = 0;
  TCallEnd Ended = TCallEnd::Open;
  bool Failed = false;   ///< it has an Exception line of its own, or ended as one that fails does
  bool Shallow = false;  ///< it was made deeper inside than is told: see MostDepth
};

/// A line that is neither Begin nor End of a call.
struct TLogNote {
  std::string_view Action, Text;
  int64_t Time = 0;
  uint32_t Name = 0, Process = 0;
  int32_t Id = 0;
  uint32_t Line = 0;
  uint32_t Call = NoIndex;  ///< the call that it belongs to
  uint32_t Next = NoIndex;  ///< the next one of that call, or of the process
};

/// Lines in a row that the system did not write, or that were damaged since.
struct TStrayLines {
  uint64_t Offset = 0;
  std::string_view Bytes;  ///< without the last line's end
  uint32_t Line = 0;       ///< of the first one
  uint32_t Count = 0;
};

/// What went wrong first: an Exception line, or a call that ended without a word. The calls around it that failed for
/// the same reason count with it.
struct TLogFailure {
  uint32_t Call = NoIndex;  ///< the innermost one
  uint32_t Note = NoIndex;  ///< the Exception line
  uint32_t Line = 0;
};

/// One process, whose call ids begin with 1.
struct TLogProcess {
  int64_t First = 0, Last = 0;                        ///< the times of its lines
  uint32_t Lines = 0;                                 ///< without stray ones
  uint32_t FirstCall = 0, Calls = 0;                  ///< its calls stand side by side in the list
  uint32_t FirstFailure = 0, Failures = 0;            ///< and so do its failures
  uint32_t FirstRoot = NoIndex, FirstNote = NoIndex;  ///< the outermost calls; the lines that belong to no call
};

struct TCallLog {
  /// Calls that are made deeper inside are told beside the last that is not.
  static constexpr uint8_t MostDepth = 64;
  /// More Exception lines of one call are no failures of their own.
  static constexpr uint32_t MostFailuresOfCall = 16;

  std::vector<TLogProcess> Processes;
  std::vector<TLogCall> Calls;  ///< in the order of their Begin lines, so a call stands behind the one that made it
  std::vector<TLogNote> Notes;  ///< in the order of the file, as all other lists
  std::vector<TStrayLines> Strays;
  std::vector<TLogFailure> Failures;
  std::vector<std::string_view> Names;  ///< of the components that wrote the lines
  uint32_t Lines = 0;
  bool LastLineCut = false;  ///< the last line does not end
};

/// Reads a log. Total: a line that is not the system's is kept as a stray one, and each line is in exactly one place.
/// A log takes as much memory as its bytes have, once more while it is read; the worst bytes sixteen times as much.
///
/// Calls are nested by the order of their lines, within their process. What several threads do at once cannot be told
/// apart: a call of one may stand inside a call of another one that lasted longer.
TCallLog ReadCallLog(std::string_view Bytes);

/// What is told of a log, and how.
struct TCallLogOptions {
  bool Errors = false;              ///< only what failed
  bool Calls = false;               ///< the outermost calls, one line each
  std::optional<int32_t> Call;      ///< all calls with this id, with everything inside
  std::optional<uint32_t> Process;  ///< only the process with this number, from 1 on
  /// Makes UTF-8 of the log's code page, of which ASCII is a part. Without it, the log is UTF-8.
  std::function<std::string(std::string_view)> ToUtf8;
};

/// For programs. Valid UTF-8 whatever the log holds. Throws nothing but std::bad_alloc: all calls of a log take some
/// twelve times its bytes.
nlohmann::ordered_json CallLogJson(const TCallLog& Log, const TCallLogOptions& Options);
/// For people, in UTF-8: failures first, then the calls. No text of the log reaches the terminal as a control
/// character.
std::string CallLogText(const TCallLog& Log, const TCallLogOptions& Options, bool Colour);
/// One HTML page that needs nothing else, with a title in UTF-8. All of the log is in it, whatever the options say;
/// they tell the code page.
std::string CallLogPage(const TCallLog& Log, const TCallLogOptions& Options, const std::string& Title);
