// What must hold under every ANSI code page. The build runs these under 1252, 932 and 65001.

#include "stories/story.h"
#include "support/process.h"

namespace {

/// The conversion as Windows documents it: of code page 65001 it tells no used default character, and takes no flag but
/// one. Wine does.
int WINAPI ConvertStrictly(UINT Page, DWORD Flags, LPCWCH Text, int Size, LPSTR To, int Room, LPCCH Default,
                           BOOL* Used) {
  const bool Utf8 = Page == CP_UTF8 || (Page == CP_ACP && GetACP() == CP_UTF8);
  if (Utf8 && (Default || Used || (Flags & ~WC_ERR_INVALID_CHARS))) {
    SetLastError(Flags ? ERROR_INVALID_FLAGS : ERROR_INVALID_PARAMETER);
    return 0;
  }
  return WideCharToMultiByte(Page, Flags, Text, Size, To, Room, Default, Used);
}

class CodePage : public TSandboxTest {
 protected:
  CodePage() { Begin(); }

  void Begin() { AppBefore = TreeOf(App()), KeysBefore = Tree(); }
  void ExpectAsBefore() {
    EXPECT_EQ("", Difference(AppBefore, TreeOf(App())));
    EXPECT_EQ("", Difference(KeysBefore, Tree()));
  }
  static bool IsThere(const std::wstring& Path) { return GetFileAttributesW(Path.c_str()) != INVALID_FILE_ATTRIBUTES; }
  void MakeWide(const std::wstring& Name) const {
    const std::wstring Path = ToWide(App()) + L"\\" + Name;
    TFileHandle(CreateFileW(Path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    Must(IsThere(Path), "a file with an odd name cannot be made");
  }

  /// A name that the code page holds, and names that it lacks; of 932 one character ends in the byte of a backslash.
  const std::wstring Held = GetACP() == 932 ? L"\x5024\x8868" : GetACP() == 1252 ? L"\xE4\x20AC" : L"\x5024\xE4\x20AC";
  const std::vector<std::wstring> Lacking = GetACP() == 932 ? std::vector<std::wstring>{L"\xB5", L"\xE9", L"\xA5"}
                                            : GetACP() == 1252
                                                ? std::vector<std::wstring>{L"\x4E2D", L"\x100", L"\xFF0A", L"\x2044"}
                                                : std::vector<std::wstring>{L"\xD800"};
  TTree AppBefore;
  TRegistryTree KeysBefore;
  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  const TImportPatch Strict{"WideCharToMultiByte", ConvertStrictly};
  const TNoPauses NoPauses;
};

TEST_F(CodePage, WhatItLacksIsRefusedByEveryMethod) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  const auto Garbage = Make<IUGarbage>(CLSID_UGarbage);
  const auto Macro = Make<IUMacro>(CLSID_UMacro);
  const auto Com = Make<IUCom>(CLSID_UCom);
  const auto Inno = Make<IUInno>(CLSID_UInno);
  Write(App("a"), "");
  StoreValue(TestKey, L"Value", REG_SZ, "");
  Begin();
  TBstr Result;
  VARIANT_BOOL Exists = 0;
  GUID DataID{};
  for (const std::wstring& Odd : Lacking) {
    const Text Name(ToWide(App()) + L"\\" + Odd), KeyName(Wide(Odd)), Known(App("a")), Bare(Odd), Own(Key());
    for (const HRESULT Refused : {Registry->DeleteRegKey(User, KeyName),
                                  Registry->DeleteRegKeyLogged(User, KeyName),
                                  Registry->SetDwordValue(User, KeyName, Bare, 1),
                                  Registry->SetDwordValueLogged(User, Own, Bare, 1),
                                  Registry->SetStringValue(User, Own, Text("Value"), Bare),
                                  Registry->DeleteRegKeyValue(User, Own, Bare),
                                  File->DeleteFiles(Name, -1, -1, -1),
                                  File->DeleteFilesLogged(Name, -1, -1, -1),
                                  File->CopyFile(Known, Name, 0),
                                  File->CopyFileLogged(Name, Known, 0),
                                  Garbage->PutFile(Name),
                                  Garbage->PutDirectory(Name),
                                  Garbage->PutRegKey(User, KeyName),
                                  Macro->SetMacro(Bare, Known, -1),
                                  Macro->SetMacro(Text("a"), Bare, 0),
                                  Macro->GetMacro(Bare, Result.Out()),
                                  Macro->DelMacro(Bare),
                                  Macro->MacroExists(Bare, &Exists),
                                  Com->RegServer(Name),
                                  Com->UnRegTLBLogged(Name),
                                  Inno->AddFile(Name),
                                  Inno->AddCOM(Name),
                                  Backup->BackupFiles(Name, 0, 0, 0, &DataID),
                                  Backup->BackupRegKey(User, KeyName, 0, &DataID)})
      EXPECT_EQ(E_INVALIDARG, Refused);
    EXPECT_NE(std::string::npos, ErrorText().find("code page"));
    // Only what is kept to be shown may lose characters.
    EXPECT_EQ(S_OK, Backup->BackupString(Bare, &DataID));
  }
  ExpectAsBefore();
  EXPECT_EQ(S_OK, Inno->GetFileList(Result.Out()));
  EXPECT_EQ("", Take(Result));
}

TEST_F(CodePage, DoesNotKeepATypeLibraryFromBeingRegistered) {
  const auto Com = Make<IUCom>(CLSID_UCom);
  MakeTypeLibrary(App("made"));
  const std::wstring Path = ToWide(App()) + L"\\" + (GetACP() == CP_UTF8 ? Held : Lacking[0]) + L".TLB";
  ASSERT_TRUE(CopyFileW(ToWide(App("made")).c_str(), Path.c_str(), FALSE)) << GetLastError();
  EXPECT_EQ(S_OK, Com->Reg(Text(Path)));
  TBstr Registered;
  QueryPathOfRegTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, 0, Registered.Out());
  EXPECT_EQ(Path, ViewOf(Registered.Get()));
  EXPECT_EQ(GetACP() == CP_UTF8 ? S_OK : E_INVALIDARG, Com->RegTLBLogged(Text(Path)));
  UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, 0, OwnKind);
}

TEST_F(CodePage, WhatItHoldsIsKeptAndComesBack) {
  const auto Macro = Make<IUMacro>(CLSID_UMacro);
  const auto Garbage = Make<IUGarbage>(CLSID_UGarbage);
  const std::string Folder = App(LossyAnsi(Held)), Name = Folder + "\\" + LossyAnsi(Held);
  Write(Name, "old");
  Write(Folder + "\\sub\\b.txt", "b");
  Write(App("new"), "new");
  std::wstring Long;
  for (int Count = 0; Count < 60; ++Count) Long += Held;
  StoreValue(Wide(Held), Held, REG_SZ, WideBytes(Held));
  StoreValue(Wide(Held), Long, REG_DWORD, "1234");
  StoreValue(Wide(Held) + L"\\" + Long, L"", REG_MULTI_SZ, WideBytes(Held));
  Begin();
  EXPECT_EQ(S_OK, File->CopyFileLogged(Text(App("new")), Text(Name), 0)) << ErrorText();
  EXPECT_EQ("new", Read(Name));
  EXPECT_EQ(S_OK, File->CopyFileLogged(Text(App("new")), Text(Folder + "\\" + Folder.substr(App().size() + 1)), 0));
  EXPECT_EQ(S_OK, File->DeleteFilesLogged(Text(Folder + "\\*.*"), -1, -1, -1)) << ErrorText();
  EXPECT_FALSE(Exists(Folder));
  EXPECT_EQ(S_OK, Registry->SetStringValueLogged(User, Text(Wide(Held)), Text(Held), Text(Long))) << ErrorText();
  EXPECT_EQ(WideBytes(Long) + std::string(2, '\0'), Value(Held, Held).Data);
  EXPECT_EQ(S_OK, Registry->DeleteRegKeyLogged(User, Text(Wide(Held)))) << ErrorText();
  EXPECT_EQ(S_OK, RollBack()) << ErrorText();
  ExpectAsBefore();
  TBstr Result;
  EXPECT_EQ(S_OK, Macro->SetMacro(Text(Held), Text(Long), -1)) << ErrorText();
  EXPECT_EQ(S_OK, Macro->GetMacro(Text(Held), Result.Out()));
  EXPECT_EQ(Long, ViewOf(Result.Get()));
  EXPECT_EQ(S_OK, Garbage->PutDirectory(Text(Folder)));
  EXPECT_EQ(S_OK, Garbage->Garbage());
  EXPECT_FALSE(Exists(Folder));
  EXPECT_TRUE(Dialog().Boxes.empty());
}

TEST_F(CodePage, ASearchHandsOutNoOtherName) {
  Write(App("precious.txt"), "1");
  Write(App("Neighbour\\kept.txt"), "2");
  Write(App("Cache\\A.log"), "3");
  // Wide letters that look like separators and dots, and one that looks like another letter.
  const std::vector<std::wstring> Odd = {L"..\xFF3Cprecious.txt", L"\x100.log", L"x\xFF3C..\xFF3C..\xFF3CNeighbour"};
  for (const std::wstring& Name : Odd) MakeWide(L"Cache\\" + Name);
  CreateDirectoryW((ToWide(App("Cache")) + L"\\..\xFF3CNeighbour").c_str(), nullptr);
  Begin();
  const bool Holds = GetACP() == CP_UTF8;
  constexpr HRESULT NotNamed = static_cast<HRESULT>(0x80040659);
  const Text Mask(App("Cache\\*.*"));
  EXPECT_EQ(Holds ? S_OK : NotNamed, File->DeleteFilesLogged(Mask, -1, -1, -1));
  EXPECT_EQ(S_OK, RollBack());
  ExpectAsBefore();
  EXPECT_EQ(Holds ? S_OK : NotNamed, File->DeleteFiles(Mask, -1, -1, -1));
  EXPECT_EQ("1", Read(App("precious.txt")));
  EXPECT_EQ("2", Read(App("Neighbour\\kept.txt")));
  EXPECT_FALSE(Exists(App("Cache\\A.log")) && !IsThere(ToWide(App("Cache")) + L"\\\x100.log"));
  for (const std::wstring& Name : Odd)
    EXPECT_EQ(!ExactAnsi(Name), IsThere(ToWide(App("Cache")) + L"\\" + Name)) << LossyAnsi(Name);
  EXPECT_EQ(!Holds, Exists(App("Cache")));
  // The garbage lists name the folder, and all that is in it goes.
  EXPECT_EQ(S_OK, Make<IUGarbage>(CLSID_UGarbage)->PutDirectory(Text(App("Cache"))));
  EXPECT_EQ(S_OK, Make<IUGarbage>(CLSID_UGarbage)->Garbage());
  EXPECT_EQ("2", Read(App("Neighbour\\kept.txt")));
  for (const std::wstring& Name : Odd) EXPECT_FALSE(Name[0] != L'.' && IsThere(ToWide(App("Cache")) + L"\\" + Name));
}

TEST_F(CodePage, TheModuleLoadsFromAnyFolder) {
  const std::wstring Root = L"\\\\?\\" + ToWide(App());
  std::wstring Deep = Root;
  for (int Level = 0; Level < 6; ++Level) CreateDirectoryW((Deep += L"\\" + std::wstring(50, L'd')).c_str(), nullptr);
  for (const std::wstring& Folder : {Root + L"\\\x4E2D\x100", Deep}) {
    CreateDirectoryW(Folder.c_str(), nullptr);
    const std::wstring Path = Folder + L"\\Mendwork.dll";
    ASSERT_TRUE(CopyFileW(ToWide(BuiltModulePath()).c_str(), Path.c_str(), TRUE));
    const TModuleHandle Module(LoadLibraryW(Path.c_str()));
    EXPECT_TRUE(Module) << GetLastError();
  }
}

struct CodePageAtFirst : TSandboxTest {};  // before the module knows its folders

TEST_F(CodePageAtFirst, ABaseFolderThatItLacksIsToldAsSuch) {
  const std::wstring Base = L"C:\\\xD800\x100\x4E2D";
  RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\Orvane\\Core", nullptr, REG_SZ, Base.c_str(),
                  static_cast<DWORD>(2 * Base.size() + 2));
  GUID DataID{};
  EXPECT_FALSE(SUCCEEDED(Make<IUBackup>(CLSID_UBackup)->BackupString(Text("a"), &DataID)));
  EXPECT_NE(std::string::npos, ErrorText().find("code page"));
}

}  // namespace
