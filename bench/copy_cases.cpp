// Copying: what the module takes beside the reads and writes that any copy needs, in time and in memory.

#include "bench.h"

#include <psapi.h>

namespace {

constexpr int BytesPerMiB = 1 << 20;
constexpr int BigSize = 256, QuickBigSize = 32, SmallSize = 1;

void MakeFile(const std::string& Name, int Size) {
  const TFileHandle File(CreateFileA(Name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  const std::vector<char> Block(BytesPerMiB, 'm');
  DWORD Written = 0;
  for (int At = 0; At < Size; ++At)
    Require(WriteFile(File.Get(), Block.data(), BytesPerMiB, &Written, nullptr) != FALSE, "WriteFile");
}

/// A source file, a destination, and both ways to get from the one to the other.
struct TBulk {
  const TBench& Bench;
  std::string Source = Bench.Work("source.bin"), Empty = Bench.Work("empty.bin"), Dest = Bench.Work("dest.bin"),
              Saved = Bench.Work("saved.bin");
  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  int Size = Bench.Quick ? QuickBigSize : BigSize;

  explicit TBulk(const TBench& Bench) : Bench(Bench) {
    MakeFile(Source, Size);
    MakeFile(Empty, 0);
    MakeFile(Dest, Size);
  }
  ~TBulk() {
    for (const std::string& Name : {Source, Empty, Dest, Saved}) DeleteFileA(Name.c_str());
    Bench.ForgetChanges();
  }
  /// The destination is always written by the same hand, so that every variant deletes the same thing.
  void MakeDest() const {
    Bench.ForgetChanges();
    DeleteFileA(Saved.c_str());
    DeleteFileA(Dest.c_str());
    MakeFile(Dest, Size);
  }
  void DeleteDest() const { Require(DeleteFileA(Dest.c_str()) != FALSE, "DeleteFile"); }
  void Copy(const std::string& From) const { Require(File->CopyFile(Text(From), Text(Dest), 0), "CopyFile"); }
  /// A copy of nothing, for the record: the part of a copy that does not grow with the file, nearly all of it lines.
  TVariant CopyOfEmpty(std::function<void()> Prepare) const {
    return {std::move(Prepare), [this] { Copy(Empty); }};
  }
  void CopyLogged() const { Require(File->CopyFileLogged(Text(Source), Text(Dest), 0), "CopyFileLogged"); }
  /// The first variant against the second; more are for the record.
  TResult Compare(const std::vector<TVariant>& Variants, const std::vector<const char*>& Names) const {
    const std::vector<TSamples> Times = Interleave(1, Bench.Quick ? 1 : 15, Variants);
    TResult Result{Times[0].Over(Times[1]).Median(), Times[0].Count(), {}};
    Result.Figures.push_back({"ratio of the least", Times[0].Least() / Times[1].Least(), ""});
    for (size_t At = 0; At < Names.size(); ++At) Result.Figures.push_back({Names[At], Times[At].Median() / 1e3, "ms"});
    return Result;
  }
};

double PeakOfChild(const TBench& Bench, int Size) {
  const std::string ResultName = Bench.Work("peak.txt");
  RunOwnProgram("--copy-and-tell-peak " + std::to_string(Size) + " " + ResultName);
  const double Peak = std::stod(Read(ResultName)) / BytesPerMiB;
  DeleteFileA(ResultName.c_str());
  return Peak;
}

}  // namespace

TResult CopyOverExisting(const TBench& Bench) {
  const TBulk Bulk(Bench);
  const auto Prepare = [&] { Bulk.MakeDest(); };
  const auto Bare = [&] {
    Bulk.DeleteDest();
    BareCopy(Bulk.Source, Bulk.Dest);
  };
  const auto System = [&] { Require(CopyFileA(Bulk.Source.c_str(), Bulk.Dest.c_str(), FALSE) != FALSE, "CopyFileA"); };
  return Bulk.Compare(
      {{Prepare, [&] { Bulk.Copy(Bulk.Source); }}, {Prepare, Bare}, {Prepare, System}, Bulk.CopyOfEmpty(Prepare)},
      {"CopyFile", "bare loop", "the system's CopyFileA", "CopyFile of an empty file"});
}

TResult CopyToNew(const TBench& Bench) {
  const TBulk Bulk(Bench);
  const auto Delete = [&] { Bulk.DeleteDest(); };
  return Bulk.Compare({{Delete, [&] { Bulk.Copy(Bulk.Source); }},
                       {Delete, [&] { BareCopy(Bulk.Source, Bulk.Dest); }},
                       Bulk.CopyOfEmpty(Delete)},
                      {"CopyFile", "bare loop", "CopyFile of an empty file"});
}

/// An item of the backup store holds the content behind a header, which moves every block from its natural place in the
/// system's cache; the bare loop that saves the file does the same, or the layout would be counted as the module's
/// work. Two loops without a header are there for the record.
TResult CopyLogged(const TBench& Bench) {
  constexpr size_t FixedHeader = 36;
  const TBulk Bulk(Bench);
  const auto Prepare = [&] { Bulk.MakeDest(); };
  const auto Bare = [&](const std::string& Header) {
    BareCopy(Bulk.Dest, Bulk.Saved, Header);
    Bulk.DeleteDest();
    BareCopy(Bulk.Source, Bulk.Dest);
  };
  const std::string Header(FixedHeader + Bulk.Dest.size(), 'h');
  return Bulk.Compare(
      {{Prepare, [&] { Bulk.CopyLogged(); }}, {Prepare, [&] { Bare(Header); }}, {Prepare, [&] { Bare(""); }}},
      {"CopyFileLogged", "two bare loops", "the same without header"});
}

TResult PeakOfCopy(const TBench& Bench) {
  TSamples Small, Big;
  for (int Round = 0; Round < (Bench.Quick ? 1 : 3); ++Round) {
    Small.Add(PeakOfChild(Bench, SmallSize));
    Big.Add(PeakOfChild(Bench, BigSize));
  }
  return {Big.Median() - Small.Median(),
          Big.Count(),
          {{"peak, 256 MiB", Big.Median(), "MiB"}, {"peak, 1 MiB", Small.Median(), "MiB"}}};
}

void CopyAndTellPeak(const TBench& Bench, int Size, const std::string& ResultName) {
  const std::string Source = Bench.Work("source.bin"), Empty = Bench.Work("empty.bin"), Dest = Bench.Work("dest.bin");
  MakeFile(Source, Size);
  const TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  Require(File->CopyFile(Text(Source), Text(Dest), 0), "CopyFile");
  Require(File->CopyFileLogged(Text(Source), Text(Dest), 0), "CopyFileLogged");
  PROCESS_MEMORY_COUNTERS Counters{};
  Require(K32GetProcessMemoryInfo(GetCurrentProcess(), &Counters, sizeof Counters) != FALSE, "GetProcessMemoryInfo");
  Write(ResultName, std::to_string(Counters.PeakWorkingSetSize));
}
