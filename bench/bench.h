#pragma once

#include "program.h"
#include "support/sandbox.h"

/// Raises EBench with the error's text when a method of the module, or a system call, failed.
void Require(HRESULT Result, const char* What);
void Require(bool Succeeded, const char* What);

/// Where the cases work: a sandbox like a test's. The debug log is the module's own and writes its file.
class TBench final : public TSandbox {
 public:
  explicit TBench(bool Quick) : TSandbox(LogToFile), Quick(Quick) {}

  /// A path of the case's own.
  std::string Work(const std::string& Name) const { return App(Name); }
  /// Empties the backup store and removes the transaction log.
  void ForgetChanges() const;
  /// The module against the bare calls that do the same job, with as many lines of the same lengths; the cost of one of
  /// `Items` items.
  TResult Compare(const TVariant& Module, const TVariant& Calls, int WarmUps, int Rounds, int Items) const;
  /// A quick run is for trying the program out; its numbers are too few to say anything.
  const bool Quick;

 private:
  /// Keeps the module loaded, and with it the paths that it found: the registry names a child's folder later on.
  const TComRef<IUTransactionLog> KeepsModule = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

/// Writes lines of a debug log with the calls that a line's rules demand, and nothing else.
class TBareLines {
 public:
  explicit TBareLines(const std::string& FileName);
  /// A line of so many bytes.
  void Write(DWORD Length);

 private:
  TFileHandle File;
  TKernelHandle Mutex, Semaphore;
  TComRef<IClassFactory> DebugLogClass;
};
/// The lengths of the lines that the module writes in the meantime.
std::vector<DWORD> LinesOf(const std::function<void()>& Run);

// The parts of a bare job, each flushed where the module flushes.

/// Whether there is such a file, as the rules look for it.
void BareLook(const std::string& Name);
/// Deletes a file as the rules have it: looked for before and after, its attributes cleared.
void BareDelete(const std::string& Name);
std::string BareReadFile(const std::string& Name);
/// Writes bytes to a new file, as a backup item is written.
void BareItem(const std::string& Name, const std::string& Bytes);
/// Records an entry in a log as the rules have it: the log becomes its own backup copy, is written anew from it, gets
/// the entry, and the copy goes.
void BareEntry(const std::string& Log);
/// The copy as a program without any of the module's care would make it, behind a header if there is to be one.
enum class TFlush { Nothing, EachCopy };
void BareCopy(const std::string& Source, const std::string& Dest, const std::string& Header = "",
              TFlush Flush = TFlush::EachCopy);

/// Runs this program once more, with these words, to its end. Fails when it fails.
void RunOwnProgram(const std::string& Words);

TResult CopyOverExisting(const TBench& Bench);
TResult CopyToNew(const TBench& Bench);
TResult CopyLogged(const TBench& Bench);
TResult PeakOfCopy(const TBench& Bench);
TResult DebugLogLine(const TBench& Bench);
TResult LockOfALine(const TBench& Bench);
TResult WrapperShare(const TBench& Bench);
TResult LogPut(const TBench& Bench);
TResult LogRollback(const TBench& Bench);
TResult TreeBackup(const TBench& Bench);
TResult TreeRestore(const TBench& Bench);
TResult SetValueLogged(const TBench& Bench);
TResult KeyTreeDelete(const TBench& Bench);
TResult KeyTreeRollback(const TBench& Bench);
TResult SmallValues(const TBench& Bench);
TResult SmallCopies(const TBench& Bench);
TResult Flushes(const TBench& Bench);
TResult LargeStore(const TBench& Bench);
TResult KitCopies(const TBench& Bench);
TResult KitTree(const TBench& Bench);
TResult HistoryPut(const TBench& Bench);
TResult MacroSet(const TBench& Bench);
TResult GarbageRemoval(const TBench& Bench);
TResult GarbageGrowth(const TBench& Bench);
TResult LogLoad(const TBench& Bench);
TResult LogSave(const TBench& Bench);
TResult LogGrowth(const TBench& Bench);
TResult LogLoadFromFile(const TBench& Bench);
TResult DuplicatePass(const TBench& Bench);

/// The child process of PeakOfCopy: copies a file of `Size` MiB, plainly and logged, and writes the peak of its working
/// set in bytes to the file `ResultName`.
void CopyAndTellPeak(const TBench& Bench, int Size, const std::string& ResultName);

/// The child process of DuplicatePass: runs ProcessInno with so many listed files on a log of 200,000 records, and
/// writes to the file `ResultName` what reading the log took, what the search for duplicates took, and what zlib's
/// crc32 and a copy of the log take here, in microseconds.
void ProcessAndTellTimes(const TBench& Bench, int Names, const std::string& ResultName);
