#pragma once

#include "base/windows_api.h"

#include <string>
#include <vector>

/// One method of a dual interface, as the type library describes it.
struct TMethod {
  struct TParameter {
    VARTYPE Type;  ///< VT_I4, VT_UI4, VT_BOOL, VT_BSTR, VT_RECORD (a GUID) or VT_VOID (a raw buffer)
    bool Out;      ///< passed as a pointer to Type
    bool ReturnValue;
  };
  DISPID Id;
  std::wstring Name;
  SHORT VtableOffset;  ///< in bytes
  std::vector<TParameter> Parameters;
};

/// IDispatch for every automation object of the module, served from the type library.
///
/// Why not ITypeInfo::Invoke: the platform's own does not pass GUID records everywhere, and no script host can make or
/// read a record. Here a GUID argument may be a record of 16 bytes or its registry-form text (in braces, any case), and
/// a GUID result goes back as registry-form text. Every other argument is coerced to the type in the library; out
/// arguments go back through VARIANT references (a caller that passes a plain value does not get them). Wrong counts,
/// names and types give the standard DISP_E_ results; a raw buffer is refused with a message.
class TDispatchTable {
 public:
  /// Reads the methods of a dual interface, inherited ones included. Raises the COM failure.
  explicit TDispatchTable(ITypeInfo& DualInterface);

  const std::vector<TMethod>& Methods() const { return List; }

  /// IDispatch::Invoke on `Target`, whose vtable is that of the interface.
  HRESULT Invoke(IDispatch* Target, DISPID Id, REFIID Iid, WORD Flags, DISPPARAMS* Arguments, VARIANT* Result,
                 EXCEPINFO* Exception, UINT* BadArgument) const;

 private:
  std::vector<TMethod> List;
};
