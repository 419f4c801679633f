#pragma once

#include "base/named_lock.h"
#include "base/windows_api.h"

#include <span>

class TAutoObjectBase;
class TVersionedAutoObjectFactory;

/// One automation class and its unit. Each class defines its own row, with COCLASS below, where it is implemented.
struct TCoClass {
  const char* Name = nullptr;  ///< the coclass's name in the type library
  const CLSID& ClassId;
  const IID& InterfaceId;
  const IID& EventsIid;
  /// Makes an object with one reference, not yet initialized.
  TAutoObjectBase* (*Create)(TVersionedAutoObjectFactory& Factory) = nullptr;
  /// The lock of what all processes share of the class, named by its ClassId from the module's start to its stop; null
  /// when there is nothing.
  TNamedLock* Lock = nullptr;
  /// What else the class's unit does when the module starts and stops; null when it does nothing.
  void (*StartUnit)() = nullptr;
  void (*StopUnit)() = nullptr;
};

/// What tells one module of this frame from another; all else is in its type library and its resources.
struct TModuleFacts {
  const wchar_t* Name;  ///< the source of errors that are no class's own
  int ClassVersion;     ///< the number behind the ProgIDs of its classes
  /// The rows of its classes in start-up order, the only list of them: class objects, the registration pass and the
  /// units' start and stop walk it.
  std::span<const TCoClass* const> CoClasses;
};

/// Defined by each module, as a constant of the compiler: it is read before anything of the module has started.
extern const TModuleFacts OwnModule;

/// The row of the module's own class that implements an interface.
const TCoClass& ClassOf(const IID& InterfaceId);

/// Defines the row of a coclass: its name, the class that implements it, and its unit's lock, start and stop.
#define COCLASS(Name, TClass, ...)                                                                  \
  extern const TCoClass CoClass##Name;                                                              \
  const TCoClass CoClass##Name = {                                                                  \
      #Name,                                                                                        \
      CLSID_##Name,                                                                                 \
      IID_I##Name,                                                                                  \
      DIID_I##Name##Events,                                                                         \
      [](TVersionedAutoObjectFactory& Factory) -> TAutoObjectBase* { return new TClass(Factory); }, \
      __VA_ARGS__}
