#pragma once

#include "server/method_table.h"

/// IDispatch for every automation object of the module, served from the type library.
///
/// Why not ITypeInfo::Invoke: the platform's own does not pass GUID records everywhere, and no script host can make or
/// read a record. Here a GUID argument may be a record of 16 bytes or its registry-form text (in braces, any case), and
/// a GUID result goes back as registry-form text. Every other argument is coerced to the type in the library; out
/// arguments go back through VARIANT references (a caller that passes a plain value does not get them). Properties are
/// read only. Wrong counts, names and types give the standard DISP_E_ results; a raw
/// buffer is refused with a message.
class TDispatchTable {
 public:
  /// Reads the methods of a dual interface. Raises the COM failure.
  explicit TDispatchTable(ITypeInfo& DualInterface) : Methods(DualInterface) {}

  /// IDispatch::Invoke on `Target`, whose vtable is that of the interface.
  HRESULT Invoke(IDispatch* Target, DISPID Id, REFIID Iid, WORD Flags, DISPPARAMS* Arguments, VARIANT* Result,
                 EXCEPINFO* Exception, UINT* BadArgument) const;

 private:
  TMethodTable Methods;
};
