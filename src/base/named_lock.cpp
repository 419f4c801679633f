#include "base/named_lock.h"

#include "base/failure.h"

void TNamedLock::Create(const std::string& Name) {
  Semaphore.Reset(CreateSemaphoreA(nullptr, 1, 1, Name.c_str()));
  // Semaphores and mutexes share one name space, so the mutex needs a name of its own.
  Mutex.Reset(CreateMutexA(nullptr, FALSE, ("Mendwork.Owner." + Name).c_str()));
}

void TNamedLock::Close() {
  Semaphore.Reset();
  Mutex.Reset();
}

TNamedLock::TOwner::TOwner(TNamedLock& Lock) : Lock(Lock) {
  if (WaitForSingleObject(Lock.Mutex.Get(), INFINITE) != WAIT_ABANDONED) return;
  // The former owner died. If it held the semaphore, its count is lost; if not, the count is at its maximum and this
  // release fails without effect.
  ReleaseSemaphore(Lock.Semaphore.Get(), 1, nullptr);
}

TNamedLock::TOwner::~TOwner() {
  const TKeepLastError Keep;
  ReleaseMutex(Lock.Mutex.Get());
}

TNamedLock::THold::THold(TOwner& Owner) : Lock(Owner.Lock) {
  if (Lock.HolderThread == GetCurrentThreadId()) throw EFailure(E_UNEXPECTED, LoadWideMessage(MsgLockHeldByThread));
  WaitForSingleObject(Lock.Semaphore.Get(), INFINITE);
  Lock.HolderThread = GetCurrentThreadId();
}

TNamedLock::THold::~THold() {
  const TKeepLastError Keep;
  Lock.HolderThread = 0;
  ReleaseSemaphore(Lock.Semaphore.Get(), 1, nullptr);
}
