#include "changes/macros.h"

#include "base/failure.h"
#include "base/text.h"
#include "formats/entry_codes.h"
#include "server/arguments.h"

namespace {

/// An entry is name, equals sign, value.
std::string NameOf(const std::string& Entry) { return Entry.substr(0, Entry.find('=')); }
std::string ValueOf(const std::string& Entry) { return Entry.substr(Entry.find('=') + 1); }

// Process-wide, and used only with the lock held.
TNameList Temporary(NameOf);
TSavedList Permanent(MacroGroupId, NameOf);
TSharedLists Macros{&Permanent};

/// A name is in one list at the most, because every write removes it from both first.
const std::string* FindMacro(const std::string& Name) {
  const std::string* Found = Permanent.Find(Name);
  return Found ? Found : Temporary.Find(Name);
}

}  // namespace

TSharedLists& TUMacro::Lists() const { return Macros; }

HRESULT TUMacro::GetMacro(BSTR Name, BSTR* Value) {
  return Give(Value, [&] {
    const std::string Found = Routine("GetMacro", {Name}, [&] {
      std::string Text;
      WithLists([&] {
        const std::string* Entry = FindMacro(TextArgument(Name));
        if (Entry) Text = ValueOf(*Entry);
      });
      return Text;
    });
    return ToWide(Found);
  });
}

HRESULT TUMacro::SetMacro(BSTR Name, BSTR Value, VARIANT_BOOL IsPermanent) {
  return Method("SetMacro", {Name, Value, IsPermanent}, [&] {
    const std::string NewName = TextArgument(Name), NewValue = TextArgument(Value);
    if (NewName.empty() || NewName.find('=') != std::string::npos) Refuse(MsgBadMacroName);
    Replace(NewName, NewValue, IsPermanent != VARIANT_FALSE);
  });
}

HRESULT TUMacro::DelMacro(BSTR Name) {
  return Method("DelMacro", {Name}, [&] { Replace(TextArgument(Name), "", false); });
}

void TUMacro::Replace(const std::string& Name, const std::string& NewValue, bool IsPermanent) const {
  WithLists([&] {
    Temporary.Remove(Name);
    Permanent.Remove(Name);
    TNameList& Target = IsPermanent ? Permanent : Temporary;
    if (!NewValue.empty()) Target.Add(Name + "=" + NewValue);
    Save(Permanent);
  });
}

HRESULT TUMacro::MacroExists(BSTR Name, VARIANT_BOOL* Exists) {
  return Give(Exists, [&] {
    return Routine("MacroExists", {Name}, [&] {
      VARIANT_BOOL Found = VARIANT_FALSE;
      WithLists([&] {
        if (FindMacro(TextArgument(Name))) Found = VARIANT_TRUE;
      });
      return Found;
    });
  });
}

static void ForgetMacros() {
  Macros.Forget();
  Temporary.Assign({});
}
COCLASS(UMacro, TUMacro, &Macros.Lock, nullptr, ForgetMacros);
