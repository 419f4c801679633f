#pragma once

#include "server/interfaces.h"

#include <list>
#include <map>
#include <string>

/// A list of ANSI texts that outlives the process: kept in memory, saved whole as comma text in a string item of the
/// backup store, with a record in a history group that points to the newest item. Names are compared without case, as
/// the user's locale has it, and found without a walk through the list. The owner holds the list's named lock around
/// every call.
class TSavedList {
 public:
  /// `NameOf` gives the part of an entry that is its name.
  TSavedList(const GUID& GroupID, std::string (*NameOf)(const std::string& Entry)) : GroupID(GroupID), NameOf(NameOf) {}
  TSavedList(TSavedList&&) = default;
  TSavedList& operator=(TSavedList&&) = default;

  /// The entry of this name, or null.
  const std::string* Find(const std::string& Name) const;
  /// Removes every entry of this name.
  void Remove(const std::string& Name);
  void Add(std::string Entry);
  void Clear();
  /// In the order in which they were added.
  const std::list<std::string>& All() const { return Entries; }
  std::string CommaText() const;

  /// Saves the list: one more item and one more history record. Raises the failures of the two objects.
  void Save(IUBackup& Backup, IUHistory& History) const;
  /// Takes over the newest saved list; leaves the list alone when the group is empty.
  void Load(IUBackup& Backup, IUHistory& History);

 private:
  GUID GroupID;
  std::string (*NameOf)(const std::string& Entry);
  std::list<std::string> Entries;
  /// The entries by a key that equal names share; those of one key in the order of the list.
  std::multimap<std::string, std::list<std::string>::iterator> Index;
};
