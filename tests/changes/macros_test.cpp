#include "support/module_calls.h"
#include "support/process.h"
#include "support/sandbox_test.h"

namespace {

constexpr char MacroGroup[] = "{2E6B94D1-8C0F-4A7E-B35D-6F1A0C9E47B2}";
constexpr VARIANT_BOOL Temporary = VARIANT_FALSE, Permanent = VARIANT_TRUE;

class Macros : public TSandboxTest {
 protected:
  explicit Macros(TLogChoice Choice = LogInMemory) : TSandboxTest(Choice) {}

  HRESULT Set(const std::string& Name, const std::string& Value, VARIANT_BOOL IsPermanent) {
    return Object->SetMacro(Text(Name), Text(Value), IsPermanent);
  }
  /// The value; "<none>" for a macro that is not there.
  std::string Get(const std::string& Name) {
    TBstr Value;
    VARIANT_BOOL Known = 99;
    EXPECT_EQ(S_OK, Object->GetMacro(Text(Name), Value.Out()));
    EXPECT_EQ(S_OK, Object->MacroExists(Text(Name), &Known));
    const std::string Result = Take(Value);
    EXPECT_EQ(Result.empty() ? VARIANT_FALSE : VARIANT_TRUE, Known) << Name;
    return Known ? Result : "<none>";
  }
  std::string GroupFile() const { return Service("History\\" + std::string(MacroGroup)); }
  size_t RecordCount() const { return Exists(GroupFile()) ? Read(GroupFile()).size() / 36 : 0; }
  /// The text in the item that the newest record points to.
  std::string Saved() const {
    const std::string Records = Read(GroupFile());
    GUID DataID;
    std::memcpy(&DataID, Records.data() + Records.size() - sizeof DataID, sizeof DataID);
    return Read(Service("Backup\\" + GuidText(DataID))).substr(4);
  }

  TComRef<IUMacro> Object;
};

/// The usual case: the object is there from the start.
class Macro : public Macros {
 protected:
  Macro() { Object = Make<IUMacro>(CLSID_UMacro); }
};

TEST_F(Macro, NamesAreComparedWithoutCase) {
  ASSERT_EQ(S_OK, Set("Path \xC4\xD6\xDC", "one", Permanent));
  EXPECT_EQ("one", Get("PATH \xE4\xF6\xFC"));
  ASSERT_EQ(S_OK, Set("pATH \xE4\xD6\xFC", "two", Permanent));
  EXPECT_EQ("two", Get("Path \xC4\xD6\xDC"));
  EXPECT_EQ("\"pATH \xE4\xD6\xFC=two\"", Saved());
  EXPECT_EQ("<none>", Get("Pat"));
  EXPECT_EQ("<none>", Get("Path \xC4\xD6\xDC="));
  ASSERT_EQ(S_OK, Object->DelMacro(Text("PATH \xC4\xF6\xDC")));
  EXPECT_EQ("<none>", Get("Path \xC4\xD6\xDC"));
  EXPECT_EQ("", Saved());
}

TEST_F(Macro, AMacroIsInOneListAtTheMost) {
  ASSERT_EQ(S_OK, Set("X", "temporary", Temporary));
  EXPECT_EQ("", Saved());
  ASSERT_EQ(S_OK, Set("X", "permanent", 1));  // any number but 0
  EXPECT_EQ("permanent", Get("X"));
  EXPECT_EQ("X=permanent", Saved());
  ASSERT_EQ(S_OK, Set("X", "temporary again", Temporary));
  EXPECT_EQ("temporary again", Get("X"));
  EXPECT_EQ("", Saved());
}

TEST_F(Macro, AnEmptyValueRemovesAMacro) {
  for (VARIANT_BOOL Old : {Temporary, Permanent})
    for (VARIANT_BOOL New : {Temporary, Permanent}) {
      ASSERT_EQ(S_OK, Set("X", "value", Old));
      ASSERT_EQ(S_OK, Set("X", "", New));
      EXPECT_EQ("<none>", Get("X"));
    }
  EXPECT_EQ("", Saved());
}

TEST_F(Macro, AFailedSaveIsRaisedAndLetsGoOfTheLock) {
  ASSERT_EQ(S_OK, Set("X", "old", Permanent));
  {
    TFault Fault("WriteFile", {0, 2, ERROR_DISK_FULL});
    EXPECT_EQ(static_cast<HRESULT>(0x80040270), Set("X", "new", Permanent));
    EXPECT_EQ(SystemText(ERROR_DISK_FULL), ErrorText());
    EXPECT_EQ(static_cast<HRESULT>(0x80040270), Object->DelMacro(Text("Y")));
  }
  EXPECT_EQ(1u, RecordCount());
  EXPECT_EQ("X=old", Saved());
  EXPECT_EQ("new", Get("X")) << "the change in memory has been made";
  ASSERT_EQ(S_OK, Set("Y", "other", Permanent));
  EXPECT_EQ("X=new,Y=other", Saved());
}

TEST_F(Macro, ANameThatCouldNotBeReadBackIsRefused) {
  for (const char* Name : {"", "a=b", "="}) {
    EXPECT_EQ(E_INVALIDARG, Set(Name, "value", Permanent));
    EXPECT_EQ("The name of a macro must not be empty or hold an equals sign.", ErrorText());
  }
  EXPECT_EQ(0u, RecordCount());
}

TEST_F(Macros, AnObjectThatCannotRestoreFailsAndTheNextOneTriesAgain) {
  const std::string Item = Service("Backup\\" + GuidText(NumberedGuid(5)));
  GUID Ids[] = {Guid(MacroGroup), NumberedGuid(5)};
  const std::string Record = std::string(reinterpret_cast<char*>(&Ids[0]), 16) + std::string(4, '\0') +
                             std::string(reinterpret_cast<char*>(&Ids[1]), 16);
  Write(GroupFile(), Record);
  Write(Item, "damaged");
  IUMacro* None = nullptr;
  EXPECT_TRUE(FAILED(
      CoCreateInstance(CLSID_UMacro, nullptr, CLSCTX_INPROC_SERVER, IID_IUMacro, reinterpret_cast<void**>(&None))));
  EXPECT_EQ("Internal error #1.", Dialog().Boxes.at(0).Text);
  EXPECT_EQ(Record, Read(GroupFile())) << "what could not be read is not written over";

  Write(Item, std::string("\1\0\0\0", 4) + "A=1, \"B=x\"\"y\"");
  Object = Make<IUMacro>(CLSID_UMacro);
  EXPECT_EQ("1", Get("a"));
  EXPECT_EQ("x\"y", Get("b"));
  // It is restored once a process.
  Write(Item, std::string("\1\0\0\0", 4) + "A=2");
  EXPECT_EQ("1", (Object = Make<IUMacro>(CLSID_UMacro), Get("a")));
}

constexpr int NoMatch = 99;
/// match-macro NAME VALUE...: the number of the VALUE, from 0, that the macro NAME is in a new process, or NoMatch; an
/// empty one stands for a macro that is not there.
const TRole MatchMacro("match-macro", [](const TWords& Arguments, TScriptedDialog&) {
  const auto Macro = Make<IUMacro>(CLSID_UMacro);
  const Text Name(Arguments.at(0));
  TBstr Result;
  VARIANT_BOOL Known = VARIANT_FALSE;
  if (FAILED(Macro->GetMacro(Name, Result.Out())) || FAILED(Macro->MacroExists(Name, &Known))) return NoMatch;
  const std::string Value = Take(Result);
  if (Value.empty() == (Known == VARIANT_TRUE)) return NoMatch;
  for (size_t At = 1; At < Arguments.size(); ++At)
    if (Value == Arguments[At]) return static_cast<int>(At - 1);
  std::printf("%s is %s\n", Arguments[0].c_str(), testing::PrintToString(Value).c_str());
  return NoMatch;
});

/// Other processes read here; see NoDoubles.
class SharedMacros : public Macros {
 protected:
  SharedMacros() : Macros(NoDoubles) { Object = Make<IUMacro>(CLSID_UMacro); }
};

TEST_F(SharedMacros, PermanentOnesAreExactInANewProcessAndTemporaryOnesGone) {
  const std::pair<const char*, std::string> Values[] = {{"list, \"quoted\"", ",\"a\" \"\"b\","},
                                                        {"blanks", "  a  b  "},
                                                        {"equals", "=a==b="},
                                                        {"breaks", "a\r\nb\n\tc\r"},
                                                        {"page", "\xE4\x80\xFF"},
                                                        {"quote alone", "\""}};
  for (const auto& [Name, Value] : Values) ASSERT_EQ(S_OK, Set(Name, Value, Permanent)) << Name;
  ASSERT_EQ(S_OK, Set("temporary", "gone", Temporary));
  for (const auto& [Name, Value] : Values) {
    EXPECT_EQ(Value, Get(Name));
    EXPECT_EQ(0u, TChild({"match-macro", Name, Value}).Wait()) << Name;
  }
  EXPECT_EQ(0u, TChild({"match-macro", "temporary", ""}).Wait());
}

}  // namespace
