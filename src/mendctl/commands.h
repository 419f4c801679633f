#pragma once

#include "mendctl/entries.h"
#include "mendctl/report.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

/// What every command works on.
struct TContext {
  TContext(TMachine Machine, TStateFolder State, TPaint Paint)
      : Machine(std::move(Machine)), State(std::move(State)), Paint(Paint) {}

  TMachine Machine;
  TStateFolder State;
  TPaint Paint;

  /// What an entry is about, in UTF-8. That of an item which is missing is looked up in the debug log; "" when that
  /// does not tell it either, or cannot be read now.
  std::string SubjectOf(const TEntry& Entry, const TSaved& Saved) const;

 private:
  mutable std::optional<std::map<std::string, std::string>> NamesInLog;
};

/// A request that makes no sense on this state; the console ends with status 2.
struct EWrongUse {
  std::string Why;
};

/// Whether nothing is going on, an update is at work, or one was interrupted.
TReport Status(const TContext& Context);
/// The entries, newest first, down to the newest check point or all of them.
TReport Show(const TContext& Context, bool All);
/// One entry with everything that was saved.
TReport ShowOne(const TContext& Context, size_t Number);
/// What a rollback would do now.
TReport Plan(const TContext& Context, bool OnlyToCheckPoint);
/// Every file against every rule.
TReport Verify(const TContext& Context);
/// What an entry's item holds, as files below `Folder`, registry content as a .reg file. Writes over nothing.
TReport Extract(const TContext& Context, size_t Number, const std::filesystem::path& Folder);
/// How what an entry saved differs from what is there.
TReport Diff(const TContext& Context, size_t Number);
/// The installer's log.
TReport UninstallLog(const TContext& Context);
/// Everything that support needs, in a new ZIP file. Of the application's files only names, times and sizes, unless
/// `Contents`; of the debug log the last `DebugLogBytes`.
TReport Collect(const TContext& Context, const std::filesystem::path& File, bool Contents, uint64_t DebugLogBytes);

/// Asks a question and gives whether it was answered with yes.
using TAsk = std::function<bool(const std::string& Question)>;
/// Ends an update: empties the transaction log. History and macros stay.
TReport Commit(const TContext& Context, const TAsk& Ask);
/// Removes the items that nothing reaches.
TReport Prune(const TContext& Context, bool DryRun);

struct TRollbackOptions {
  bool All = false, Silent = false;
  std::optional<size_t> Skip;
};
/// Undoes the update, with the library. `Tell` gets lines of progress.
TReport Rollback(const TContext& Context, const TRollbackOptions& Options,
                 const std::function<void(const std::string&)>& Tell);
/// Applies an update manifest, with the kit; needs no state. A result that the kit gives for a failure is reported, not
/// raised.
TReport Apply(const std::filesystem::path& Manifest);
/// Moves one entry out of the transaction log into a file beside it, whose name is given.
std::string SkipEntry(const TContext& Context, size_t Number);

/// An entry of the log by its number. Raises EWrongUse when there is none.
TEntry EntryOf(const TContext& Context, size_t Number);
/// "12  file overwritten  C:\App\app.dll", with what an item cannot tell any more.
std::string EntryLine(const TContext& Context, const TEntry& Entry, const TSaved& Saved);
