#pragma once

#include "base/windows_api.h"

#include <string>
#include <utility>

/// Keeps the thread's last error as it was when the scope began: releasing a resource must not hide why a call failed.
class TKeepLastError {
 public:
  TKeepLastError() : Saved(GetLastError()) {}
  ~TKeepLastError() { SetLastError(Saved); }
  TKeepLastError(const TKeepLastError&) = delete;
  TKeepLastError& operator=(const TKeepLastError&) = delete;

 private:
  DWORD Saved;
};

/// Owner of one system handle; TKind says what an empty one looks like and how it is released.
template <class TKind>
class TOwned {
 public:
  using TValue = typename TKind::TValue;

  TOwned() = default;
  explicit TOwned(TValue Value) : Value(Value) {}
  TOwned(TOwned&& Other) noexcept : Value(Other.Detach()) {}
  TOwned& operator=(TOwned&& Other) noexcept {
    if (this != &Other) Reset(Other.Detach());
    return *this;
  }
  ~TOwned() { Reset(); }

  TValue Get() const { return Value; }
  explicit operator bool() const { return Value != TKind::Empty(); }
  /// Gives the handle up without releasing it.
  TValue Detach() { return std::exchange(Value, TKind::Empty()); }
  void Reset(TValue Next = TKind::Empty()) {
    const TValue Old = std::exchange(Value, Next);
    if (Old == TKind::Empty()) return;
    const TKeepLastError Keep;
    TKind::Release(Old);
  }
  /// For calls that hand a new handle back through a pointer.
  TValue* Out() {
    Reset();
    return &Value;
  }

 private:
  TValue Value = TKind::Empty();
};

struct TFileHandleKind {
  using TValue = HANDLE;
  static HANDLE Empty() { return INVALID_HANDLE_VALUE; }
  static void Release(HANDLE Value) { CloseHandle(Value); }
};
struct TFindHandleKind {
  using TValue = HANDLE;
  static HANDLE Empty() { return INVALID_HANDLE_VALUE; }
  static void Release(HANDLE Value) { FindClose(Value); }
};
struct TKernelHandleKind {
  using TValue = HANDLE;
  static HANDLE Empty() { return nullptr; }
  static void Release(HANDLE Value) { CloseHandle(Value); }
};
struct TModuleHandleKind {
  using TValue = HMODULE;
  static HMODULE Empty() { return nullptr; }
  static void Release(HMODULE Value) { FreeLibrary(Value); }
};
struct TRegistryKeyKind {
  using TValue = HKEY;
  static HKEY Empty() { return nullptr; }
  static void Release(HKEY Value) { RegCloseKey(Value); }
};
struct TTaskMemoryKind {
  using TValue = void*;
  static void* Empty() { return nullptr; }
  static void Release(void* Value) { CoTaskMemFree(Value); }
};
struct TFontKind {
  using TValue = HFONT;
  static HFONT Empty() { return nullptr; }
  static void Release(HFONT Value) { DeleteObject(Value); }
};
struct TBstrKind {
  using TValue = BSTR;
  static BSTR Empty() { return nullptr; }
  static void Release(BSTR Value) { SysFreeString(Value); }
};

using TFileHandle = TOwned<TFileHandleKind>;
using TFindHandle = TOwned<TFindHandleKind>;
using TKernelHandle = TOwned<TKernelHandleKind>;
using TModuleHandle = TOwned<TModuleHandleKind>;
using TRegistryKey = TOwned<TRegistryKeyKind>;
using TTaskMemory = TOwned<TTaskMemoryKind>;
using TFont = TOwned<TFontKind>;
using TBstr = TOwned<TBstrKind>;

/// An open thing together with the name that messages have for it, so that no call takes a pair of which one half
/// belongs to something else.
template <class THandle>
struct TNamed {
  std::string Name;
  THandle Handle{};

  auto Get() const { return Handle.Get(); }
  explicit operator bool() const { return static_cast<bool>(Handle); }
};

/// Owner of one COM reference.
template <class T>
class TComRef {
 public:
  TComRef() = default;
  /// Takes over a reference that the caller already holds.
  explicit TComRef(T* Held) : Pointer(Held) {}
  TComRef(const TComRef& Other) : Pointer(Other.Pointer) {
    if (Pointer) Pointer->AddRef();
  }
  TComRef(TComRef&& Other) noexcept : Pointer(Other.Detach()) {}
  TComRef& operator=(TComRef Other) noexcept {
    std::swap(Pointer, Other.Pointer);
    return *this;
  }
  ~TComRef() { Reset(); }

  T* Get() const { return Pointer; }
  T* operator->() const { return Pointer; }
  T& operator*() const { return *Pointer; }
  explicit operator bool() const { return Pointer != nullptr; }
  T* Detach() { return std::exchange(Pointer, nullptr); }
  void Reset() {
    if (T* Old = Detach()) Old->Release();
  }
  T** Out() {
    Reset();
    return &Pointer;
  }
  void** OutVoid() { return reinterpret_cast<void**>(Out()); }

 private:
  T* Pointer = nullptr;
};
