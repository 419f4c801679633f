#pragma once

#include "base/data_folders.h"
#include "base/failure.h"
#include "base/named_lock.h"
#include "rollback/backup_client.h"
#include "rollback/saved_list.h"
#include "server/logged_object.h"

#include <atomic>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

/// The saved lists that all objects of one class share, in the whole process, behind the class's named lock.
class TSharedLists {
 public:
  /// The lists outlive this object.
  TSharedLists(std::initializer_list<TSavedList*> Lists) : Lists(Lists) {}

  TNamedLock Lock;

  /// The class's unit stops: the lists are empty again.
  void Forget();

  /// Runs `Body` with the lock held and the lists loaded, which happens once per process; when it fails, the next call
  /// does it. It comes before anything is saved: a list that was not read must not be written over.
  template <class TBody>
  void Use(const TBackupClient& Store, IUHistory& History, TBody Body) {
    const TSaved Saved = Read(Store, History);
    TNamedLock::TOwner Owner(Lock);
    const TNamedLock::THold Hold(Owner);
    LoadOnce(Saved);
    Body();
  }

 private:
  /// What was saved of each list.
  using TSaved = std::vector<std::optional<std::vector<std::string>>>;
  /// Reads it, unless the lists are loaded. Without the lock: these may be the first lines of the process, and the user
  /// may be asked about the debug log, which another process that waits for the lock holds open.
  TSaved Read(const TBackupClient& Store, IUHistory& History) const;
  void LoadOnce(const TSaved& Saved);

  const std::vector<TSavedList*> Lists;
  std::atomic<bool> Loaded = false;
};

/// A class whose objects share such lists. The first object of a process loads them; what cannot be loaded (a damaged
/// history group) is told by each call that needs it.
template <class TInterface>
class TListObject : public TLoggedObject<TInterface, IUBackup, IUHistory> {
 public:
  using TLoggedObject<TInterface, IUBackup, IUHistory>::TLoggedObject;
  void Initialize() override {
    const bool FoldersKnown = PrepareDataFolders();
    TLoggedObject<TInterface, IUBackup, IUHistory>::Initialize();
    if (FoldersKnown) TryToLoad();
  }

 protected:
  virtual TSharedLists& Lists() const = 0;

  template <class TBody>
  void WithLists(TBody Body) const {
    Lists().Use(Store(), this->template Use<IUHistory>(), Body);
  }
  void Save(const TSavedList& List) const { List.Save(Store(), this->template Use<IUHistory>()); }

 private:
  /// What cannot be loaded must not keep the object from being there: each call tries again, and tells why not.
  void TryToLoad() const {
    try {
      WithLists([] {});
    } catch (const EFailure&) {
    }
  }

  TBackupClient Store() const { return TBackupClient(this->template Use<IUBackup>()); }
};
