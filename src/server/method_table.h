#pragma once

#include "base/windows_api.h"

#include <string>
#include <vector>

/// One method of a dual interface, or the reading of a property, as the type library describes it.
struct TMethod {
  struct TParameter {
    VARTYPE Type;  ///< VT_I4, VT_UI4, VT_BOOL, VT_BSTR, VT_RECORD (a GUID) or VT_VOID (a raw buffer)
    bool Out;      ///< passed as a pointer to Type
    bool ReturnValue;
  };
  DISPID Id = 0;
  WORD Kind = DISPATCH_METHOD;  ///< or DISPATCH_PROPERTYGET
  std::wstring Name;
  SHORT VtableOffset = 0;  ///< in bytes
  std::vector<TParameter> Parameters;
};

/// The methods of a dual interface, inherited ones included, those of IDispatch not.
class TMethodTable {
 public:
  /// Reads them from the type library. Raises the COM failure.
  explicit TMethodTable(ITypeInfo& DualInterface);

  /// Null when there is none of the kinds that a caller's DISPATCH_ flags allow.
  const TMethod* Find(DISPID Id, WORD Kinds) const;

 private:
  void Collect(ITypeInfo& Info);

  std::vector<TMethod> Methods;
};
