// The one place with compiler-specific code: this compiler has no __try of its own.

#include "retry/guarded_call.h"

#include <excpt.h>

#include <cstdint>

#if defined(__i386__)

namespace {

/// A frame in the thread's chain of exception handlers, which begins at fs:[0]. The callee's own handlers come before
/// it.
struct TFrame {
  EXCEPTION_REGISTRATION_RECORD Link;
  void* Resume[5];  ///< for __builtin_setjmp
  DWORD Exception;
};

/// Lets the frames above `Frame` clean up. RtlUnwind gives back none of the registers that a call must keep, so the
/// compiler is told that all of them are lost.
void UnwindTo(TFrame* Frame, EXCEPTION_RECORD* Exception) {
  void* Target = Frame;
  void* Record = Exception;
  void* Unwind = reinterpret_cast<void*>(&RtlUnwind);
  __asm__ volatile("pushl $0\n\tpushl %1\n\tpushl $0\n\tpushl %0\n\tcall *%2"
                   : "+a"(Target), "+c"(Record), "+d"(Unwind)
                   :
                   : "ebx", "esi", "edi", "cc", "memory");
}

EXCEPTION_DISPOSITION __cdecl HandleException(EXCEPTION_RECORD* Exception, void* Establisher, CONTEXT*, void*) {
  constexpr DWORD Unwinding = 0x2 | 0x4;
  if (Exception->ExceptionFlags & Unwinding) return ExceptionContinueSearch;
  auto* const Frame = static_cast<TFrame*>(Establisher);
  Frame->Exception = Exception->ExceptionCode;
  UnwindTo(Frame, Exception);
  __builtin_longjmp(Frame->Resume, 1);
}

}  // namespace

__attribute__((noinline)) DWORD RunGuarded(void (*Step)(void*), void* Data) {
  volatile TFrame Frame{};
  // The header calls it stdcall, the system calls it as cdecl. NOLINTNEXTLINE(clang-diagnostic-cast-calling-convention)
  Frame.Link.Handler = reinterpret_cast<PEXCEPTION_ROUTINE>(HandleException);
  Frame.Link.Next = reinterpret_cast<EXCEPTION_REGISTRATION_RECORD*>(__readfsdword(0));
  if (__builtin_setjmp(const_cast<void**>(Frame.Resume)) == 0) {
    __writefsdword(0, static_cast<DWORD>(reinterpret_cast<uintptr_t>(&Frame)));
    Step(Data);
  }
  __writefsdword(0, static_cast<DWORD>(reinterpret_cast<uintptr_t>(Frame.Link.Next)));
  return Frame.Exception;
}

#else

namespace {

// Read as soon as the frame is left, so nothing that runs in between can change it.
thread_local DWORD CaughtException;

extern "C" long MendworkCatchAll(EXCEPTION_POINTERS* Pointers, void*) {
  CaughtException = Pointers->ExceptionRecord->ExceptionCode;
  return EXCEPTION_EXECUTE_HANDLER;
}

/// Gives whether the step returned. A function of its own: it must need no clean-up, whose frame would take the place
/// of this one.
__attribute__((noinline)) bool RunInFrame(void (*Step)(void*), void* Data) {
  volatile bool Returned = false;
  __try1(MendworkCatchAll) Step(Data);
  Returned = true;
  __except1 return Returned;
}

}  // namespace

DWORD RunGuarded(void (*Step)(void*), void* Data) { return RunInFrame(Step, Data) ? 0 : CaughtException; }

#endif
