#pragma once

#include "base/handles.h"
#include "base/windows_api.h"

#include <memory>
#include <string>
#include <vector>

class TVersionedAutoObjectFactory;
struct TCoClass;

/// The module's one server object, from load to unload: owns the type library and the class factories, counts what
/// keeps the module in memory, and runs the registration.
class TComServer {
 public:
  TComServer();
  ~TComServer();
  TComServer(const TComServer&) = delete;
  TComServer& operator=(const TComServer&) = delete;

  /// Creates the factory of one class. The first call loads the type library; a failure of that is raised.
  void AddFactory(const TCoClass& Row);
  /// The factory of a class, or null.
  TVersionedAutoObjectFactory* FindFactory(const CLSID& ClassId) const;

  /// The name of the type library; the module's file name without folder and extension when none is loaded.
  std::string Name() const;
  /// The module's full path in its long form.
  const std::wstring& FileName() const { return ModulePath; }
  /// The class's subkey that names the module. The module is a library and has no executable form.
  const char* ServerKey() const { return "InprocServer32"; }
  /// Loaded from the module on first use. Raises the COM failure.
  ITypeLib& TypeLibrary();
  TLIBATTR LibraryAttributes();

  void CountObject(LONG Change) { InterlockedExchangeAdd(&Objects, Change); }
  void CountFactory(LONG Change) { InterlockedExchangeAdd(&Factories, Change); }
  bool CanUnload() const { return Objects == 0 && Factories == 0; }

  /// The registration pass, in either direction. Raises the first failure; entries already written stay.
  void UpdateRegistry(bool Register);

 private:
  void RegisterTypeLibrary();
  void UnregisterTypeLibrary();

  TModuleHandle OleAutomation;
  std::wstring ModulePath;
  volatile LONG Objects = 0;
  volatile LONG Factories = 0;
  ITypeLib* volatile Library = nullptr;
  std::vector<std::unique_ptr<TVersionedAutoObjectFactory>> FactoryList;
};
