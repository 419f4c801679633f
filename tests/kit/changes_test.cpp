#include "formats/kit_changes.h"
#include "kit/kit_fixture.h"

#include <functional>

namespace {

class KitRollback : public TKitTest {
 protected:
  KitRollback() { EXPECT_EQ(S_OK, Kit->Silent(Text("cancel"))); }

  HRESULT CopyTree(const std::string& Mask = "", long Mode = 0) {
    TBstr Files;
    const HRESULT Result = Kit->CopyTreeLogged(Text(App("new")), Text(App("old")), Text(Mask), Mode, Files.Out());
    Copied = Take(Files);
    std::erase(Copied, '\r');
    return Result;
  }
  /// Files to copy and files that they meet, hidden, read-only and empty ones, and one that spans three pieces.
  void MakeTrees() {
    Write(App("new\\a.txt"), "new a", FILE_ATTRIBUTE_READONLY);
    Write(App("new\\b.bin"), "");
    Write(App("new\\sub\\c.txt"), std::string(70000, 'c'), FILE_ATTRIBUTE_HIDDEN);
    Write(App("new\\sub\\deep\\d.txt"), "new d");
    MakeFolders(App("new\\none"));
    Write(App("old\\a.txt"), std::string(9 << 20, 'a'), FILE_ATTRIBUTE_HIDDEN);
    Write(App("old\\sub\\c.txt"), "old c", FILE_ATTRIBUTE_READONLY);
    Write(App("old\\other.txt"), "other");
  }
  /// Looks at everything, makes the changes, and tells what differs after a rollback; "" when nothing does.
  std::string LeftBy(const std::function<void()>& Changes) {
    const TTree Files = TreeOf(App());
    const TRegistryTree Keys = Tree();
    Changes();
    EXPECT_NE(Difference(Files, TreeOf(App())) + Difference(Keys, Tree()), "") << "nothing was changed";
    EXPECT_EQ(S_OK, RollBack()) << ErrorText();
    EXPECT_EQ("<no file>", Read(Service("update.prt")));
    return Difference(Files, TreeOf(App())) + Difference(Keys, Tree());
  }
  std::string Copied;
  BSTR Unused = nullptr;
};

TEST_F(KitRollback, TakesBackWhatWasMade) {
  MakeTrees();
  StoreValue(Wide(L"Own"), L"Kept", REG_SZ, WideBytes(L"old\0"));
  EXPECT_EQ(
      "", LeftBy([&] {
        EXPECT_EQ(S_OK, Kit->CreateKeyLogged(User, Text(Key("Own\\\\A\\B\\"))));
        EXPECT_EQ(S_OK, Kit->CreateKeyLogged(User, Text(Key("Own\\A"))));
        const std::tuple<const char*, long, const wchar_t*, DWORD, std::string> Values[] = {
            {"Text", REG_SZ, L"\u2603 text", REG_SZ, WideBytes(std::wstring_view(L"\u2603 text\0", 7))},
            {"", REG_EXPAND_SZ, L"", REG_EXPAND_SZ, std::string(2, '\0')},
            {"Lines", REG_MULTI_SZ, L"a\r\nb\n", REG_MULTI_SZ, WideBytes(std::wstring_view(L"a\0b\0\0", 5))},
            {"None", REG_MULTI_SZ, L"", REG_MULTI_SZ, std::string(2, '\0')},
            {"Number", REG_DWORD, L"0xFEDC1234", REG_DWORD, "\x34\x12\xDC\xFE"},
            {"Minus", REG_DWORD, L"-2", REG_DWORD, "\xFE\xFF\xFF\xFF"},
            {"Long", REG_QWORD, L"4294967296", REG_QWORD, std::string("\0\0\0\0\1\0\0\0", 8)},
            {"Bytes", REG_BINARY, L"0a FFfe", REG_BINARY, "\x0A\xFF\xFE"},
            {"Empty", REG_BINARY, L"", REG_BINARY, ""},
            {"Kept", REG_DWORD, L"7", REG_DWORD, std::string("\7\0\0\0", 4)},
        };
        for (const auto& [Name, Type, Data, StoredType, Stored] : Values) {
          EXPECT_EQ(S_OK, Kit->CreateValueLogged(User, Text(Key("Own")), Text(std::string(Name)), Type, Text(Data)));
          EXPECT_EQ((TRegistryEntry{StoredType, Stored}), *Name ? Value(L"Own", ToWide(Name)) : Value(L"Own\\", L""))
              << Name;
        }
        VARIANT None{};
        EXPECT_EQ(S_OK, CallByName(*Kit.Get(), L"CreateValueLogged", {"2147483649", Key("Late\\Bound"), "V", "4", "1"},
                                   &None));
        EXPECT_EQ(S_OK, Kit->CreateFolderLogged(Text(App("made\\.\\x/../y\\z\\"))));
        EXPECT_TRUE(Exists(App("made\\y\\z")) && !Exists(App("made\\x")));
        EXPECT_EQ(S_OK, Kit->CreateFolderLogged(Text(App("made\\y"))));
        EXPECT_EQ(S_OK, Kit->CopyFileLogged(Text(App("new\\a.txt")), Text(App("far\\away\\a.txt")), 0));
        EXPECT_EQ("new a", Read(App("far\\away\\a.txt")));
        EXPECT_EQ(S_OK, CopyTree()) << ErrorText();
        EXPECT_EQ(S_OK, CopyTree("*.txt")) << "once more, over what it made";
      }));
}

TEST_F(KitRollback, CopiesTreesUnderTheModesAndMasks) {
  MakeTrees();
  EXPECT_EQ("", LeftBy([&] {
              EXPECT_EQ(S_OK, CopyTree());
              EXPECT_EQ("copied a.txt\ncopied b.bin\ncopied sub\\c.txt\ncopied sub\\deep\\d.txt\n", Copied);
              TTree New = TreeOf(App("new")), Old = TreeOf(App("old"));
              Old.erase("other.txt");
              EXPECT_EQ("", Difference(New, Old)) << "content, attributes and times, and the empty folder";
            }));
  SetTimes(App("old\\a.txt"), 160000000000000000, 125000000000000000);
  for (const auto& [Mask, Mode, Expected] :
       {std::tuple{"*.txt", 1, "skipped a.txt\nskipped sub\\c.txt\ncopied sub\\deep\\d.txt\n"},
        {"a.*", 3, "copied a.txt\n"},
        {"?.txt", 2, "skipped a.txt\nskipped sub\\c.txt\ncopied sub\\deep\\d.txt\n"},
        {"d*", 5, "copied sub\\deep\\d.txt\n"}}) {
    EXPECT_EQ("", LeftBy([&] {
                EXPECT_EQ(S_OK, CopyTree(Mask, Mode));
                EXPECT_EQ(Expected, Copied);
                EXPECT_FALSE(Exists(App("old\\none")));
              }))
        << Mask;
  }
  ASSERT_EQ(S_OK, Kit->ClearMessages());
  EXPECT_EQ(S_OK, CopyTree("c.txt", 5));
  EXPECT_EQ("skipped sub\\c.txt\n", Copied);
  EXPECT_TRUE(LastMessage().starts_with("Overwrite '" + App("old\\sub\\c.txt") + "'\r\n       size 5 byte(s)"));
  EXPECT_EQ(S_OK, Kit->Silent(Text("overwrite yes")));
  EXPECT_EQ("", LeftBy([&] { EXPECT_EQ(S_OK, CopyTree("c.txt", 4)); }));
  EXPECT_TRUE(LastMessage().find("version 0.0.0.0") != std::string::npos) << LastMessage();
}

TEST_F(KitRollback, LeavesWhatOthersChangedOrNeed) {
  MakeTrees();
  ASSERT_EQ(S_OK, Kit->CreateKeyLogged(User, Text(Key("A\\B"))));
  ASSERT_EQ(S_OK, Kit->CreateValueLogged(User, Text(Key("A")), Text("Type"), REG_SZ, Text("1")));
  ASSERT_EQ(S_OK, Kit->CreateValueLogged(User, Text(Key("A")), Text("Same"), REG_SZ, Text("1")));
  ASSERT_EQ(S_OK, Kit->CreateFolderLogged(Text(App("made\\one"))));
  ASSERT_EQ(S_OK, CopyTree());
  StoreValue(Wide(L"A"), L"Type", REG_EXPAND_SZ, WideBytes(std::wstring_view(L"1\0", 2)));
  StoreValue(Wide(L"A\\B\\C"), L"V", REG_SZ, "");
  Write(App("made\\file"), "somebody's");
  Write(App("old\\b.bin"), "somebody's");
  Write(App("old\\a.txt"), "is put back");
  Write(App("old\\none\\file"), "somebody's");
  ASSERT_EQ(S_OK, RollBack()) << ErrorText();
  std::string Kept;
  for (const auto& [Name, Entry] : TreeOf(App()))
    if (!Name.starts_with("new")) Kept += Name + (Entry.Content.size() < 20 ? "=" + Entry.Content : "") + " ";
  EXPECT_EQ(
      "made\\= made\\file=somebody's old\\= old\\a.txt old\\b.bin=somebody's old\\none\\= old\\none\\file=somebody's "
      "old\\other.txt=other old\\sub\\= old\\sub\\c.txt=old c ",
      Kept);
  std::wstring Keys;
  for (const auto& [Name, Entry] : Tree()) Keys += Name + L" ";
  EXPECT_EQ(L" A\\ A\\B\\ A\\B\\C\\ A\\B\\C\\V A\\Type ", Keys);
}

TEST_F(KitRollback, RefusesBeforeAnythingIsChanged) {
  MakeTrees();
  Write(App("file"), "no folder");
  const TTree Before = TreeOf(App());
  const Text Good(App("x")), Root(Key("A"));
  const std::pair<HRESULT, std::function<HRESULT()>> Calls[] = {
      {E_INVALIDARG, [&] { return Kit->CreateKeyLogged(0x80000006, Root); }},
      {E_INVALIDARG, [&] { return Kit->CreateValueLogged(1, Root, Text("V"), REG_SZ, Text("1")); }},
      {E_INVALIDARG, [&] { return Kit->CreateValueLogged(User, Root, Text("V"), REG_LINK, Text("1")); }},
      {E_INVALIDARG, [&] { return Kit->CreateValueLogged(User, Root, Text("V"), REG_DWORD, Text("4294967296")); }},
      {E_INVALIDARG, [&] { return Kit->CreateValueLogged(User, Root, Text("V"), REG_DWORD, Text("")); }},
      {E_INVALIDARG, [&] { return Kit->CreateValueLogged(User, Root, Text("V"), REG_BINARY, Text("ABC")); }},
      {E_INVALIDARG, [&] { return Kit->CreateValueLogged(User, Root, Text("V"), REG_MULTI_SZ, Text("a\n\nb")); }},
      {E_INVALIDARG, [&] { return Kit->CreateFolderLogged(Text("relative")); }},
      {E_INVALIDARG, [&] { return Kit->CreateFolderLogged(Text(App("a*"))); }},
      {E_INVALIDARG, [&] { return Kit->CreateFolderLogged(Text(std::wstring(L"C:\\\u2603"))); }},
      {static_cast<HRESULT>(0x800402B7), [&] { return Kit->CreateFolderLogged(Text(App("file"))); }},
      {E_INVALIDARG, [&] { return Kit->CopyFileLogged(Text("a"), Good, 0); }},
      {E_INVALIDARG, [&] { return Kit->CopyFileLogged(Good, Text("a"), 0); }},
      {E_INVALIDARG, [&] { return CopyTree("sub\\*"); }},
      {E_INVALIDARG, [&] { return Kit->CopyTreeLogged(Good, Text("old"), nullptr, 0, &Unused); }},
      {E_INVALIDARG, [&] { return Kit->CopyTreeLogged(Text(App("new")), Text(App("new")), nullptr, 0, &Unused); }},
      {E_INVALIDARG,
       [&] { return Kit->CopyTreeLogged(Text(App("new")), Text(Service("Backup")), nullptr, 0, &Unused); }},
      {static_cast<HRESULT>(0x80040203),
       [&] { return Kit->CopyTreeLogged(Good, Text(App("old")), nullptr, 0, &Unused); }},
      {static_cast<HRESULT>(0x800402B7),
       [&] {
         Write(App("new\\other.txt\\e.txt"), "a folder meets a file");
         return CopyTree();
       }},
  };
  for (const auto& [Result, Call] : Calls) {
    EXPECT_EQ(Result, Call()) << &Call - &Calls[0].second;
    EXPECT_NE("", ErrorText());
  }
  EXPECT_EQ(E_POINTER, Kit->CopyTreeLogged(Good, Good, nullptr, 0, nullptr));
  RemoveTree(App("new\\other.txt"));
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  EXPECT_TRUE(Tree().empty());
  EXPECT_EQ("<no file>", Read(Service("update.prt")));
}

// ---- Deaths and damage

int CallsLeft = 0;
template <auto Function>
struct TDying;
template <class TResult, class... TArgs, TResult(WINAPI* Function)(TArgs...)>
struct TDying<Function> {
  /// The process ends before the last of the calls.
  static TResult WINAPI Call(TArgs... Args) {
    if (--CallsLeft == 0) TerminateProcess(GetCurrentProcess(), DiedStatus);
    return Function(Args...);
  }
};

/// Copies the trees, or rolls back, and dies at a call of the kit that changes something.
const TRole CopyAndDie("copy-and-die", [](const TWords& Words, TScriptedDialog&) {
  const auto Kit = Make<IKit>(CLSID_Kit);
  constexpr char Module[] = "MendworkKit.dll";
  const TImportPatch Create("CreateFileW", TDying<&CreateFileW>::Call, Module),
      Write("WriteFile", TDying<&WriteFile>::Call, Module), Move("MoveFileExW", TDying<&MoveFileExW>::Call, Module),
      Delete("DeleteFileW", TDying<&DeleteFileW>::Call, Module),
      Make("CreateDirectoryW", TDying<&CreateDirectoryW>::Call, Module),
      Remove("RemoveDirectoryW", TDying<&RemoveDirectoryW>::Call, Module);
  CallsLeft = std::stoi(Words[1]);
  TBstr Files;
  if (Words[0] == "undo") return RollBack() == S_OK ? 0 : 1;
  return Kit->CopyTreeLogged(Text(Words[2]), Text(Words[3]), nullptr, 0, Files.Out()) == S_OK ? 0 : 1;
});

TEST_F(KitRollback, BringsEverythingBackAfterADeathAnywhere) {
  MakeTrees();
  const TTree Before = TreeOf(App());
  int Deaths = 0;
  for (int Point = 1, Died = 1; Died; Point += 3, Deaths += Died) {
    Died = TChild({"copy-and-die", "copy", std::to_string(Point), App("new"), App("old")}).Wait() == DiedStatus;
    if (Point % 2) TChild({"copy-and-die", "undo", std::to_string(Point / 2 + 1)}).Wait();
    ASSERT_EQ(S_OK, RollBack()) << Point;
    ASSERT_EQ("", Difference(Before, TreeOf(App()))) << Point;
  }
  EXPECT_GT(Deaths, 8);
}

TEST_F(KitRollback, RefusesDamagedItemsAndIgnoresOtherCodes) {
  Write(App("made.txt"), "made");
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  const auto Changes = Make<IKitChanges>(CLSID_KitChanges);
  TComRef<IUCanRollback> Contract;
  ASSERT_EQ(S_OK, Changes->QueryInterface(IID_IUCanRollback, Contract.OutVoid()));
  const auto Undo = [&](std::string Item) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupData(Item.data(), static_cast<long>(Item.size()), &DataID));
    EXPECT_EQ(S_OK, Contract->Rollback(2, DataID));
    return Changes->Rollback(1, DataID);
  };
  const TFileMade Made{App("made.txt"), ".part", 0, 4, 0};
  const TFileReplaced Replaced{App("made.txt"), ".part", 0, 0, 0, 0, 0, 5};
  const std::string Whole = EncodeKitChanges({Made, TKeyMade{0x80000001, "A"}});
  const size_t First = EncodeKitChanges({Made}).size();
  for (size_t Size = 0; Size < Whole.size(); ++Size)
    EXPECT_EQ(Size == First ? S_OK : E_INVALIDARG, Undo(Whole.substr(0, Size))) << Size;
  for (const TKitChanges& Bad : {TKitChanges{TFolderMade{"relative"}},
                                 {TFileMade{"C:made.txt", ".part"}},
                                 {TFileMade{App("made.txt"), ""}},
                                 {TKeyMade{1, "A"}},
                                 {TKeyMade{0x80000001, ""}},
                                 {TValueMade{0x80000006, "A", "V", REG_SZ, {}}},
                                 {Made, Replaced},
                                 {TPieceSaved{}}})
    EXPECT_EQ(E_INVALIDARG, Undo(EncodeKitChanges(Bad)));
  EXPECT_NE("", ErrorText());
  std::string Short = "four";
  GUID Piece{};
  ASSERT_EQ(S_OK, Backup->BackupData(Short.data(), 4, &Piece));
  EXPECT_EQ(E_INVALIDARG, Undo(EncodeKitChanges({Replaced, TPieceSaved{BytesOf(Piece)}})));
  EXPECT_EQ("made", Read(App("made.txt")));
  EXPECT_EQ(S_OK, Undo(Whole)) << "of another content, so it stays";
  EXPECT_EQ("made", Read(App("made.txt")));
}

}  // namespace
