#include "base/named_lock.h"

#include "base/failure.h"
#include "base/text.h"
#include "base/waiting.h"

#include <sddl.h>

namespace {

/// Full access for everyone, and a label that lets processes of low integrity write.
class TOpenToEveryone {
 public:
  TOpenToEveryone() {
    ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(A;;GA;;;WD)S:(ML;;NW;;;LW)", SDDL_REVISION_1,
                                                         &Attributes.lpSecurityDescriptor, nullptr);
  }
  ~TOpenToEveryone() { LocalFree(Attributes.lpSecurityDescriptor); }
  TOpenToEveryone(const TOpenToEveryone&) = delete;
  TOpenToEveryone& operator=(const TOpenToEveryone&) = delete;

  SECURITY_ATTRIBUTES* Get() { return &Attributes; }

 private:
  SECURITY_ATTRIBUTES Attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

/// Somebody may have made one that grants no more than its use.
TKernelHandle CreateOrOpenMutex(const std::string& Name, SECURITY_ATTRIBUTES* Rights) {
  TKernelHandle Mutex(CreateMutexA(Rights, FALSE, Name.c_str()));
  if (!Mutex) Mutex.Reset(OpenMutexA(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, Name.c_str()));
  return Mutex;
}

/// Waiting goes on without limit; in between it is looked whether whoever was waited for has died.
constexpr DWORD LookAgainMilliseconds = 1000;

/// The thread that marks itself must not be marked already.
void RequireOther(const std::atomic<DWORD>& Thread) {
  if (Thread == GetCurrentThreadId()) throw EFailure(E_UNEXPECTED, LoadWideMessage(MsgLockHeldByThread));
}

void RequireMutex(const TKernelHandle& Mutex, const std::string& Name) {
  if (!Mutex) throw EFailure(E_ACCESSDENIED, ToWide(FormatMessageText(MsgNoLock, Name)));
}

}  // namespace

void TNamedLock::Create(const std::string& ClassId) {
  TOpenToEveryone Everyone;
  Name = ClassId;
  // Semaphores and mutexes share one name space, so the mutexes need names of their own.
  OwnerMutex = CreateOrOpenMutex("Global\\Mendwork.Owner." + Name, Everyone.Get());
  HolderMutex = CreateOrOpenMutex("Mendwork.Holder." + Name, Everyone.Get());
  Semaphore.Reset(CreateSemaphoreA(Everyone.Get(), 1, 1, Name.c_str()));
  if (!Semaphore) Semaphore.Reset(OpenSemaphoreA(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, Name.c_str()));
}

void TNamedLock::Close() {
  Semaphore.Reset();
  HolderMutex.Reset();
  OwnerMutex.Reset();
}

TNamedLock::TOwner::TOwner(TNamedLock& Lock) : Lock(Lock) {
  RequireOther(Lock.OwnerThread);
  RequireMutex(Lock.OwnerMutex, Lock.Name);
  // An owner that died leaves nothing behind but its half of a modification, which is looked for anyway.
  WaitAnsweringMessages(Lock.OwnerMutex.Get());
  Lock.OwnerThread = GetCurrentThreadId();
}

TNamedLock::TOwner::~TOwner() {
  const TKeepLastError Keep;
  Lock.OwnerThread = 0;
  ReleaseMutex(Lock.OwnerMutex.Get());
}

TNamedLock::THold::THold(TNamedLock& Lock) : Lock(Lock) {
  RequireOther(Lock.HolderThread);
  RequireMutex(Lock.HolderMutex, Lock.Name);
  const HANDLE Both[] = {Lock.HolderMutex.Get(), Lock.Semaphore.Get()};
  for (;;) {
    // The holder died: its count is lost.
    if (WaitAnsweringMessages(Both[0]) == WAIT_ABANDONED) ReleaseSemaphore(Both[1], 1, nullptr);
    if (!Lock.Semaphore || WaitForSingleObject(Both[1], 0) != WAIT_TIMEOUT) break;
    // A process that knows no holder has it. Who waits for that one with the mutex in hand, and dies, would be taken
    // for one that held it; so both are taken at once.
    ReleaseMutex(Both[0]);
    if (WaitForMultipleObjects(2, Both, TRUE, LookAgainMilliseconds) != WAIT_TIMEOUT) break;
    PauseAnsweringMessages(0);
  }
  Lock.HolderThread = GetCurrentThreadId();
}

TNamedLock::THold::~THold() {
  const TKeepLastError Keep;
  Lock.HolderThread = 0;
  ReleaseSemaphore(Lock.Semaphore.Get(), 1, nullptr);
  ReleaseMutex(Lock.HolderMutex.Get());
}
