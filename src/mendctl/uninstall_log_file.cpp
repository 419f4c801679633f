// mendctl uninstall-log

#include "mendctl/uninstall_log_file.h"

#include "base/numbers.h"
#include "formats/comma_text.h"
#include "mendctl/commands.h"

#include <algorithm>

namespace {

/// The log is read where it is, and never written.
class TReadOnlyFile final : public TCustomFile {
 public:
  explicit TReadOnlyFile(const std::filesystem::path& Path) : File(Path) {}
  uint64_t GetPosition() override { return Position; }
  uint64_t GetSize() override { return File.Size(); }
  uint32_t Read(void* Buffer, uint32_t Count) override {
    const size_t Got = File.ReadAt(Position, Buffer, Count);
    Position += Got;
    return static_cast<uint32_t>(Got);
  }
  void Seek(uint64_t NewPosition) override { Position = NewPosition; }
  uint32_t Write(const void*, uint32_t) override { throw EFileError{AccessDenied}; }
  void Truncate() override { throw EFileError{AccessDenied}; }
  void Flush() override {}

 private:
  static constexpr uint32_t AccessDenied = 5;
  const TReadableFile File;
  uint64_t Position = 0;
};

const char* WordsOf(TUninstallLogFault Fault) {
  switch (Fault) {
    case TUninstallLogFault::NotALog:
      return "it is no uninstall log";
    case TUninstallLogFault::HeaderChecksum:
      return "the checksum of its header is wrong";
    case TUninstallLogFault::LaterVersion:
      return "it is of a later version than is known";
    case TUninstallLogFault::BlockHeader:
      return "the header of a block is damaged";
    case TUninstallLogFault::BlockChecksum:
      return "the checksum of a block is wrong";
    case TUninstallLogFault::EndsTooEarly:
      return "it ends before its last record";
    case TUninstallLogFault::EndOutsideFile:
      return "its header names an end outside the file";
    case TUninstallLogFault::SomethingBehind:
      return "something follows its last record";
    case TUninstallLogFault::TooLarge:
      return "it is too large for its own fields";
  }
  return "it is damaged";
}

/// The names that updates have listed for the log, ever: the history keeps every state of the two lists.
std::set<std::string> ListedByUpdates(const TContext& Context) {
  std::set<std::string> Names;
  const TItemReaderOf Reader(Context.State);
  for (const THistoryGroup& Group : Context.State.Groups()) {
    if (Group.Id != InstalledFilesGroupId && Group.Id != InstalledServersGroupId) continue;
    for (const TLogRecord& Record : Group.File.Records) {
      const TSaved Saved = Reader.Read(TLayout::FileName, Record.DataID);
      if (!Saved.Text) continue;
      for (std::string& Name : ParseCommaText(*Saved.Text)) Names.insert(std::move(Name));
    }
  }
  return Names;
}

const char* KindOf(const TUninstallRecord& Record) {
  if (Record.RecordType != DeleteFileRecord) return "other";
  switch (Record.ExtraValue) {
    case PlainFile:
      return "file";
    case ComServer:
      return "COM server";
    case TypeLibrary:
      return "type library";
    default:
      return "file, with flags of the installer";
  }
}

/// The version of the format, as the header has it; 0 when there was none to be read.
uint32_t VersionOf(const TUninstallLog& Log) {
  constexpr size_t VersionAt = 320;
  return Log.LoadedHeader.size() < VersionAt + sizeof(uint32_t) ? 0 : NumberAt<uint32_t>(&Log.LoadedHeader[VersionAt]);
}

}  // namespace

std::string TUninstallLogFile::Words() const {
  if (State == "missing") return "missing";
  const std::string Records = Log ? Counted(static_cast<uint64_t>(Log->Count()), "record") : "";
  return State == "whole" ? Records + ", whole" : State + ": " + Why;
}

TUninstallLogFile ReadUninstallLog(const std::filesystem::path& Path) {
  TUninstallLogFile Result;
  try {
    Result.State = "missing";
    if (!TMachine::LookAt(Path)) return Result;
    TReadOnlyFile File(Path);
    Result.Log = std::make_unique<TUninstallLog>();
    Result.State = "damaged";
    Result.Log->Load(File);
    Result.State = "whole";
  } catch (const EUninstallLogError& Error) {
    Result.Why = WordsOf(Error.Reason);
  } catch (const EFileError& Error) {
    Result.Why = "a read failed with code " + std::to_string(Error.Code);
  } catch (const ECannotRead& Failure) {
    Result.State = "unreadable";
    Result.Why = Failure.Why;
  }
  return Result;
}

TReport UninstallLog(const TContext& Context) {
  const TUninstallLogFile File = ReadUninstallLog(Context.State.UninstallLog);
  const std::string Name = NameOf(Context.State.UninstallLog);
  if (File.State == "missing") throw ECannotRead{Name, 0, "there is no uninstall log"};
  if (File.State == "unreadable") throw ECannotRead{Name, 0, File.Why};
  const auto Utf8 = [&](const std::string& Text) { return Context.Machine.ToUtf8(Text); };
  const std::set<std::string> Listed = ListedByUpdates(Context);
  const TUninstallLog& Log = *File.Log;
  TReport Report;
  Report.Status = File.State == "whole" ? Fine : FoundSomething;
  Report.Data = {{"file", Name},
                 {"state", File.State},
                 {"why", File.Why},
                 {"application", Utf8(Log.ApplicationName)},
                 {"application_id", Utf8(Log.ApplicationId)},
                 {"version", VersionOf(Log)},
                 {"bits", Log.Is64Bit ? 64 : 32},
                 {"flags", Log.Flags},
                 {"records", TJson::array()}};
  size_t Number = 0, ByUpdates = 0;
  std::string Lines;
  for (const TUninstallRecord* Record = Log.First(); Record; Record = Record->Next) {
    constexpr size_t MostStrings = 16;
    std::vector<std::string> Strings(MostStrings);
    Strings.resize(TUninstallLog::ExtractRecordStrings(*Record, Strings));
    const bool Ours = Record->RecordType == DeleteFileRecord && Strings.size() == 1 && Listed.contains(Strings[0]);
    ByUpdates += Ours ? 1 : 0;
    TJson Texts = TJson::array();
    std::string Joined;
    for (const std::string& Text : Strings) {
      Texts.push_back(Utf8(Text));
      Joined += (Joined.empty() ? "" : ", ") + Utf8(Text);
    }
    Report.Data["records"].push_back({{"number", ++Number},
                                      {"type", Record->RecordType},
                                      {"kind", KindOf(*Record)},
                                      {"extra", Record->ExtraValue},
                                      {"bytes", Record->DataSize},
                                      {"texts", Texts},
                                      {"added_by_update", Ours}});
    Lines += InColumn(std::to_string(Number), 6) + " " + (Ours ? Context.Paint.Strong("update") : "      ") + "  " +
             InColumn(KindOf(*Record), 12) + " " + (Joined.empty() ? Counted(Record->DataSize, "byte") : Joined) + "\n";
  }
  Report.Data["added_by_updates"] = ByUpdates;
  Report.Text = Utf8(Log.ApplicationName) + " (" + Utf8(Log.ApplicationId) + "), " + (Log.Is64Bit ? "64" : "32") +
                " bit, format " + std::to_string(VersionOf(Log)) + ", " + File.Words() + "; " +
                Counted(ByUpdates, "record") + " added by updates\n" + Lines;
  if (File.State != "whole") Report.Text += Context.Paint.Bad(Name + ": " + File.Why) + "\n";
  return Report;
}
