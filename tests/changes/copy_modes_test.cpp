// What each copy mode does with a destination that exists.

#include "changes/changes_test.h"

namespace {

/// Files with version information, made by the build; without a file the test's file has none. The product version,
/// which decides, grows from the first to the third; the file version, which is shown, does not.
struct TVersion {
  const char* File;
  const char* Shown;
};
constexpr TVersion None = {nullptr, "0.0.0.0"}, First = {"first.dll", "9.8.7.6"}, Second = {"second.dll", "1.0.0.2"},
                   Third = {"third.dll", "1.0.0.1"};

/// Last-write times: a midnight, which is shown without a time of day, the smallest step later, and noon.
constexpr uint64_t Midnight = 132250752000000000 + 864000000000, OneTickLater = Midnight + 1,
                   Noon = Midnight + 432000000000;
constexpr long NoQuestion = 0;

struct TModeCase {
  const char* Name;
  long CopyMode;
  TVersion Source, Dest;
  uint64_t SourceTime, DestTime;
  long Answer;
  bool Overwrites;
};
std::ostream& operator<<(std::ostream& Out, const TModeCase& Case) { return Out << Case.Name; }

const TModeCase Cases[] = {
    {"Mode0_OverwritesALaterVersion", 0, First, Third, Midnight, Noon, NoQuestion, true},
    {"Mode6_IsLike0", 6, First, Third, Midnight, Noon, NoQuestion, true},
    {"Mode1_KeepsAnEarlierVersion", 1, Third, First, Noon, Midnight, NoQuestion, false},
    {"Mode2_GreaterProductOfLowerFileVersion", 2, Second, First, Midnight, Noon, NoQuestion, true},
    {"Mode2_LesserProductOfGreaterFileVersion", 2, First, Second, Noon, Midnight, NoQuestion, false},
    {"Mode2_IsUnsigned", 2, Third, Second, Midnight, Noon, NoQuestion, true},
    {"Mode2_Equal", 2, Second, Second, Noon, Midnight, NoQuestion, false},
    {"Mode2_NoneIsLess", 2, None, First, Noon, Midnight, NoQuestion, false},
    {"Mode3_Later", 3, First, Third, OneTickLater, Midnight, NoQuestion, true},
    {"Mode3_Equal", 3, Third, First, Noon, Noon, NoQuestion, false},
    {"Mode4_Greater", 4, Second, First, Midnight, Noon, NoQuestion, true},
    {"Mode4_EqualYes", 4, None, None, Noon, Midnight, IDYES, true},
    {"Mode4_LessYes", 4, First, Second, Midnight, Noon, IDYES, true},
    {"Mode4_LessClosed", 4, First, Second, Noon, Midnight, IDCANCEL, false},
    {"Mode5_Later", 5, First, Third, OneTickLater, Midnight, NoQuestion, true},
    {"Mode5_EqualYes", 5, Third, None, Noon, Noon, IDYES, true},
    {"Mode5_EarlierNo", 5, Third, None, Midnight, Noon, IDNO, false},
};

class CopyModes : public TFileTest, public testing::WithParamInterface<TModeCase> {
 protected:
  void Place(const std::string& Name, const TVersion& Version, uint64_t Time) {
    const std::string Content =
        Version.File ? Read(BuiltFile(std::string("tests\\versioned\\") + Version.File)) : "text of " + Name;
    EXPECT_NE("<no file>", Content);
    Write(App(Name), Content);
    SetTimes(App(Name), TreeOf(App())[Name].LastAccess, Time);
  }
  std::string Described(const std::string& Name, const TVersion& Version, uint64_t Time) {
    const std::string Facts = Case.CopyMode == 4 ? std::string("version ") + Version.Shown
                                                 : "size " + std::to_string(Read(App(Name)).size()) + " byte(s)";
    return "'" + App(Name) + "'\r\n       " + Facts + "\r\n       date " + TimeText(Time);
  }
  std::vector<TScriptedDialog::TBox> Questions() {
    if (Case.Answer == NoQuestion) return {};
    return {{"Overwrite " + Described("dest", Case.Dest, Case.DestTime) + "\r\n\r\nWith file " +
                 Described("source", Case.Source, Case.SourceTime) + "?",
             "Confirmation", 0x24}};
  }

  const TModeCase& Case = GetParam();
};

TEST_P(CopyModes, DecidesOverAnExistingDestination) {
  for (const bool Logged : {false, true}) {
    SCOPED_TRACE(Logged);
    Place("dest", Case.Dest, Case.DestTime);
    Place("source", Case.Source, Case.SourceTime);
    TTree Expected = TreeOf(App());
    const TTree Before = Expected;
    const auto Asked = Questions();
    if (Case.Overwrites) Expected["dest"] = Expected["source"];
    Dialog().Boxes.clear();
    Dialog().Answer({Case.Answer});
    ASSERT_EQ(S_OK, Copy(Logged, "source", "dest", Case.CopyMode)) << ErrorText();
    EXPECT_EQ("", Difference(Expected, TreeOf(App())));
    EXPECT_EQ(Asked, Dialog().Boxes);
    const bool Recorded = Logged && Case.Overwrites;
    EXPECT_EQ(Recorded ? std::vector{1} : std::vector<int>(), Codes());
    if (!Recorded) continue;
    RollbackToStart();
    EXPECT_EQ("", Difference(Before, TreeOf(App())));
  }
}

INSTANTIATE_TEST_SUITE_P(All, CopyModes, testing::ValuesIn(Cases), testing::PrintToStringParamName());

}  // namespace
