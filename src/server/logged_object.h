#pragma once

#include "server/active_objects.h"
#include "server/automation.h"
#include "server/coclass_table.h"
#include "server/routine.h"

#include <initializer_list>
#include <tuple>

/// An automation object that tells the debug log what it does, and works through objects of other classes: it obtains
/// a reference to the debug log and to each of `TOthers`, in this order, when it is initialized, and keeps them for
/// its life.
template <class TInterface, class... TOthers>
class TLoggedObject : public TAutoObject<TInterface> {
 public:
  using TAutoObject<TInterface>::TAutoObject;
  void Initialize() override {
    Obtain<IUDebugLog>();
    (Obtain<TOthers>(), ...);
  }

 protected:
  /// The object of another class.
  template <class TOther>
  TOther& Use() const {
    return *std::get<TComRef<TOther>>(Collaborators);
  }
  /// The object's own lines: under its coclass's name.
  TLineSource Lines() const { return {&Use<IUDebugLog>(), this->Class().Name}; }

  /// A routine inside the object.
  template <class TBody>
  auto Routine(const char* Name, std::initializer_list<TLogWord> Begin, TBody&& Body) const {
    return RunRoutine(Lines(), Name, Begin, Body);
  }
  /// A method that is a routine and gives nothing but its HRESULT.
  template <class TBody>
  HRESULT Method(const char* Name, std::initializer_list<TLogWord> Begin, TBody&& Body) noexcept {
    return this->SafeCall([&] { Routine(Name, Begin, Body); });
  }

 private:
  template <class TOther>
  void Obtain() {
    std::get<TComRef<TOther>>(Collaborators) = ActiveOrNew<TOther>(ClassOf(__uuidof(TOther)).ClassId);
  }

  std::tuple<TComRef<IUDebugLog>, TComRef<TOthers>...> Collaborators;
};
