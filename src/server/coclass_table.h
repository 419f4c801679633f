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

/// The table of the twelve, in start-up order, is the only list of them: class objects, the registration pass and the
/// units' start and stop walk it.
std::span<const TCoClass* const> CoClasses();

/// The row of the class that implements an interface, which is one of the twelve's.
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
