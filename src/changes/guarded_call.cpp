// The one place with compiler-specific code: this compiler has no __try of its own.

#include "changes/guarded_call.h"

#include "server/format_text.h"

#include <excpt.h>

#include <cstdint>

namespace {

using TForeignFunction = HRESULT(STDAPICALLTYPE*)();

struct TResult {
  HRESULT Returned = S_OK;
  DWORD Exception = 0;  ///< the code of the structured exception that ended the call, or 0
};

#if defined(_MSC_VER)

TResult Call(TForeignFunction Function) {
  TResult Result;
  __try {
    Result.Returned = Function();
  } __except (Result.Exception = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER) {
  }
  return Result;
}

#elif defined(__i386__)

/// A frame in the thread's chain of exception handlers, which begins at fs:[0]. The callee's own handlers come before
/// it.
struct TFrame {
  EXCEPTION_REGISTRATION_RECORD Link;
  void* Resume[5];  ///< for __builtin_setjmp
  DWORD Exception;
};

EXCEPTION_DISPOSITION __cdecl HandleException(EXCEPTION_RECORD* Exception, void* Establisher, CONTEXT*, void*) {
  constexpr DWORD Unwinding = 0x2 | 0x4;
  if (Exception->ExceptionFlags & Unwinding) return ExceptionContinueSearch;
  auto* const Frame = static_cast<TFrame*>(Establisher);
  Frame->Exception = Exception->ExceptionCode;
  RtlUnwind(Frame, nullptr, Exception, nullptr);  // lets the frames above clean up
  __builtin_longjmp(Frame->Resume, 1);
}

__attribute__((noinline)) TResult Call(TForeignFunction Function) noexcept {
  volatile TResult Result;
  TFrame Frame;
  Frame.Exception = 0;
  Frame.Link.Handler = reinterpret_cast<PEXCEPTION_ROUTINE>(HandleException);
  Frame.Link.Next = reinterpret_cast<EXCEPTION_REGISTRATION_RECORD*>(__readfsdword(0));
  if (__builtin_setjmp(Frame.Resume) == 0) {
    __writefsdword(0, static_cast<DWORD>(reinterpret_cast<uintptr_t>(&Frame)));
    Result.Returned = Function();
  }
  __writefsdword(0, static_cast<DWORD>(reinterpret_cast<uintptr_t>(Frame.Link.Next)));
  return {Result.Returned, *static_cast<volatile DWORD*>(&Frame.Exception)};
}

#else

// One call at a time and thread reaches this, so the code can wait in a variable of the thread.
thread_local DWORD CaughtException;

extern "C" long MendworkCatchAll(EXCEPTION_POINTERS* Pointers, void*) {
  CaughtException = Pointers->ExceptionRecord->ExceptionCode;
  return EXCEPTION_EXECUTE_HANDLER;
}

__attribute__((noinline)) HRESULT CallInFrame(TForeignFunction Function) noexcept {
  volatile HRESULT Returned = S_OK;
  __try1(MendworkCatchAll) Returned = Function();
  __except1 return Returned;
}

TResult Call(TForeignFunction Function) {
  CaughtException = 0;
  const HRESULT Returned = CallInFrame(Function);
  return {Returned, CaughtException};
}

#endif

}  // namespace

HRESULT CallGuarded(TForeignFunction Function, const std::string& Name) {
  const TResult Result = Call(Function);
  if (Result.Exception)
    throw EForeignException(
        FormatText("'%s' ended with exception %x.", {Name, static_cast<uint32_t>(Result.Exception)}));
  return Result.Returned;
}
