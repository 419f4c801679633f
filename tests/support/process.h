#pragma once

#include "support/doubles.h"

#include <string>
#include <vector>

using TWords = std::vector<std::string>;

/// A part that another process of this program plays, written beside what starts it:
///
///   const TRole Put("put", [](const TWords& Words, TScriptedDialog& User) { ...; return 0; });
///   ... TChild({"put", "5"}).Wait() ...
///
/// It finds COM ready, a debug log in memory and `User`, who cancels everything unless told otherwise; it gives the
/// exit status. The doubles of the starting process would be reached through a message queue on which nobody waits.
class TRole {
 public:
  using TPlay = int (*)(const TWords& Words, TScriptedDialog& User);
  /// WithoutDoubles: `User` is nobody; for several threads, which would wait for the first one, and for the real debug
  /// log and the real boxes.
  enum TDoubles { WithDoubles, WithoutDoubles };
  TRole(const std::string& Name, TPlay Play, TDoubles Doubles = WithDoubles);
};
/// For main(): plays the role that the command line names; gives -1 when it names none.
int PlayRole(int Count, char** Words);

/// Starts a program; `Output` takes its standard output and error.
TKernelHandle StartProgram(std::string CommandLine, HANDLE Output = nullptr);

/// Another process of this program, in a role, or a program that was started; it ends with this object.
class TChild {
 public:
  /// The role's name and its words, which hold no quotation marks.
  explicit TChild(const TWords& Words);
  explicit TChild(TKernelHandle Process) : Process(std::move(Process)) {}
  ~TChild() {
    TerminateProcess(Process.Get(), 1);
    WaitForSingleObject(Process.Get(), INFINITE);
  }
  TChild(const TChild&) = delete;
  TChild& operator=(const TChild&) = delete;
  /// Waits for its end and gives the exit status; fails after a minute.
  DWORD Wait();
  /// Whether it has ended; does not wait.
  bool HasEnded() const { return WaitForSingleObject(Process.Get(), 0) == WAIT_OBJECT_0; }

 private:
  TKernelHandle Process;
};

struct TProgramResult {
  DWORD Status;
  std::string Output;  ///< standard output and error
};
/// Runs a program to its end. `WhileItRuns` is called again and again meanwhile. Fails after two minutes.
TProgramResult RunProgram(const std::string& Path, const std::string& Arguments, void (*WhileItRuns)() = nullptr);
/// One of Windows' own programs, of this program's bitness: RunSystemProgram("regsvr32.exe", "/s ...").
TProgramResult RunSystemProgram(const std::string& Name, const std::string& Arguments, void (*WhileItRuns)() = nullptr);

/// A file of the build, by its place in the build folder, in which this program has a folder of its own.
std::string BuiltFile(const std::string& Name);
/// Mendwork.dll as it was built with this program, registered or not.
inline std::string BuiltModulePath() { return BuiltFile("Mendwork.dll"); }
