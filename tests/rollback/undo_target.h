#pragma once

#include "support/sandbox_test.h"

#include <functional>

/// An object of a class that undoes changes: registered as the active object of that class for as long as it lives, it
/// records what it is called back with and answers as told.
class TUndoTarget {
 public:
  explicit TUndoTarget(const GUID& ClassId) : Entry(RegisterActive(Object.Get(), ClassId)) {}
  ~TUndoTarget() { RevokeActive(Entry); }
  TUndoTarget(const TUndoTarget&) = delete;
  TUndoTarget& operator=(const TUndoTarget&) = delete;

  /// The codes so far, each with a blank and the last digits of its DataID.
  std::string Calls() const { return Object->Calls; }
  void Answer(std::function<HRESULT()> OnRollback) { Object->OnRollback = std::move(OnRollback); }

 private:
  struct TObject final : TDouble<IUCanRollback> {
    STDMETHOD(Rollback)(long Code, GUID DataID) override {
      Calls += (Calls.empty() ? "" : ", ") + std::to_string(Code) + " " + std::to_string(DataID.Data4[7]);
      return OnRollback ? OnRollback() : S_OK;
    }
    std::string Calls;
    std::function<HRESULT()> OnRollback;
  };
  TComRef<TObject> Object{new TObject};
  DWORD Entry;
};
