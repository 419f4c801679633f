#pragma once

#include "base/windows_api.h"

#include <cstdint>
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

/// Owner of one system handle: what kind of value it is, what releases it, and the number that an empty one has.
template <class T, auto Release, intptr_t EmptyNumber = 0>
class TOwned {
 public:
  TOwned() = default;
  explicit TOwned(T Value) : Value(Value) {}
  TOwned(TOwned&& Other) noexcept : Value(Other.Detach()) {}
  TOwned& operator=(TOwned&& Other) noexcept {
    if (this != &Other) Reset(Other.Detach());
    return *this;
  }
  ~TOwned() { Reset(); }

  T Get() const { return Value; }
  explicit operator bool() const { return Value != Empty(); }
  /// Gives the handle up without releasing it.
  T Detach() { return std::exchange(Value, Empty()); }
  void Reset(T Next = Empty()) {
    const T Old = std::exchange(Value, Next);
    if (Old == Empty()) return;
    const TKeepLastError Keep;
    Release(Old);
  }
  /// For calls that hand a new handle back through a pointer.
  T* Out() {
    Reset();
    return &Value;
  }

 private:
  static T Empty() { return reinterpret_cast<T>(EmptyNumber); }

  T Value = Empty();
};

/// Closes a handle; when that fails, once more: what stays open would be in the way of whoever deletes or renames it.
inline void CloseForGood(HANDLE Open) {
  if (!CloseHandle(Open)) CloseHandle(Open);
}

constexpr intptr_t InvalidHandle = -1;
using TFileHandle = TOwned<HANDLE, CloseForGood, InvalidHandle>;
using TFindHandle = TOwned<HANDLE, FindClose, InvalidHandle>;
using TKernelHandle = TOwned<HANDLE, CloseHandle>;
using TModuleHandle = TOwned<HMODULE, FreeLibrary>;
using TRegistryKey = TOwned<HKEY, RegCloseKey>;
using TTaskMemory = TOwned<void*, CoTaskMemFree>;
using TFont = TOwned<HFONT, DeleteObject>;
using TBstr = TOwned<BSTR, SysFreeString>;

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
