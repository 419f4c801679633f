// The debug log, as the retry layer writes it: what a line costs beside the system calls that it is made of, and what a
// wrapper costs beside its lines and its system call.
//
// Both are taken from inside one CopyFile of a small file. The system functions that the module imports are replaced by
// ones that note the time and call the original, so nothing in the module is there for this, and lines, system calls
// and the rest are told apart call by call instead of by subtracting large numbers from each other.

#include "bench.h"

#include <memory>

namespace {

/// Sorts the time of one traced call of the module into lines, system calls and (what remains) its own work.
///
/// A line of the retry layer begins with the look-up for an active debug log, any other line with the wait for the
/// log's lock; both end when the lock's mutex is released.
struct TTrace {
  bool InLine = false;
  double LineBegin = 0;
  /// A retry-layer line that has not been followed by a system call yet.
  double PendingBegin = 0;
  double Lines = 0, Calls = 0;
  TSamples RetryLines;
  std::vector<DWORD> Lengths;

  void BeginLine(bool OfRetryLayer) {
    if (InLine) return;
    InLine = true;
    LineBegin = Now();
    PendingBegin = OfRetryLayer ? LineBegin : 0;
  }
  void EndLine() {
    if (InLine) Lines += Now() - LineBegin;
    InLine = false;
  }
  /// The line before a system call lasts until that call: the release of the debug-log object belongs to it.
  void BeginCall(double At) {
    if (PendingBegin > 0) RetryLines.Add(At - PendingBegin);
    PendingBegin = 0;
  }
};
TTrace Trace;

/// Stands in for one imported function.
template <auto Function>
struct TTimed;
template <class TReturn, class... TArgs, TReturn(WINAPI* Function)(TArgs...)>
struct TTimed<Function> {
  static TReturn WINAPI Call(TArgs... Args) {
    if (Trace.InLine) return Function(Args...);
    const double Begin = Now();
    Trace.BeginCall(Begin);
    const TReturn Result = Function(Args...);
    const TKeepLastError Keep;
    Trace.Calls += Now() - Begin;
    return Result;
  }
};

HRESULT WINAPI TracedGetActiveObject(REFCLSID ClassId, void* Reserved, IUnknown** Object) {
  Trace.BeginLine(true);
  return GetActiveObject(ClassId, Reserved, Object);
}
DWORD WINAPI TracedWait(HANDLE Handle, DWORD Milliseconds) {
  Trace.BeginLine(false);
  return WaitForSingleObject(Handle, Milliseconds);
}
BOOL WINAPI TracedReleaseMutex(HANDLE Handle) {
  const BOOL Result = ReleaseMutex(Handle);
  Trace.EndLine();
  return Result;
}
BOOL WINAPI TracedWriteFile(HANDLE File, const void* Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  if (Trace.InLine && Trace.PendingBegin > 0) Trace.Lengths.push_back(Size);
  return TTimed<&WriteFile>::Call(File, Buffer, Size, Written, Overlapped);
}

struct TReplaced {
  const char* Name;
  void* By;
};
template <auto Function>
TReplaced Timed(const char* Name) {
  return {Name, reinterpret_cast<void*>(TTimed<Function>::Call)};
}

/// Traces the module for as long as it lives.
class TTracing {
 public:
  TTracing() {
    const TReplaced All[] = {
        {"GetActiveObject", reinterpret_cast<void*>(TracedGetActiveObject)},
        {"WaitForSingleObject", reinterpret_cast<void*>(TracedWait)},
        {"ReleaseMutex", reinterpret_cast<void*>(TracedReleaseMutex)},
        {"WriteFile", reinterpret_cast<void*>(TracedWriteFile)},
        Timed<&CloseHandle>("CloseHandle"),
        Timed<&CreateFileA>("CreateFileA"),
        Timed<&DeleteFileA>("DeleteFileA"),
        Timed<&FindClose>("FindClose"),
        Timed<&FindFirstFileA>("FindFirstFileA"),
        Timed<&GetFileAttributesA>("GetFileAttributesA"),
        Timed<&GetFileInformationByHandle>("GetFileInformationByHandle"),
        Timed<&GetFileTime>("GetFileTime"),
        Timed<&ReadFile>("ReadFile"),
        Timed<&SetFileAttributesA>("SetFileAttributesA"),
        Timed<&SetFileTime>("SetFileTime"),
    };
    Trace = TTrace();
    for (const TReplaced& Each : All) Patches.push_back(std::make_unique<TImportPatch>(Each.Name, Each.By));
  }

 private:
  std::vector<std::unique_ptr<TImportPatch>> Patches;
};

/// A small file copied over another, again and again: some twenty wrappers with some thirty lines.
struct TSmallCopy {
  std::string Source, Dest;
  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);

  explicit TSmallCopy(const TBench& Bench) : Source(Bench.Work("small.bin")), Dest(Bench.Work("small-copy.bin")) {
    Write(Source, std::string(100, 'm'));
    Write(Dest, "");
    Run();
  }
  ~TSmallCopy() {
    DeleteFileA(Source.c_str());
    DeleteFileA(Dest.c_str());
  }
  void Run() const { Require(File->CopyFile(Text(Source), Text(Dest), 0), "CopyFile"); }
};

}  // namespace

TResult DebugLogLine(const TBench& Bench) {
  const TSmallCopy Copy(Bench);
  TBareLines Bare(Bench.Work("bare.log"));
  TSamples Lines, Bares;
  for (int Round = 0; Round < (Bench.Quick ? 5 : 200); ++Round) {
    const TTracing Tracing;
    Copy.Run();
    Lines.Add(Trace.RetryLines.Median());
    TSamples OfRound;
    for (const DWORD Length : Trace.Lengths) {
      const double Begin = Now();
      Bare.Write(Length);
      OfRound.Add(Now() - Begin);
    }
    Bares.Add(OfRound.Median());
  }
  return {Lines.Over(Bares).Median(),
          Lines.Count(),
          {{"ratio of the least", Lines.Least() / Bares.Least(), ""},
           {"a line", Lines.Median(), "us"},
           {"the bare calls", Bares.Median(), "us"},
           {"lines in a round", static_cast<double>(Trace.Lengths.size()), ""}}};
}

TResult WrapperShare(const TBench& Bench) {
  const TSmallCopy Copy(Bench);
  TSamples Shares, Totals, Lines, Calls;
  for (int Round = 0; Round < (Bench.Quick ? 5 : 200); ++Round) {
    const TTracing Tracing;
    const double Begin = Now();
    Copy.Run();
    const double Total = Now() - Begin;
    Totals.Add(Total);
    Lines.Add(Trace.Lines);
    Calls.Add(Trace.Calls);
    Shares.Add((Total - Trace.Lines - Trace.Calls) / Total * 100);
  }
  return {Shares.Median(),
          Shares.Count(),
          {{"least share", Shares.Least(), "%"},
           {"the whole call", Totals.Median(), "us"},
           {"its lines", Lines.Median(), "us"},
           {"its system calls", Calls.Median(), "us"}}};
}

TResult LockOfALine(const TBench& Bench) {
  const int Locks = Bench.Quick ? 100 : 2000, Rounds = Bench.Quick ? 1 : 25;
  const TKernelHandle Mutex(CreateMutexA(nullptr, FALSE, "mendwork-bench.holder")),
      Semaphore(CreateSemaphoreA(nullptr, 1, 1, "mendwork-bench.count"));
  const auto HoldSemaphore = [&] {
    WaitForSingleObject(Semaphore.Get(), 0);
    ReleaseSemaphore(Semaphore.Get(), 1, nullptr);
  };
  const auto Hold = [&] {
    WaitForSingleObject(Mutex.Get(), INFINITE);
    HoldSemaphore();
    ReleaseMutex(Mutex.Get());
  };
  const auto Repeat = [&](const auto& Lock) {
    return TVariant{[] {},
                    [=] {
                      for (int At = 0; At < Locks; ++At) Lock();
                    }};
  };
  const std::vector<TSamples> Times = Interleave(1, Rounds, {Repeat(Hold), Repeat(HoldSemaphore)});
  return {
      Times[0].Over(Times[1]).Median(),
      Times[0].Count(),
      {{"mutex and semaphore", Times[0].Median() / Locks, "us"}, {"semaphore alone", Times[1].Median() / Locks, "us"}}};
}
