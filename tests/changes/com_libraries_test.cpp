// Type libraries: one that is made here, with and without a help file, and what is left when it is cut off.

#include "changes/com_test.h"
#include "support/type_library.h"

namespace {

using TLines = std::vector<std::string>;

class LibraryFile : public TComTest {
 protected:
  LibraryFile() { Forget(); }
  ~LibraryFile() override { Forget(); }

  /// The system unregisters only a library whose file it can load, so what a test left may need a harder hand.
  static void Forget() {
    UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, 0, OwnKind);
    RegDeleteTreeA(HKEY_CLASSES_ROOT, ("TypeLib\\" + std::string(MadeLibraryId)).c_str());
  }

  void Make(const std::string& HelpFile) const { MakeTypeLibrary(Path, HelpFile); }
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
    Make(HelpFile);
    ASSERT_EQ(S_OK, Com->RegLogged(Text(Path))) << ErrorText();
    EXPECT_EQ(Path, Registered(PathKey));
    EXPECT_EQ(HelpFolder, Registered("HELPDIR"));
    EXPECT_EQ(std::vector{2}, Codes());
    ExpectUnloaded(Path);
    ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
    EXPECT_EQ("<none>", Registered(PathKey));
    ExpectUnloaded(Path);
  }
}

TEST_F(LibraryFile, WritesTheseLines) {
  Make("");
  ASSERT_EQ(S_OK, Com->RegTLBLogged(Text(Path)));
  ASSERT_EQ(S_OK, Com->UnRegTLBLogged(Text(Path)));
  EXPECT_EQ((std::vector{2, 3}), Codes());
  const std::string Item = DataID();
  ASSERT_EQ(S_OK, Com->Rollback(3, Guid(Item.c_str())));
  EXPECT_EQ((TLines{"0 Begin RegTLBLogged " + Path, "1 Begin RegTLB " + Path, "1 End RegTLB", "0 End RegTLBLogged",
                    "2 Begin UnRegTLBLogged " + Path, "3 Begin UnRegTLB " + Path, "3 End UnRegTLB 1 0",
                    "2 End UnRegTLBLogged", "4 Begin Rollback 3 " + Item, "5 Begin RegTLB " + Path, "5 End RegTLB",
                    "4 End Rollback"}),
            NumberedLines());
  ASSERT_EQ(S_OK, RollbackAll());
  EXPECT_EQ("<none>", Registered(PathKey));
}

TEST_F(LibraryFile, IsUnregisteredAsTheFileSays) {
  Make("");
  // Another file is registered under the same identity.
  ASSERT_TRUE(CopyFileA(Path.c_str(), App("other.tlb").c_str(), TRUE));
  ASSERT_EQ(S_OK, Com->RegTLB(Text(App("other.tlb"))));
  Log().Lines.clear();
  ASSERT_EQ(S_OK, Com->UnRegTLB(Text(Path)));
  EXPECT_EQ("<none>", Registered(PathKey));
  // There is nothing to unregister any more: told, and no failure.
  const HRESULT Failure = UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, 0, OwnKind);
  ASSERT_TRUE(FAILED(Failure));
  const std::string Words = SystemText(Failure).empty() ? "Unknown error." : SystemText(Failure);
  // The text is this call's, whatever an earlier one left behind.
  TComRef<ICreateErrorInfo> Maker;
  TComRef<IErrorInfo> Stale;
  CreateErrorInfo(Maker.Out());
  Maker->SetDescription(const_cast<wchar_t*>(L"stale"));
  Maker->QueryInterface(IID_IErrorInfo, Stale.OutVoid());
  SetErrorInfo(0, Stale.Get());
  ASSERT_EQ(S_OK, Com->UnRegTLB(Text(Path)));
  EXPECT_EQ((TLines{"0 Begin UnRegTLB " + Path, "0 End UnRegTLB 1 0", "1 Begin UnRegTLB " + Path,
                    "1 Exception UnRegTLB OLE " + Words + " " + std::to_string(Failure), "1 End UnRegTLB 1 1"}),
            NumberedLines());
  EXPECT_TRUE(Dialog().Boxes.empty());
  ExpectUnloaded(Path);
}

TEST_F(LibraryFile, ThatIsNoneIsToldByRegistrationAndSwallowedByTheOpposite) {
  Write(Path, "no type library");
  EXPECT_EQ(static_cast<HRESULT>(0x80049E4A), Com->RegTLB(Text(Path))) << "made of the low half of 0x80029C4A";
  EXPECT_EQ(S_OK, Com->UnRegTLB(Text(Path)));
  const std::string Words =
      SystemText(TYPE_E_CANTLOADLIBRARY).empty() ? "Unknown error." : SystemText(TYPE_E_CANTLOADLIBRARY);
  const TScriptedDialog::TBox Box{
      "Cannot load '" + Path + "' type library.\r\n\r\nError: '" + Words + "' (Error code: 80029C4A).", "Error", 21};
  EXPECT_EQ((std::vector{Box, Box}), Dialog().Boxes);
  EXPECT_EQ((TLines{"0 Begin RegTLB " + Path, "1 Begin UnRegTLB " + Path,
                    "1 Exception UnRegTLB OLE " + Words + " " + std::to_string(static_cast<long>(0x80049E4A)),
                    "1 End UnRegTLB 1 0"}),
            NumberedLines());
  EXPECT_EQ(S_OK, Com->UnRegTLB(Text(App("gone.TLB"))));
  EXPECT_EQ("2 End UnRegTLB 0 0", NumberedLines().back());
  ExpectUnloaded(Path);
}

TEST_F(LibraryFile, ThatIsCutOffIsNotRegisteredAndLetGo) {
  Make("C:\\Help\\sample.hlp");
  const std::string Whole = Read(Path);
  for (size_t Size = 0; Size < Whole.size(); Size += Size < 16 ? 4 : 40) {
    SCOPED_TRACE(Size);
    Write(Path, Whole.substr(0, Size));
    ASSERT_EQ(static_cast<HRESULT>(0x80049E4A), Com->RegLogged(Text(Path)));
    ASSERT_EQ(std::vector{2}, Codes());
    ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
    ASSERT_EQ("<none>", Registered(PathKey));
    ExpectUnloaded(Path);
  }
  Write(Path, Whole);
  EXPECT_EQ(S_OK, Com->RegTLB(Text(Path))) << ErrorText();
}

TEST_F(LibraryFile, NeedsTheSystemsFunctionToBeUnregistered) {
  Make("");
  ASSERT_EQ(S_OK, Com->RegTLB(Text(Path)));
  for (const char* Missing : {"GetModuleHandleA", "GetProcAddress"}) {
    void* const Replacement = *Missing == 'G' && Missing[3] == 'M' ? FailsWith<decltype(&GetModuleHandleA), 0>
                                                                   : FailsWith<decltype(&GetProcAddress), 0>;
    TFault Fault(Missing, Replacement, {0, 1, ERROR_PROC_NOT_FOUND});
    EXPECT_EQ(static_cast<HRESULT>(0x8004027F), Com->UnRegTLB(Text(Path))) << Missing;
    EXPECT_EQ(SystemText(ERROR_PROC_NOT_FOUND), ErrorText());
    ExpectUnloaded(Path);
  }
  ASSERT_EQ(2u, Dialog().Boxes.size());
  EXPECT_EQ(0u, Dialog().Boxes[0].Text.find("Cannot get 'OLEAUT32.DLL' module handle."));
  EXPECT_EQ(0u, Dialog().Boxes[1].Text.find(
                    "Cannot get the address of 'UnRegisterTypeLib' function in library 'OLEAUT32.DLL'."));
  EXPECT_EQ(S_OK, Com->UnRegTLB(Text(Path)));
  EXPECT_EQ("<none>", Registered(PathKey));
}

}  // namespace
