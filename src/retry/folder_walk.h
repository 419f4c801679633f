#pragma once

#include "retry/file_wrappers.h"

#include <set>
#include <string>
#include <vector>

/// The search over folders, for all who walk them. It hands out no name that leads elsewhere, and what it walks stays
/// what it is.

/// An entry whose stored name the ANSI code page does not hold, or only one that is too long for a search to tell.
struct TUnnamed {
  std::wstring Name;
  bool Folder;
};

/// The names that a search may hand out. A search for ANSI names gives others for what the code page lacks: a file
/// `..＼x` (one wide character looks like a backslash) is told as `..\x`, and `Ā` as its neighbour `A`.
class TFoundNames {
 public:
  /// Asks for the stored names, through the retry layer.
  explicit TFoundNames(const std::string& Mask);
  bool Has(const std::string& Name) const { return Names.contains(Name); }
  bool IsEmpty() const { return Names.empty() && Unnamed.empty(); }

  std::vector<TUnnamed> Unnamed;
  /// What the search for ANSI names would find, when that ends at a name which is too long for it; else empty.
  std::vector<WIN32_FIND_DATAA> Instead;

 private:
  std::set<std::string> Names;
};

/// Calls `Action` with each entry that a mask finds, "." and ".." excepted, and gives those that have no name it could
/// be called with. The search is closed on every way out.
template <class TAction>
std::vector<TUnnamed> ForEachEntry(const std::string& Mask, TAction Action) {
  TFoundNames Found(Mask);
  for (const WIN32_FIND_DATAA& Entry : Found.Instead) Action(Entry);
  if (!Found.Instead.empty()) return std::move(Found.Unnamed);
  WIN32_FIND_DATAA Entry;
  bool Ended = false;
  TSearch Search = RetryFindFirstFile(Mask, Entry, Ended);
  if (Ended) return std::move(Found.Unnamed);
  if (Found.IsEmpty()) Found = TFoundNames(Mask);  // there is something after all
  for (; !Ended; RetryFindNextFile(Search, Entry, Ended))
    if (Found.Has(Entry.cFileName)) Action(static_cast<const WIN32_FIND_DATAA&>(Entry));
  RetryFindClose(Search);
  return std::move(Found.Unnamed);
}

inline bool IsFolder(const WIN32_FIND_DATAA& Entry) { return (Entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
/// Whether the entry stands for another name: such a folder is never entered, saved or removed.
bool IsLink(const WIN32_FIND_DATAA& Entry);

/// Keeps a folder what it is while it is walked: nobody can delete or rename it, or put a link in its place.
class THeldFolder {
 public:
  /// Opens it through the retry layer, with the message of a search that cannot start. One that is missing is no
  /// failure, and is not held.
  explicit THeldFolder(const std::string& Folder);
  /// False when it is missing, or a link.
  bool IsFolder() const;

 private:
  TFileHandle Handle;
};
