#include "base/numbers.h"
#include "fuzz/targets.h"
#include "support/memory_file.h"

#include <cstdio>
#include <cstdlib>
#include <tuple>

/// Of the sanitizers' run-time library; not every compiler brings the header that declares it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*OnMalloc)(const volatile void*, size_t),
                                                         void (*OnFree)(const volatile void*));

void Promise(bool Holds, const char* What) {
  if (Holds) return;
  std::fprintf(stderr, "broken promise: %s\n", What);
  std::abort();
}

namespace {

constexpr size_t FlagsAt = 332, CrcAt = 444, HeaderSize = 448;
constexpr uint32_t AnyCrc = 0x11111111;
constexpr uint8_t NoBlockChecks = 2;

/// The largest piece of memory that was asked for while this was watched.
bool Watching = false;
size_t Largest = 0;
void OnMalloc(const volatile void*, size_t Size) {
  if (Watching) Largest = std::max(Largest, Size);
}
void OnFree(const volatile void*) {}

bool LoadWatched(const std::string& Bytes, TUninstallLog& Log) {
  static const int Installed = __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);
  Promise(Installed != 0, "the allocations can be watched");
  std::string Copy = Bytes;
  TMemoryFile File(Copy);
  bool Loaded = true;
  Largest = 0;
  Watching = true;
  try {
    Log.Load(File);
  } catch (const EUninstallLogError&) {
    Loaded = false;
  }
  Watching = false;
  // An exception's own memory is larger than the smallest files.
  constexpr size_t Frame = sizeof(TUninstallRecord) + 256;
  Promise(Largest <= Bytes.size() + Frame, "no more memory than the file has bytes");
  return Loaded;
}

using TRecordFacts = std::vector<std::tuple<uint16_t, int32_t, std::vector<uint8_t>>>;
TRecordFacts FactsOf(const TUninstallLog& Log) {
  TRecordFacts Facts;
  const TUninstallRecord* Before = nullptr;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Before = Rec, Rec = Rec->Next) {
    Promise(Rec->Previous == Before, "the records are linked both ways");
    Facts.emplace_back(Rec->RecordType, Rec->ExtraValue, std::vector<uint8_t>(Rec->Data().begin(), Rec->Data().end()));
  }
  Promise(Log.Last() == Before && Log.Count() == static_cast<int32_t>(Facts.size()), "all records are counted");
  return Facts;
}

void SaveAnew(const TUninstallLog& Log) {
  std::string Bytes;
  SaveTo(Bytes, Log);
  TUninstallLog Again;
  Promise(LoadWatched(Bytes, Again) && FactsOf(Again) == FactsOf(Log), "a saved log loads as it was");
  Promise(Again.Is64Bit == Log.Is64Bit && Again.Flags == Log.Flags && Again.EndsWithLastRecord(),
          "a saved log has its fields");
}

void AppendOne(const std::string& Bytes, const TUninstallLog& Log) {
  constexpr uint16_t Type = 0x82;
  std::string Longer = Bytes;
  TUninstallLog More;
  More.AddStringRecord(Type, {"name"}, 0);
  More.ApplicationId = Log.ApplicationId;
  More.Is64Bit = Log.Is64Bit;
  try {
    SaveTo(Longer, More, true);
  } catch (const EUninstallLogError&) {
    TUninstallLog Still;
    Promise(LoadWatched(Longer, Still) && FactsOf(Still) == FactsOf(Log), "a refused append leaves the records");
    return;
  }
  if (!Log.EndsWithLastRecord()) return;
  TUninstallLog Both;
  Promise(LoadWatched(Longer, Both) && Both.EndsWithLastRecord(), "an appended log loads");
  TRecordFacts Expected = FactsOf(Log);
  Expected.push_back(FactsOf(More).at(0));
  Promise(FactsOf(Both) == Expected, "an appended log has the old records and the new one");
}

}  // namespace

void FuzzUninstallLog(TFuzzInput Input) {
  if (Input.empty()) return;
  const uint8_t Accept = Input[0];
  std::string Bytes(Input.begin() + 1, Input.end());
  if (Bytes.size() >= HeaderSize) {
    uint8_t* const Header = reinterpret_cast<uint8_t*>(Bytes.data());
    if (Accept & AcceptBlocks) Header[FlagsAt] |= NoBlockChecks;
    if (Accept & AcceptHeader) PutNumber(Header + CrcAt, AnyCrc);
  }
  TUninstallLog Log;
  const bool Loaded = LoadWatched(Bytes, Log);
  FactsOf(Log);
  if (!Loaded) return;
  SaveAnew(Log);
  AppendOne(Bytes, Log);
}

void FuzzRecordStrings(TFuzzInput Input) {
  if (Input.empty()) return;
  std::vector<std::string> Strings(Input[0] + size_t{1}, "not emptied"), Again(Strings.size());
  TUninstallLog Log;
  Log.AddRecord(1, Input.subspan(1), 0);
  const size_t Filled = TUninstallLog::ExtractRecordStrings(*Log.First(), Strings);
  Promise(Filled <= Strings.size(), "no more strings than there is room for");
  size_t Bytes = 0;
  for (size_t At = 0; At < Strings.size(); ++At) {
    Promise(At < Filled || Strings[At].empty(), "what is not filled is empty");
    Bytes += Strings[At].size() + (At < Filled);
  }
  Promise(Bytes <= Input.size() - 1, "no more characters than the data has bytes");
  Log.AddStringRecord(1, {Strings.begin(), Strings.begin() + static_cast<ptrdiff_t>(Filled)}, 0);
  Promise(TUninstallLog::ExtractRecordStrings(*Log.Last(), Again) == Filled && Again == Strings,
          "strings survive being written and read");
}
