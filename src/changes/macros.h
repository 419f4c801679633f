#pragma once

#include "rollback/shared_lists.h"

#include <string>

/// Named text values. A temporary macro lives until the module unloads; a permanent one is saved through the backup
/// store and the history, and read back by the first object of a later process. All objects of a process see the same
/// macros; names are compared without case. A process that has read the permanent macros does not see what others
/// change later.
class TUMacro final : public TListObject<IUMacro> {
 public:
  using TListObject::TListObject;

  /// The empty text for a name that is not known.
  STDMETHOD(GetMacro)(BSTR Name, BSTR* Value) override;
  /// An empty value removes the macro. Every call saves the permanent macros, also one that sets a temporary one.
  /// Fails with E_INVALIDARG for an empty name and one with an equals sign: nobody could read it back.
  STDMETHOD(SetMacro)(BSTR Name, BSTR Value, VARIANT_BOOL IsPermanent) override;
  STDMETHOD(DelMacro)(BSTR Name) override;
  STDMETHOD(MacroExists)(BSTR Name, VARIANT_BOOL* Exists) override;

 private:
  TSharedLists& Lists() const override;
  /// What both writes do: the name goes from both lists, a new value that is not empty goes into one, and the permanent
  /// list is saved, also when only the temporary one has changed.
  void Replace(const std::string& Name, const std::string& NewValue, bool IsPermanent) const;
};
