#include "stories/story.h"

namespace {

constexpr char MacroGroup[] = "{2E6B94D1-8C0F-4A7E-B35D-6F1A0C9E47B2}";
constexpr VARIANT_BOOL Temporary = VARIANT_FALSE, Permanent = VARIANT_TRUE;

class Macros : public TStory {
 protected:
  std::string GroupFile() const { return Service("History\\" + std::string(MacroGroup)); }
  HRESULT Set(const std::string& Name, const std::string& Value, VARIANT_BOOL IsPermanent) {
    return Macro->SetMacro(Text(Name), Text(Value), IsPermanent);
  }
  /// What a macro is, and the text in the item that the newest record points to.
  void TellMacro(const std::string& Name) {
    TBstr Value;
    VARIANT_BOOL Known = 99;
    EXPECT_EQ(S_OK, Macro->GetMacro(Text(Name), Value.Out()));
    EXPECT_EQ(S_OK, Macro->MacroExists(Text(Name), &Known));
    const std::string Records = Exists(GroupFile()) ? Read(GroupFile()) : "";
    GUID DataID{};
    if (!Records.empty()) std::memcpy(&DataID, &Records[Records.size() - sizeof DataID], sizeof DataID);
    Tell("  " + Name + " is " + std::to_string(Known) + " '" + Take(Value) + "', saved " +
         Read(ItemPath(DataID)).substr(4));
    Log().Lines.clear();
  }
};

TEST_F(Macros, AreInOneListAtTheMostAndComparedWithoutCase) {
  Step("permanent", Set("Path \xC4\xD6\xDC", "one, \"two\"", Permanent));
  TBstr Value;
  VARIANT_BOOL Known = 99;
  Step("get", Macro->GetMacro(Text("PATH \xE4\xF6\xFC"), Value.Out()));
  Step("exists", Macro->MacroExists(Text("path"), &Known));
  Brief("other case", Set("pATH \xE4\xD6\xFC", "two", Permanent));
  for (const char* Name : {"Path \xC4\xD6\xDC", "Path", "Path \xC4\xD6\xDC="}) TellMacro(Name);
  Step("delete", Macro->DelMacro(Text("PATH \xC4\xF6\xDC")));
  TellMacro("Path \xC4\xD6\xDC");
  // Any number but 0 is permanent; an empty value removes.
  for (const VARIANT_BOOL Old : {Temporary, Permanent})
    for (const VARIANT_BOOL New : {Temporary, VARIANT_BOOL{1}}) {
      Brief("set", Set("X", "old", Old));
      TellMacro("X");
      Brief("changed", Set("x", "new", New));
      TellMacro("X");
      Brief("emptied", Set("X", "", New));
      TellMacro("X");
    }
  for (const char* Name : {"", "a=b", "="}) Brief("a name that could not be read back", Set(Name, "value", Permanent));
}

class DamagedMacros : public TSandboxTest {};

TEST_F(DamagedMacros, AreToldByEachCallAndNotWrittenOver) {
  const std::string Record = TStory::RecordOf(Guid(MacroGroup), 0, NumberedGuid(5)), Tag("\1\0\0\0", 4);
  Write(Service("History\\" + std::string(MacroGroup)), Record);
  std::string Found;
  // The last one is not read: they are restored once a process.
  for (const std::string& Item : {std::string("damaged"), Tag + "A=1, \"B=,\"\"x y\r\n\"", Tag + "A=2"}) {
    Write(Service("Backup\\" + GuidText(NumberedGuid(5))), Item);
    const auto Macro = Make<IUMacro>(CLSID_UMacro);
    for (const char* Name : {"a", "b"}) {
      TBstr Value;
      const HRESULT Result = Macro->GetMacro(Text(std::string(Name)), Value.Out());
      Found += " " + (Result == S_OK ? Take(Value) : ErrorText());
    }
  }
  EXPECT_EQ(" Internal error #1. Internal error #1. 1 ,\"x y\r\n 1 ,\"x y\r\n", Found);
  EXPECT_EQ(Record, Read(Service("History\\" + std::string(MacroGroup))));
}

}  // namespace
