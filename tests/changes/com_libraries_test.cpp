// Type libraries: one that is made here, with and without a help file, and what is left when it is cut off.

#include "changes/changes_test.h"
#include "support/type_library.h"

namespace {

using TLines = std::vector<std::string>;

constexpr HRESULT CannotLoad = static_cast<HRESULT>(0x80049E4A);  // made of the low half of 0x80029C4A

/// The system's words for a result, as the module has them.
std::string WordsFor(HRESULT Result) {
  const std::string Words = SystemText(static_cast<DWORD>(Result));
  return Words.empty() ? "Unknown error." : Words;
}

class LibraryFile : public TComTest {
 protected:
  LibraryFile() { Forget(); }
  ~LibraryFile() override { Forget(); }

  /// The system unregisters only a library whose file it can load, so what a test left may need a harder hand.
  static void Forget() {
    UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, 0, OwnKind);
    RegDeleteTreeA(HKEY_CLASSES_ROOT, ("TypeLib\\" + std::string(MadeLibraryId)).c_str());
  }
  /// The default value of a key below the library's own; "<none>" when there is none.
  static std::string Registered(const std::string& Name) {
    char Data[300] = "";
    DWORD Size = sizeof Data;
    const std::string Key = "TypeLib\\" + std::string(MadeLibraryId) + "\\3.7\\" + Name;
    const LSTATUS Status = RegGetValueA(HKEY_CLASSES_ROOT, Key.c_str(), nullptr, RRF_RT_ANY, nullptr, Data, &Size);
    return Status == ERROR_SUCCESS ? Data : "<none>";
  }

  const std::string PathKey = sizeof(void*) == 4 ? "0\\win32" : "0\\win64";
  const std::string Path = App("Sample.TLB");
};

TEST_F(LibraryFile, IsRegisteredWithTheFolderOfItsHelpFileAndRollsBack) {
  const std::pair<std::string, std::string> Cases[] = {
      {"", ""}, {"C:\\Help\\English\\sample.hlp", "C:\\Help\\English\\"}, {"C:sample.hlp", "C:"}, {"sample.hlp", ""}};
  for (const auto& [HelpFile, HelpFolder] : Cases) {
    SCOPED_TRACE(HelpFile);
    MakeTypeLibrary(Path, HelpFile);
    ASSERT_EQ(S_OK, Com->RegLogged(Text(Path))) << ErrorText();
    EXPECT_EQ(Path, Registered(PathKey));
    EXPECT_EQ(HelpFolder, Registered("HELPDIR"));
    EXPECT_EQ(std::vector{2}, Codes());
    ExpectUnloaded(Path);
    RollbackToStart();
    EXPECT_EQ("<none>", Registered(PathKey));
    ExpectUnloaded(Path);
  }
}

TEST_F(LibraryFile, IsUnregisteredAsTheFileSays) {
  MakeTypeLibrary(Path);
  // Another file is registered under the same identity.
  ASSERT_TRUE(CopyFileA(Path.c_str(), App("other.tlb").c_str(), TRUE));
  ASSERT_EQ(S_OK, Com->RegTLB(Text(App("other.tlb"))));
  Log().Lines.clear();
  ASSERT_EQ(S_OK, Com->UnRegTLB(Text(Path)));
  EXPECT_EQ("<none>", Registered(PathKey));
  // There is nothing to unregister any more: told, and no failure.
  const HRESULT Failure = UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, 0, OwnKind);
  ASSERT_TRUE(FAILED(Failure));
  // The text is this call's, whatever an earlier one left behind.
  TComRef<ICreateErrorInfo> Maker;
  TComRef<IErrorInfo> Stale;
  CreateErrorInfo(Maker.Out());
  Maker->SetDescription(const_cast<wchar_t*>(L"stale"));
  Maker->QueryInterface(IID_IErrorInfo, Stale.OutVoid());
  SetErrorInfo(0, Stale.Get());
  ASSERT_EQ(S_OK, Com->UnRegTLB(Text(Path)));
  EXPECT_EQ((TLines{"Begin UnRegTLB " + Path, "End UnRegTLB 1 0", "Begin UnRegTLB " + Path,
                    "Exception UnRegTLB OLE " + WordsFor(Failure) + " " + std::to_string(Failure), "End UnRegTLB 1 1"}),
            Log().Texts("UCom"));
  EXPECT_TRUE(Dialog().Boxes.empty());
  ExpectUnloaded(Path);
}

TEST_F(LibraryFile, ThatIsNoneIsToldByRegistrationAndSwallowedByTheOpposite) {
  Write(Path, "no type library");
  EXPECT_EQ(CannotLoad, Com->RegTLB(Text(Path)));
  EXPECT_EQ(S_OK, Com->UnRegTLB(Text(Path)));
  const std::string Words = WordsFor(TYPE_E_CANTLOADLIBRARY);
  const TScriptedDialog::TBox Box{
      "Cannot load '" + Path + "' type library.\r\n\r\nError: '" + Words + "' (Error code: 80029C4A).", "Error", 21};
  EXPECT_EQ((std::vector{Box, Box}), Dialog().Boxes);
  EXPECT_EQ((TLines{"Begin RegTLB " + Path, "Begin UnRegTLB " + Path,
                    "Exception UnRegTLB OLE " + Words + " " + std::to_string(CannotLoad), "End UnRegTLB 1 0"}),
            Log().Texts("UCom"));
  EXPECT_EQ(S_OK, Com->UnRegTLB(Text(App("gone.TLB"))));
  EXPECT_EQ("End UnRegTLB 0 0", Log().Texts("UCom").back());
  ExpectUnloaded(Path);
}

TEST_F(LibraryFile, ThatIsCutOffIsNotRegisteredAndLetGo) {
  MakeTypeLibrary(Path, "C:\\Help\\sample.hlp");
  const std::string Whole = Read(Path);
  for (size_t Size = 0; Size < Whole.size(); Size += Size < 16 ? 4 : 40) {
    SCOPED_TRACE(Size);
    Write(Path, Whole.substr(0, Size));
    ASSERT_EQ(CannotLoad, Com->RegLogged(Text(Path)));
    ASSERT_EQ(std::vector{2}, Codes());
    RollbackToStart();
    ASSERT_EQ("<none>", Registered(PathKey));
    ExpectUnloaded(Path);
  }
  Write(Path, Whole);
  EXPECT_EQ(S_OK, Com->RegTLB(Text(Path))) << ErrorText();
}

}  // namespace
