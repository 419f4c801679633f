#include "changes/macros.h"

#include "base/named_lock.h"
#include "rollback/saved_list.h"
#include "server/environment.h"
#include "server/log_scope.h"

namespace {

constexpr wchar_t LogName[] = L"UMacro";

/// The history group that points to the saved permanent macros.
constexpr GUID MacroGroup = {0x2E6B94D1, 0x8C0F, 0x4A7E, {0xB3, 0x5D, 0x6F, 0x1A, 0x0C, 0x9E, 0x47, 0xB2}};

/// An entry is name, equals sign, value.
std::string NameOf(const std::string& Entry) { return Entry.substr(0, Entry.find('=')); }
std::string ValueOf(const std::string& Entry) { return Entry.substr(Entry.find('=') + 1); }

// Process-wide, and used only with the lock held.
TSavedList Temporary(MacroGroup, NameOf);  // never saved
TSavedList Permanent(MacroGroup, NameOf);
bool ReloadNeeded = true;
TNamedLock MacroLock;

/// A name is in one list at the most, because every write removes it from both first.
const std::string* FindMacro(const std::string& Name) {
  const std::string* Found = Permanent.Find(Name);
  return Found ? Found : Temporary.Find(Name);
}

}  // namespace

void TUMacro::Initialize() {
  const bool FoldersKnown = PrepareDataFolders();
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Backup = ActiveOrNew<IUBackup>(CLSID_UBackup);
  History = ActiveOrNew<IUHistory>(CLSID_UHistory);
  if (!FoldersKnown) return;  // the first call says so
  TNamedLock::TOwner Owner(MacroLock);
  const TNamedLock::THold Hold(Owner);
  LoadOnce();
}

/// Once per process; a failure leaves it to the next object, or the next call. To be called with the lock held, and
/// before anything is saved: a list that was not read must not be written over.
void TUMacro::LoadOnce() {
  if (!ReloadNeeded) return;
  Permanent.Load(*Backup, *History);
  ReloadNeeded = false;
}

HRESULT TUMacro::GetMacro(BSTR Name, BSTR* Value) {
  if (!Value) return E_POINTER;
  *Value = nullptr;
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("GetMacro", Name));
    std::string Found;
    {
      TNamedLock::TOwner Owner(MacroLock);
      const TNamedLock::THold Hold(Owner);
      LoadOnce();
      const std::string* Entry = FindMacro(ToAnsi(ViewOf(Name)));
      if (Entry) Found = ValueOf(*Entry);
    }
    Log.End(LogText("GetMacro", Found));
    *Value = MakeBstr(ToWide(Found)).Detach();
  });
}

HRESULT TUMacro::SetMacro(BSTR Name, BSTR Value, VARIANT_BOOL IsPermanent) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("SetMacro", Name, Value, IsPermanent));
    const std::string Key = ToAnsi(ViewOf(Name)), NewValue = ToAnsi(ViewOf(Value));
    if (Key.empty() || Key.find('=') != std::string::npos)
      throw EFailure(E_INVALIDARG, L"The name of a macro must not be empty or hold an equals sign.");
    RemoveAndSave(Key, &NewValue, IsPermanent != VARIANT_FALSE);
    Log.End(LogText("SetMacro"));
  });
}

HRESULT TUMacro::DelMacro(BSTR Name) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("DelMacro", Name));
    RemoveAndSave(ToAnsi(ViewOf(Name)), nullptr, false);
    Log.End(LogText("DelMacro"));
  });
}

/// What both writes do: the name goes from both lists, a new value that is not empty goes into one, and the permanent
/// list is saved, also when only the temporary one has changed.
void TUMacro::RemoveAndSave(const std::string& Name, const std::string* NewValue, bool IsPermanent) {
  TNamedLock::TOwner Owner(MacroLock);
  const TNamedLock::THold Hold(Owner);
  LoadOnce();
  Temporary.Remove(Name);
  Permanent.Remove(Name);
  if (NewValue && !NewValue->empty()) (IsPermanent ? Permanent : Temporary).Add(Name + "=" + *NewValue);
  Permanent.Save(*Backup, *History);
}

HRESULT TUMacro::MacroExists(BSTR Name, VARIANT_BOOL* Exists) {
  if (!Exists) return E_POINTER;
  *Exists = VARIANT_FALSE;
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("MacroExists", Name));
    VARIANT_BOOL Found = VARIANT_FALSE;
    {
      TNamedLock::TOwner Owner(MacroLock);
      const TNamedLock::THold Hold(Owner);
      LoadOnce();
      if (FindMacro(ToAnsi(ViewOf(Name)))) Found = VARIANT_TRUE;
    }
    Log.End(LogText("MacroExists", Found));
    *Exists = Found;
  });
}

TAutoObjectBase* CreateUMacro(TVersionedAutoObjectFactory& Factory) { return new TUMacro(Factory); }

void StartMacros() {
  ReloadNeeded = true;
  MacroLock.Create(GuidText(CLSID_UMacro));
}

void StopMacros() {
  MacroLock.Close();
  Temporary.Clear();
  Permanent.Clear();
}
