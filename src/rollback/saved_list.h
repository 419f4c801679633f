#pragma once

#include "rollback/backup_client.h"
#include "server/interfaces.h"

#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// A list of ANSI texts in memory. Names are compared without case, as the user's locale has it, and found without a
/// walk through the list. One thread at a time changes it or looks into it; only CommaText may be called meanwhile by
/// any other.
class TNameList {
 public:
  using TNameOf = std::string (*)(const std::string& Entry);

  /// `NameOf` gives the part of an entry that is its name.
  explicit TNameList(TNameOf NameOf) : NameOf(NameOf) {}

  /// The entry of this name, or null.
  const std::string* Find(const std::string& Name) const;
  /// Removes every entry of this name.
  void Remove(const std::string& Name);
  /// The same for the first of them in the order of the list.
  void RemoveFirst(const std::string& Name);
  void Add(const std::string& Entry);
  void Assign(const std::vector<std::string>& New);
  /// In the order in which they were added.
  const std::list<std::string>& All() const { return Entries; }
  std::string CommaText() const;

 private:
  void Insert(const std::string& Entry);

  TNameOf NameOf;
  mutable std::mutex Changing;  ///< never held in a call to another object
  std::list<std::string> Entries;
  /// The entries by a key that equal names share; those of one key in the order of the list.
  std::multimap<std::string, std::list<std::string>::iterator> Index;
};

/// A list that outlives the process: saved whole as comma text in a string item of the backup store, with a record in
/// a history group that points to the newest item. Saving and loading raise the failures of the two objects.
class TSavedList : public TNameList {
 public:
  /// `GroupId` is the registry form of the group's identifier.
  TSavedList(const char* GroupId, TNameOf NameOf);

  /// Saves the list: one more item and one more history record.
  void Save(const TBackupClient& Store, IUHistory& History) const;
  /// The newest saved entries; nothing when the group is empty.
  std::optional<std::vector<std::string>> Load(const TBackupClient& Store, IUHistory& History) const;

 private:
  const GUID GroupID;
};
