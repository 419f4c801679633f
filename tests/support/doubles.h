#pragma once

#include "base/handles.h"
#include "server/interfaces.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

/// Base of objects that tests hand to the module: counting, QueryInterface, and an IDispatch that nobody calls.
template <class TInterface>
class TDouble : public TInterface {
 public:
  virtual ~TDouble() = default;
  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    const bool Known = Iid == IID_IUnknown || Iid == IID_IDispatch || Iid == __uuidof(TInterface);
    *Result = Known ? this : nullptr;
    if (Known) AddRef();
    return Known ? S_OK : E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return ++References; }
  STDMETHOD_(ULONG, Release)() override {
    const ULONG Left = --References;
    if (Left == 0) delete this;
    return Left;
  }
  STDMETHOD(GetTypeInfoCount)(UINT*) override { return E_NOTIMPL; }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }

 private:
  ULONG References = 1;
};

/// The user: records every box and answers from a script. Without a script it presses Cancel. Whoever wants to decide
/// box by box gives the one answer in OnBox.
class TScriptedDialog final : public TDouble<IUDialog> {
 public:
  struct TBox {
    std::string Text, Caption;
    long MsgType;
  };
  STDMETHOD(ShowMsgBox)(BSTR Text, BSTR Caption, long MsgType, long* Res) override;
  STDMETHOD(ShowCustomMsgBox)(BSTR, BSTR, long, BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }

  /// The next answers, in order.
  void Answer(std::initializer_list<long> Buttons) { Answers.insert(Answers.end(), Buttons); }
  std::vector<TBox> Boxes;
  /// Called before each answer is given; may mend what made the box appear.
  std::function<void()> OnBox;
  /// What ShowMsgBox returns.
  HRESULT Result = S_OK;

 private:
  std::deque<long> Answers;
};

/// The debug log, kept in memory.
class TMemoryLog final : public TDouble<IUDebugLog> {
 public:
  struct TLine {
    long Id;
    std::string Name, Action, Text;
  };
  STDMETHOD(Put)(long Id, BSTR Name, BSTR Action, BSTR Text) override;

  std::vector<TLine> Lines;
  /// "Action Text" of every line of one Name.
  std::vector<std::string> Texts(const std::string& Name) const;
  /// What Put answers; a failure makes every logged call of the module fail.
  HRESULT Result = S_OK;
  /// After so many lines more, Put fails with E_ACCESSDENIED; a negative number means never.
  int LinesLeft = -1;
  /// Called before each line is taken.
  std::function<void()> OnLine;
};

/// An active object in the running object table for as long as the owner lives. Fails the program when it cannot.
DWORD RegisterActive(IUnknown* Object, const CLSID& ClassId);
inline void RevokeActive(DWORD Entry) { RevokeActiveObject(Entry, nullptr); }
