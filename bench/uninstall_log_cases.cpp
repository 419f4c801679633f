// The uninstall log: its format by itself, and what ProcessInno makes of a large one.

#include "base/text.h"
#include "bench.h"
#include "formats/comma_text.h"
#include "formats/log_record.h"
#include "formats/uninstall_log.h"
#include "support/memory_file.h"
#include "uninstall_log_speed.h"

#include <sstream>

namespace {

constexpr int ManyRecords = 200000, FewNames = 1000, ManyNames = 10000;

/// A debug log that notes when ProcessInno gets to its duplicates, and when it is done with them.
class TClockLog final : public TDouble<IUDebugLog> {
 public:
  STDMETHOD(Put)(long, BSTR, BSTR Action, BSTR Text) override {
    const double Time = Now();
    if (ViewOf(Text) == L"ProcessInno" && ViewOf(Action) == L"Begin") Begin = Time;
    if (ViewOf(Text) == L"DeleteDuplicatesInLists") (ViewOf(Action) == L"Begin" ? PassBegin : PassEnd) = Time;
    return S_OK;
  }
  double Begin = 0, PassBegin = 0, PassEnd = 0;
};

std::string NameInLog(int At) {
  constexpr size_t NameLength = 155;
  std::string Name = "C:\\Program Files\\Orvane\\" + std::to_string(At) + "-";
  Name.resize(NameLength, 'm');
  return Name;
}

/// Writes the saved list as a former process would have left it; every other name is in the log already.
void PlantList(const TBench& Bench, int Names) {
  const GUID Group = Guid("{5C1E8A42-7D3B-4F69-A0E2-91B4C6D8F031}"), DataID = NumberedGuid(1);
  std::vector<std::string> List;
  for (int At = 0; At < Names; ++At)
    List.push_back(At % 2 ? "C:\\New\\" + std::to_string(At) : NameInLog(At * (ManyRecords / Names)));
  const TLogRecordBytes Record = EncodeRecord({BytesOf(Group), 0, BytesOf(DataID)});
  Write(Bench.Service("History\\" + GuidText(Group)), std::string(Record.begin(), Record.end()));
  Write(Bench.Service("Backup\\" + GuidText(DataID)), std::string("\1\0\0\0", 4) + MakeCommaText(List));
}

struct TTimes {
  double Load, Pass, Yardstick;
};
TTimes TimesOfChild(const TBench& Bench, int Names) {
  const std::string ResultName = Bench.Work("times.txt");
  RunOwnProgram("--process-and-tell-times " + std::to_string(Names) + " " + ResultName);
  std::istringstream Result(Read(ResultName));
  TTimes Times{};
  Result >> Times.Load >> Times.Pass >> Times.Yardstick;
  DeleteFileA(ResultName.c_str());
  return Times;
}

}  // namespace

TResult LogLoad(const TBench& Bench) { return UninstallLogLoad(Bench.Quick); }
TResult LogSave(const TBench& Bench) { return UninstallLogSave(Bench.Quick); }
TResult LogGrowth(const TBench& Bench) { return UninstallLogGrowth(Bench.Quick); }

TResult DuplicatePass(const TBench& Bench) {
  TSamples Few, Many;
  for (int Round = 0; Round < (Bench.Quick ? 1 : 5); ++Round) {
    Few.Add(TimesOfChild(Bench, FewNames).Pass);
    Many.Add(TimesOfChild(Bench, ManyNames).Pass);
  }
  return {Many.Over(Few).Median(),
          Many.Count(),
          {{"10,000 names", Many.Median() / 1e3, "ms"}, {"1,000 names", Few.Median() / 1e3, "ms"}}};
}

TResult LogLoadFromFile(const TBench& Bench) {
  TSamples Loads, Yardsticks;
  for (int Round = 0; Round < (Bench.Quick ? 1 : 7); ++Round) {
    const TTimes Times = TimesOfChild(Bench, 0);
    Loads.Add(Times.Load);
    Yardsticks.Add(Times.Yardstick);
  }
  return {
      Loads.Over(Yardsticks).Median(),
      Loads.Count(),
      {{"the file read", Loads.Median() / 1e3, "ms"}, {"zlib's crc32 and a copy", Yardsticks.Median() / 1e3, "ms"}}};
}

void ProcessAndTellTimes(const TBench& Bench, int Names, const std::string& ResultName) {
  TUninstallLog Log;
  for (int At = 0; At < ManyRecords; ++At) Log.AddStringRecord(0x82, {NameInLog(At)}, 0);
  std::string Bytes;
  SaveTo(Bytes, Log);
  Write(Bench.Base("Uninstall\\unins000.dat"), Bytes);
  PlantList(Bench, Names);
  const TComRef<TClockLog> Clock(new TClockLog);
  const DWORD Entry = RegisterActive(Clock.Get(), CLSID_UDebugLog);
  const TComRef<IUInno> Inno = Make<IUInno>(CLSID_UInno);
  Require(Inno->ProcessInno(), "ProcessInno");
  RevokeActive(Entry);
  TBstr Left;
  Require(Inno->GetFileList(Left.Out()), "GetFileList");
  if (ParseCommaText(Take(Left)).size() != static_cast<size_t>(Names / 2)) throw EBench("the wrong names are left");
  std::string Copy;
  const double Begin = Now();
  Yardstick(Bytes, Copy);
  const double End = Now();
  std::ostringstream Times;
  Times << Clock->PassBegin - Clock->Begin << " " << Clock->PassEnd - Clock->PassBegin << " " << End - Begin;
  Write(ResultName, Times.str());
}
