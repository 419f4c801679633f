#pragma once

#include "base/windows_api.h"

#include <span>

class TAutoObjectBase;
class TVersionedAutoObjectFactory;

/// One automation class. The table of the twelve, in start-up order, is the only list of them: class objects, the
/// registration pass and the units' start and stop walk it.
struct TCoClass {
  const char* Name;  ///< the coclass's name in the type library
  const CLSID& ClassId;
  const IID& InterfaceId;
  const IID& EventsIid;
  /// Makes an object with one reference, not yet initialized.
  TAutoObjectBase* (*Create)(TVersionedAutoObjectFactory& Factory);
  /// What the class's unit does beside its factory when the module starts and stops; null when it does nothing.
  void (*StartUnit)();
  void (*StopUnit)();
};

std::span<const TCoClass> CoClasses();
