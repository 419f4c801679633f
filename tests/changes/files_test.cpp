#include "base/text.h"
#include "stories/story.h"
#include "support/process.h"

namespace {

constexpr DWORD Everything = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

class Files : public TStory {
 protected:
  HRESULT Copy(bool Logged, const std::string& Source, const std::string& Dest, long Mode = 0) {
    const auto Method = Logged ? &IUFile::CopyFileLogged : &IUFile::CopyFile;
    return (File.Get()->*Method)(Text(App(Source)), Text(App(Dest)), Mode);
  }
  /// Flags: R for subfolders, E for empty ones, U for the mask's own.
  HRESULT Delete(bool Logged, BSTR Mask, const std::string& Flags = "") {
    const auto Method = Logged ? &IUFile::DeleteFilesLogged : &IUFile::DeleteFiles;
    return (File.Get()->*Method)(Mask, Is(Flags, 'R'), Is(Flags, 'E'), Is(Flags, 'U'));
  }
  void LayOut() {
    for (const char* Name : {"a.log", "b.log\\c.log", "b.log\\deep\\d.log", "mixed\\e.log", "mixed\\keep.txt"})
      Put(Name, Name, Everything);
    MakeFolders(App("hollow"));
    Begin();
  }
};

/// Files with version information, made by the build: the product version, which decides, grows from the first to the
/// third; the file version, which is shown, does not. A file without a name has no version.
struct TModeRow {
  long Mode;
  const char *Source, *Dest;
  uint64_t SourceTime, DestTime;
  std::vector<long> Answers = {};
};
/// A midnight, which is shown without a time of day, the smallest step later, and noon.
constexpr uint64_t Midnight = 132251616000000000, OneTickLater = Midnight + 1, Noon = Midnight + 432000000000;
const TModeRow ModeRows[] = {
    {0, "first", "third", Midnight, Noon},
    {6, "first", "third", Midnight, Noon},
    {-1, "first", "third", Midnight, Noon},
    {1, "third", "first", Noon, Midnight},
    {2, "second", "first", Midnight, Noon},
    {2, "first", "second", Noon, Midnight},
    {2, "third", "second", Midnight, Noon},
    {2, "fourth", "second", Midnight, Noon},
    {2, "second", "second", Noon, Midnight},
    {2, "", "first", Noon, Midnight},
    {3, "first", "third", OneTickLater, Midnight},
    {3, "third", "first", Noon, Noon},
    {4, "second", "first", Midnight, Noon},
    {4, "", "", Noon, Midnight, {IDYES, IDYES}},
    {4, "first", "second", Midnight, Noon, {IDYES, IDNO}},
    {4, "first", "second", Noon, Midnight, {IDCANCEL, IDOK}},
    {5, "first", "third", OneTickLater, Midnight},
    {5, "third", "", Noon, Noon, {IDYES, IDYES}},
    {5, "third", "", Midnight, Noon, {IDNO, IDCANCEL}},
};

TEST_F(Files, TheModeDecidesOverAnExistingFile) {
  for (const TModeRow& Row : ModeRows) {
    const auto Place = [&](const std::string& Name, const std::string& Version, uint64_t Time) {
      std::string Content = Version.empty() ? Name : Read(BuiltFile("tests\\versioned\\" + Version + ".dll"));
      Content.resize(Version.empty() ? 12 : 8192);  // whatever the linker made of it
      Write(App(Name), Content);
      SetTimes(App(Name), TreeOf(App())[Name].LastAccess, Time);
    };
    for (const bool Logged : {false, true}) {
      Place("source", Row.Source, Row.SourceTime), Place("dest", Row.Dest, Row.DestTime);
      Begin();
      if (!Row.Answers.empty()) Dialog().Answer({Row.Answers[Logged]});
      Brief("mode " + std::to_string(Row.Mode) + " '" + Row.Source + "' '" + Row.Dest + "'",
            Copy(Logged, "source", "dest", Row.Mode));
      if (Logged) UndoAll();
    }
  }
}

TEST_F(Files, ACopyThatCannotBeDoneChangesNothing) {
  Put("source", "new");
  Put("dest", "old", Everything);
  Begin();
  for (const char* Name : {"source", "SOURCE", ".\\source", "..\\App\\source"}) {
    Brief(std::string("onto itself, ") + Name, Copy(false, "source", Name));
    Brief(std::string("logged onto itself, ") + Name, Copy(true, Name, "source", -1));
  }
  for (const long Mode : {0, 4, 5})
    for (const bool Logged : {false, true}) {
      Brief("missing source, mode " + std::to_string(Mode), Copy(Logged, "missing", "dest", Mode));
      const HRESULT Held = While(Hold(App("source")), [&] { return Copy(Logged, "source", "dest", Mode); });
      Brief("held source, mode " + std::to_string(Mode), Held);
    }
  const auto CopyLogged = [&] { return Copy(true, "source", "dest"); };
  const HRESULT Held = While(Hold(App("dest")), CopyLogged);
  Brief("held destination", Held);
  Brief("half done", While(TFault("SetFileTime", {0, 1, ERROR_ACCESS_DENIED}), CopyLogged));
  EXPECT_TRUE(Hold(App("source")) && Hold(App("dest"))) << "nothing stays open";
  Step("to a new folder", Copy(true, "source", "new\\deep\\dest"));
  UndoAll();
}

TEST_F(Files, TheFlagsSayWhatIsDeleted) {
  LayOut();
  // A folder that the mask matches is no file: b.log stays without the flag for subfolders.
  const std::pair<const char*, const char*> Rows[] = {
      {"*.log", ""},          {"*.log", "E"},          {"b.log\\deep\\*", "U"}, {"b.log\\*", "U"},
      {"hollow\\*.log", "U"}, {"*.log", "R"},          {"*.log", "RE"},         {"b.log\\*.log", "REU"},
      {"mixed\\*", "REU"},    {"mixed\\*.log", "REU"}, {"none\\*.*", "RE"},     {"none\\*.*", "U"}};
  for (const auto& [Mask, Flags] : Rows) {
    Brief(std::string("logged ") + Mask + " " + Flags, Delete(true, Text(App(Mask)), Flags));
    UndoAll();
  }
  const Text Mask(App("b.log\\*.log"));
  Brief("plain, empty folders only in the recursion", Delete(false, Mask, "E"));
  Brief("plain, any number is true", File->DeleteFiles(Mask, 1, 2, 3));
  Step("plain, a missing folder", Delete(false, Text(App("none\\*.*")), "RE"));
}

TEST_F(Files, AMaskThatCouldReachOthersIsRefused) {
  LayOut();
  SetCurrentDirectoryA(App().c_str());
  for (const bool Logged : {false, true}) {
    for (const std::string& Mask : {std::string("*.log"), std::string("C:*.log"), std::string(),
                                    "\\\\?\\" + App("b.log/*.log"), App("*.log") + std::string(1, '\0') + "x"})
      Brief("mask " + std::string(Mask.c_str()), Delete(Logged, Text(Mask), "REU"));
    // As '?' the first would find every one-letter name, and as the nearest letter the second finds A.log.
    for (const wchar_t* Name : {L"\\\x4E2D.log", L"\\\x0100.log"})
      Brief("name that the code page lacks", Delete(Logged, Text(ToWide(App()) + Name)));
  }
  Brief("copy to such a name", File->CopyFile(Text(App("a.log")), Text(ToWide(App()) + L"\\\x4E2D"), 0));
  Brief("logged copy of one", File->CopyFileLogged(Text(ToWide(App()) + L"\\\x0100.log"), Text(App("new")), 0));
  SetCurrentDirectoryA("C:\\");
}

}  // namespace
