#pragma once

#include "base/handles.h"

#include <atomic>
#include <string>

/// The lock of one shared file or list, across threads, processes and users. It is of two kinds of object:
///
/// - a named semaphore (initial and maximum count 1), which is what every process of every version sees and waits for.
///   Alone it has two holes: a process that dies inside keeps its count for ever, and a protocol that lets go of it
///   between its halves lets another process undo what the first half prepared;
/// - named mutexes, owned by a thread. The system reports the death of an owner to the next one. One is held exactly as
///   long as the semaphore, so that the count of a dead holder, and no other, is given back; the other one is owned for
///   a whole modification and is the same for all sessions of the machine, which have semaphores of their own.
///
/// All of them are open to everyone, a process of low integrity included: an elevated updater and a plain one exclude
/// each other. All waits are without limit. A semaphore that cannot be had locks nothing, by intent: an update must be
/// able to run on a machine that refuses it. A mutex that cannot be had fails the operation.
class TNamedLock {
 public:
  /// Creates or opens the objects named by the registry form of a class identifier.
  void Create(const std::string& ClassId);
  void Close();

  /// Owns a whole modification from construction to destruction. Fails with E_UNEXPECTED when this thread is in the
  /// middle of one: a call that comes in while a box or an object of another process is waited for would take the half
  /// of the outer one for what a crash has left.
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

  /// Holds the semaphore from construction to destruction: inside an owner's time, or for what is whole without one.
  /// Fails with E_UNEXPECTED when this thread holds it already: waiting would never end.
  class THold {
   public:
    explicit THold(TOwner& Owner) : THold(Owner.Lock) {}
    explicit THold(TNamedLock& Lock);
    ~THold();
    THold(const THold&) = delete;
    THold& operator=(const THold&) = delete;

   private:
    TNamedLock& Lock;
  };

 private:
  std::string Name;
  TKernelHandle OwnerMutex, HolderMutex, Semaphore;
  std::atomic<DWORD> OwnerThread = 0, HolderThread = 0;
};
