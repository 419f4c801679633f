#pragma once

#include "base/handles.h"

#include <atomic>
#include <string>

/// The lock of one shared file or list, across threads and processes. It is a pair:
///
/// - a named semaphore (initial and maximum count 1), which is what every process of every version sees and waits for.
///   Alone it has two holes: a process that dies inside keeps its count for ever, and a protocol that lets go of it
///   between its halves lets another process undo what the first half prepared;
/// - a named mutex around it, owned by a thread (recursively) for the whole modification. The system reports the death
///   of an owner to the next one, which then gives the lost count back.
///
/// All waits are infinite. A lock whose semaphore could not be created locks nothing, by intent: an update must be able
/// to run on a machine that refuses it.
class TNamedLock {
 public:
  /// Creates or opens the pair named by `Name`, the registry form of a class identifier.
  void Create(const std::string& Name);
  void Close();

  /// Owns the mutex from construction to destruction: the whole modification.
  class TOwner {
   public:
    explicit TOwner(TNamedLock& Lock);
    ~TOwner();
    TOwner(const TOwner&) = delete;
    TOwner& operator=(const TOwner&) = delete;

   private:
    friend class TNamedLock;
    TNamedLock& Lock;
  };

  /// Holds the semaphore from construction to destruction, inside an owner's time.
  /// Fails with E_UNEXPECTED when this thread holds it already: waiting would never end.
  class THold {
   public:
    explicit THold(TOwner& Owner);
    ~THold();
    THold(const THold&) = delete;
    THold& operator=(const THold&) = delete;

   private:
    TNamedLock& Lock;
  };

 private:
  TKernelHandle Mutex;
  TKernelHandle Semaphore;
  std::atomic<DWORD> HolderThread = 0;
};
