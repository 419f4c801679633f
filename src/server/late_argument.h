#pragma once

#include "server/method_table.h"

#include <vector>

/// A VARIANT that is cleared at its end.
struct TVariant : VARIANT {
  TVariant() : VARIANT{} {}  // VT_EMPTY
  ~TVariant() { VariantClear(this); }
  TVariant(const TVariant&) = delete;
  TVariant& operator=(const TVariant&) = delete;
};

/// What a vtable method is called with, as DispCallFunc wants it; both lists are equally long.
struct TVtableArguments {
  std::vector<VARTYPE> Types;
  std::vector<VARIANT> Values;

  void Add(VARTYPE Type, const VARIANT& Value) {
    Types.push_back(Type);
    Values.push_back(Value);
  }
};

/// One argument of a late-bound call: what the caller gave for a parameter, and what the method takes and gives there.
/// The parameter and the caller's VARIANT must outlive it.
class TLateArgument {
 public:
  explicit TLateArgument(const TMethod::TParameter& Parameter) : Parameter(Parameter) {}

  VARIANT* Given = nullptr;  ///< the caller's, null for a return value
  const TMethod::TParameter& Parameter;

  /// Turns what was given into the parameter's type. A failure is one of DISP_E_.
  HRESULT Convert();
  /// Whether the out value can be stored where the caller's reference leads, as far as that shows before the call: a
  /// null reference and a type that the value never converts to are DISP_E_TYPEMISMATCH. (A number may still be too
  /// large for a short one; that is told after the call.)
  HRESULT CheckPlace() const;
  /// Adds what the method takes: the converted value, or the address of the out value. This object must stay where it
  /// is until the method has returned.
  void Pass(TVtableArguments& Arguments);
  /// Moves the out value into `Target`, a VARIANT of its own kind, whose old content is ignored; a GUID becomes its
  /// text.
  void TakeOut(VARIANT& Target);
  /// Stores the out value where the caller's reference leads, in the type that it has there, as far as it converts.
  /// Nothing is stored for a plain value.
  HRESULT GiveOut();

 private:
  void PassGuid(TVtableArguments& Arguments);

  TVariant Value;  ///< converted, or the out value
  GUID Guid{};     ///< used instead for a GUID
};
