// How an update runs where nobody is in front of the screen. While a TSilence lives, Mendwork's objects of this process
// find a dialog and a debug log of the program's own in the running object table, and use them instead of theirs: no
// box appears, a call that fails fails at once as if Cancel had been pressed, and the lines go to a file of the
// program's own, because "update.log" asks its questions by itself when another process has it open.
//
// The running object table belongs to the user's session: Mendwork's objects that other programs make there meanwhile
// find the same two.
#pragma once

#include <windows.h>
// The header needs the types of the one above.
#include <Mendwork_TLB.h>

#include <cstdio>
#include <stdexcept>
#include <string>

/// One of Mendwork's interfaces, implemented by this program. It outlives whoever uses it, so nothing is counted, and
/// nobody calls it late bound.
template <class TInterface>
class TOwnObject : public TInterface {
 public:
  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    const bool Known = IsEqualIID(Iid, __uuidof(IUnknown)) || IsEqualIID(Iid, __uuidof(IDispatch)) ||
                       IsEqualIID(Iid, __uuidof(TInterface));
    *Result = Known ? this : nullptr;
    return Known ? S_OK : E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return 2; }
  STDMETHOD_(ULONG, Release)() override { return 1; }
  STDMETHOD(GetTypeInfoCount)(UINT*) override { return E_NOTIMPL; }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }
};

/// Takes the place of the user.
class TSilentDialog : public TOwnObject<IUDialog> {
 public:
  STDMETHOD(ShowMsgBox)(BSTR, BSTR, long MsgType, long* Res) override {
    switch (MsgType & MB_TYPEMASK) {
      case MB_RETRYCANCEL:  // something failed
        *Res = IDCANCEL;
        break;
      case MB_YESNO:  // whether to overwrite a file, under the copy modes 4 and 5
        *Res = IDNO;
        break;
      default:
        *Res = IDOK;
    }
    return S_OK;
  }
  STDMETHOD(ShowCustomMsgBox)(BSTR, BSTR, long, BSTR, BSTR DefButton, BSTR* Res) override {
    *Res = SysAllocStringLen(DefButton, SysStringLen(DefButton));
    return *Res ? S_OK : E_OUTOFMEMORY;
  }
};

/// Takes the place of "update.log".
class TOwnDebugLog : public TOwnObject<IUDebugLog> {
 public:
  explicit TOwnDebugLog(const std::wstring& FileName) : File(_wfopen(FileName.c_str(), L"a, ccs=UTF-8")) {
    if (!File) throw std::runtime_error("The log file cannot be opened.");
  }
  ~TOwnDebugLog() { std::fclose(File); }
  TOwnDebugLog(const TOwnDebugLog&) = delete;
  TOwnDebugLog& operator=(const TOwnDebugLog&) = delete;
  /// A line that cannot be written must not keep the update from being made.
  STDMETHOD(Put)(long id, BSTR Name, BSTR Action, BSTR Text) override {
    std::fwprintf(File, L"%ld %ls %ls %ls\n", id, Name ? Name : L"", Action ? Action : L"", Text ? Text : L"");
    return S_OK;
  }

 private:
  std::FILE* File;
};

/// An object in the running object table, as the active one of a class of Mendwork's.
class TActiveObject {
 public:
  TActiveObject(IUnknown& Object, const CLSID& Class) {
    if (FAILED(RegisterActiveObject(&Object, Class, ACTIVEOBJECT_STRONG, &Registration)))
      throw std::runtime_error("An object cannot be made the active one.");
  }
  ~TActiveObject() { RevokeActiveObject(Registration, nullptr); }
  TActiveObject(const TActiveObject&) = delete;
  TActiveObject& operator=(const TActiveObject&) = delete;

 private:
  DWORD Registration = 0;
};

/// Only one program at a time: without "update.log", which one process has for itself, another one's start would undo
/// what this one is doing.
class TOnlyOne {
 public:
  TOnlyOne() : Mutex(CreateMutexW(nullptr, FALSE, L"Global\\Example.Updater")) {
    if (!Mutex || GetLastError() == ERROR_ALREADY_EXISTS) {
      if (Mutex) CloseHandle(Mutex);
      throw std::runtime_error("Another update is running.");
    }
  }
  ~TOnlyOne() { CloseHandle(Mutex); }
  TOnlyOne(const TOnlyOne&) = delete;
  TOnlyOne& operator=(const TOnlyOne&) = delete;

 private:
  HANDLE Mutex;
};

/// To be made before the first of Mendwork's objects, and to go after the last of them.
class TSilence {
 public:
  explicit TSilence(const std::wstring& LogFile) : DebugLog(LogFile) {}

 private:
  TOnlyOne OnlyOne;
  TSilentDialog Dialog;
  TOwnDebugLog DebugLog;
  TActiveObject ActiveDialog{Dialog, CLSID_UDialog}, ActiveDebugLog{DebugLog, CLSID_UDebugLog};
};
