// Names and places that lead elsewhere, and what others do to a place meanwhile: nothing is touched that was not named,
// and all that was named comes back.

#include "formats/backup_items.h"
#include "stories/story.h"
#include "support/process.h"

#include <aclapi.h>

#include <algorithm>

namespace {

/// What the system says of the entry or file whose name ends in this, for the replacements below.
std::string Odd;
DWORD OddAttributes, OddTag;
bool EndsOdd(const std::string& Name) { return !Odd.empty() && Name.ends_with(Odd); }

template <class TData>
void Mark(const std::string& Name, TData& Data) {
  if (EndsOdd(Name)) Data.dwFileAttributes |= OddAttributes, Data.dwReserved0 = OddTag;
}
HANDLE WINAPI FindFirst(LPCSTR Mask, WIN32_FIND_DATAA* Data) {
  const HANDLE Search = FindFirstFileA(Mask, Data);
  if (Search != INVALID_HANDLE_VALUE) Mark(Data->cFileName, *Data);
  return Search;
}
BOOL WINAPI FindNext(HANDLE Search, WIN32_FIND_DATAA* Data) {
  const BOOL Found = FindNextFileA(Search, Data);
  if (Found) Mark(Data->cFileName, *Data);
  return Found;
}
HANDLE WINAPI FindFirstWide(LPCWSTR Mask, WIN32_FIND_DATAW* Data) {
  const HANDLE Search = FindFirstFileW(Mask, Data);
  if (Search != INVALID_HANDLE_VALUE) Mark(LossyAnsi(Data->cFileName), *Data);
  return Search;
}
DWORD WINAPI GetAttributes(LPCSTR Name) {
  const DWORD Attributes = GetFileAttributesA(Name);
  return EndsOdd(Name) && Attributes != INVALID_FILE_ATTRIBUTES ? Attributes | OddAttributes : Attributes;
}
DWORD WINAPI GetAttributesWide(LPCWSTR Name) {
  const DWORD Attributes = GetFileAttributesW(Name);
  return EndsOdd(LossyAnsi(Name)) && Attributes != INVALID_FILE_ATTRIBUTES ? Attributes | OddAttributes : Attributes;
}
/// As Windows opens a link as itself.
BOOL WINAPI GetFacts(HANDLE File, BY_HANDLE_FILE_INFORMATION* Facts) {
  const BOOL Known = GetFileInformationByHandle(File, Facts);
  char Name[MAX_PATH] = "";
  GetFinalPathNameByHandleA(File, Name, MAX_PATH, 0);
  if (Known && EndsOdd(Name)) Facts->dwFileAttributes |= OddAttributes;
  return Known;
}
BOOL WINAPI GetTag(HANDLE, FILE_INFO_BY_HANDLE_CLASS, void* Facts, DWORD) {
  *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(Facts) = {OddAttributes, OddTag};
  return TRUE;
}

DWORD FlagsOfAll = 0;
HANDLE WINAPI NoteFlags(LPCSTR Name, DWORD Access, DWORD Share, SECURITY_ATTRIBUTES* Rights, DWORD Disposition,
                        DWORD Flags, HANDLE Template) {
  if (EndsOdd(Name) && (Access & (GENERIC_READ | GENERIC_WRITE))) FlagsOfAll |= Flags;
  return CreateFileA(Name, Access, Share, Rights, Disposition, Flags, Template);
}

/// Somebody else, just after or just before a deletion.
BOOL WINAPI MakeItAnew(LPCSTR Name) {
  const BOOL Deleted = DeleteFileA(Name);
  if (EndsOdd(Name)) Write(Name, "somebody's");
  return Deleted;
}
std::string Swapped;
BOOL WINAPI TryToSwap(LPCSTR Name) {
  EXPECT_FALSE(MoveFileA(Swapped.c_str(), (Swapped + ".old").c_str())) << "the folder can be swapped for a link";
  return DeleteFileA(Name);
}

/// CreateDirectory as Windows documents it for what is no folder's name: a root is there and denied, and a server is no
/// place at all. What is below a share is made below C.
std::vector<std::string> FoldersAskedFor;
BOOL WINAPI CreateStrictly(LPCSTR Name, SECURITY_ATTRIBUTES* Rights) {
  FoldersAskedFor.push_back(Name);
  std::string Rest = Name;
  while (!Rest.empty() && Rest.back() == '\\') Rest.pop_back();
  const bool Share = Rest.starts_with("\\\\server") || Rest.starts_with("\\\\?\\UNC");
  if (!Share && !Rest.ends_with(":")) return CreateDirectoryA(Name, Rights);
  SetLastError(Share ? ERROR_BAD_NETPATH : ERROR_ACCESS_DENIED);
  return FALSE;
}

class Places : public TStory {
 protected:
  ~Places() override { Odd.clear(); }
  static void SayOf(const std::string& Name, DWORD Attributes, DWORD Tag = 0) {
    Odd = Name, OddAttributes = Attributes, OddTag = Tag;
  }
  HRESULT Delete(const std::string& Mask, const std::string& Flags = "") {
    return File->DeleteFiles(Text(Mask), Is(Flags, 'R'), Is(Flags, 'E'), Is(Flags, 'U'));
  }
  HRESULT DeleteLogged(const std::string& Mask, const std::string& Flags = "") {
    return File->DeleteFilesLogged(Text(Mask), Is(Flags, 'R'), Is(Flags, 'E'), Is(Flags, 'U'));
  }
  HRESULT Save(const std::string& Mask, VARIANT_BOOL Recurse = 0) {
    GUID DataID{};
    return Backup->BackupFiles(Text(Mask), Recurse, 0, 0, &DataID);
  }

  const TImportPatch First{"FindFirstFileA", FindFirst}, Next{"FindNextFileA", FindNext},
      FirstWide{"FindFirstFileW", FindFirstWide}, Attributes{"GetFileAttributesA", GetAttributes},
      AttributesWide{"GetFileAttributesW", GetAttributesWide}, Facts{"GetFileInformationByHandle", GetFacts},
      Tag{"GetFileInformationByHandleEx", GetTag};
};

TEST_F(Places, ThatDependOnTheCurrentFolderAreNotKept) {
  Put("dir\\a.txt", "old");
  Put("b.txt", "new");
  Begin();
  SetCurrentDirectoryA(App().c_str());
  const std::string Full = App("b.txt");
  for (const std::string Name :
       {"dir\\a.txt", ".\\dir\\a.txt", "C:dir\\a.txt", "\\dir\\a.txt", "\\\\.\\C:\\a.txt", "\\\\server"}) {
    Brief("deletion of " + Name, DeleteLogged(Name));
    Brief("copy to it", File->CopyFileLogged(Text(Full), Text(Name), 0));
    Brief("copy of it", File->CopyFileLogged(Text(Name), Text(App("new")), 0));
    Brief("saved", Save(Name));
    Brief("server", Com->RegServerLogged(Text(Name)));
    Brief("listed", Garbage->PutFile(Text(Name)));
    Brief("folder listed", Garbage->PutDirectory(Text(Name)));
  }
  for (const std::string& Name : {App("x?.dll"), App("*.txt"), App("di*\\a.txt")})
    for (const bool Logged : {false, true}) {
      const auto Copy = Logged ? &IUFile::CopyFileLogged : &IUFile::CopyFile;
      Brief("wildcard in a copy, " + Name, (File.Get()->*Copy)(Text(Full), Text(Name), 0));
      Brief("and in its source", (File.Get()->*Copy)(Text(Name), Text(App("new")), 0));
    }
  SetCurrentDirectoryA("C:\\");
  std::string Slashes = App("dir/deep\\new/a.txt");
  std::ranges::replace(Slashes, '\\', '/');
  for (const std::string& Dest : {Slashes, App("dir/a.txt"), "\\\\?\\" + App("other\\a.txt")})
    Brief("copied to " + Dest, File->CopyFileLogged(Text(Full), Text(Dest), 0));
  Brief("deleted with slashes", DeleteLogged(App("dir/*.txt"), "REU"));
  UndoAll();
}

TEST_F(Places, OfTheSystemAreReachedByNoMask) {
  Write(Updates("Log\\update.old"), "");
  Write(Base("a.tmp"), "");
  Brief("something to undo", File->CopyFileLogged(Text(Base("a.tmp")), Text(App("a.tmp")), 0));
  for (const std::string& Mask :
       {Base("*.*"), Root() + "\\bASE\\*.tmp", "\\\\?\\" + Base("*"), Updates("*.*"), Root() + "\\App\\..\\Base\\*"}) {
    Brief("from above, " + Mask, DeleteLogged(Mask, "RE"));
    Brief("plain", Delete(Mask, "R"));
    Brief("saved", Save(Mask, -1));
  }
  for (const std::string& Mask : {Service("*.*"), Service("Backup\\{*"), Updates("Log\\*"), Service("update.prt")}) {
    Brief("inside, " + Mask, Delete(Mask));
    Brief("saved", Save(Mask));
    Brief("copied over", File->CopyFileLogged(Text(Base("a.tmp")), Text(Service("update.prt")), 0));
  }
  Brief("beside", DeleteLogged(Base("*.tmp")));
  UndoAll();
}

TEST_F(Places, AboveEveryFolderAreNotCreated) {
  const TImportPatch Create("CreateDirectoryA", CreateStrictly);
  Put("sub\\deep\\a.txt", "a");
  Begin();
  Brief("deleted", DeleteLogged("\\\\?\\" + App("sub\\*.*"), "REU"));
  UndoAll();
  // Items as a logged deletion on a share leaves them; what is asked for tells how far the walk went.
  FoldersAskedFor.clear();
  for (const char* Share : {"\\\\server\\share", "\\\\?\\UNC\\server\\share", "\\\\?\\X:", "\\\\?\\Volume{1}"}) {
    const std::string Folder = Share + std::string("\\a");
    const TGuidBytes Saved = BytesOf(Stored(EncodeItem(TSingleFileItem{Folder + "\\b.txt"})));
    const GUID Root = Stored(EncodeItem(TStringItem{}) + Share + "\\");
    Brief("file", Backup->RestoreFiles(Stored(EncodeItem(TFileSetItem{{Saved}, {}, {}}))));
    Brief("root", Backup->RestoreFiles(Stored(EncodeItem(TFileSetItem{{}, {BytesOf(Root)}, {}}))));
  }
  for (const std::string& Name : FoldersAskedFor) Tell("created " + Name);
}

TEST_F(Places, ThatAreLinksAreLeftAlone) {
  constexpr DWORD CloudTag = 0x9000101A;
  for (const char* Name : {"Tree\\a.txt", "Tree\\link\\kept.txt", "Tree\\sub\\b.txt"}) Put(Name, Name);
  Begin();
  // A junction, a link as Wine tells it, and a folder that is only kept elsewhere.
  for (const DWORD Tag : {DWORD{IO_REPARSE_TAG_MOUNT_POINT}, DWORD{0}, CloudTag}) {
    SayOf("link", FILE_ATTRIBUTE_REPARSE_POINT, Tag);
    Brief("folder with tag " + std::to_string(Tag), DeleteLogged(App("Tree\\*.txt"), "REU"));
    UndoAll();
    Brief("plain", Delete(App("Tree\\link\\none"), "U"));
  }
  // It became one between the search and the walk.
  SayOf("sub", FILE_ATTRIBUTE_REPARSE_POINT);
  {
    const TImportPatch Searched("FindFirstFileA", FindFirstFileA), SearchedNext("FindNextFileA", FindNextFileA);
    Brief("swapped", Delete(App("Tree\\*.txt"), "R"));
  }
  Put("Tree\\a.txt", "Tree\\a.txt"), Put("Tree\\link\\kept.txt", "Tree\\link\\kept.txt");
  Odd.clear();
  Swapped = App("Tree");
  Begin();
  Brief("nobody swaps it",
        While(TImportPatch("DeleteFileA", TryToSwap), [&] { return Delete(App("Tree\\*b.txt"), "R"); }));
  Put("Tree\\sub\\b.txt", "Tree\\sub\\b.txt");
  Begin();
  // A file that is a link goes as itself, but could not come back as one.
  SayOf("b.txt", FILE_ATTRIBUTE_REPARSE_POINT, IO_REPARSE_TAG_SYMLINK);
  Brief("file", DeleteLogged(App("Tree\\*.txt"), "R"));
  Brief("copied over", File->CopyFileLogged(Text(App("Tree\\a.txt")), Text(App("Tree\\sub\\b.txt")), 0));
  Brief("plain", Delete(App("Tree\\sub\\*.txt")));
  Put("Tree\\sub\\b.txt", "Tree\\sub\\b.txt");
  Odd.clear();
  Begin();
  // The folder that a file comes back to is a link by now.
  Brief("deleted", DeleteLogged(App("Tree\\*.txt"), "RE"));
  MakeFolders(App("Tree\\sub"));
  SayOf("sub", FILE_ATTRIBUTE_REPARSE_POINT, IO_REPARSE_TAG_MOUNT_POINT);
  Brief("not through a link", RollBack());
  Odd.clear();
  UndoAll();
}

TEST_F(Places, WithTwoNamesAreNoCopyOntoItself) {
  for (const bool Logged : {false, true})
    for (const long Mode : {0, 5}) {
      Put("one", "content", FILE_ATTRIBUTE_HIDDEN);
      DeleteFileA(App("two").c_str());
      ASSERT_TRUE(CreateHardLinkA(App("two").c_str(), App("one").c_str(), nullptr));
      Begin();
      Dialog().Answer({IDYES});
      const auto Copy = Logged ? &IUFile::CopyFileLogged : &IUFile::CopyFile;
      Brief("hard link, mode " + std::to_string(Mode), (File.Get()->*Copy)(Text(App("one")), Text(App("two")), Mode));
      Brief("itself", (File.Get()->*Copy)(Text(App("one")), Text(App("ONE")), Mode));
      if (Logged) UndoAll();
      SetFileAttributesA(App("two").c_str(), FILE_ATTRIBUTE_NORMAL);
    }
}

TEST_F(Places, ThatOthersTakeMeanwhileAreTheirs) {
  Put("a.txt", "old", FILE_ATTRIBUTE_READONLY);
  Put("b.txt", "new");
  Begin();
  SayOf("a.txt", 0);
  const auto Copy = [&] { return File->CopyFileLogged(Text(App("b.txt")), Text(App("a.txt")), 0); };
  Brief("somebody made the file anew", While(TImportPatch("DeleteFileA", MakeItAnew), Copy));
  UndoAll();
  Brief("not deleted: as it was", While(Hold(App("a.txt"), FILE_SHARE_READ), [&] { return Delete(App("a.txt")); }));
  // The search that saves is told that there is no such path; the one that deletes is not.
  Brief("not saved: not deleted", While(TFault("FindFirstFileA", {0, 1, ERROR_PATH_NOT_FOUND}),
                                        [&] { return DeleteLogged(App("*.txt"), "RE"); }));
  Brief("nor copied over", While(TFault("FindFirstFileA", {1, 1, ERROR_PATH_NOT_FOUND}), Copy));
  UndoAll();
}

TEST_F(Places, InUseThatAreAlreadyAsSavedHoldUpNoRollback) {
  Put("used.dll", "old");
  Put("b.txt", "new");
  Begin();
  const auto Undo = [&] { return RollBack(); };
  Brief("deleted", DeleteLogged(App("used.dll")));
  Put("used.dll", "old");
  Step("as saved", While(Hold(App("used.dll"), FILE_SHARE_READ | FILE_SHARE_DELETE), Undo));
  for (const char* Content : {"odl", "ol", "older"}) {
    Brief("deleted", DeleteLogged(App("used.dll")));
    Put("used.dll", Content);
    Brief("not as saved", While(Hold(App("used.dll"), FILE_SHARE_READ), Undo));
    Brief("let go", Undo());
  }
  // What cannot be read does not cost the file that it replaces.
  Brief("copied over", File->CopyFileLogged(Text(App("b.txt")), Text(App("used.dll")), 0));
  Brief("unreadable item", While(TFault("ReadFile", {8, 1, ERROR_CRC}), Undo));
  UndoAll();
}

TEST_F(Places, OfFilesKeptElsewhereAreOpenedByTheirAttributesOnly) {
  // Strictly sequential, recalled on access, unpinned, pinned.
  constexpr DWORD Cloud = 0x20000000 | 0x00400000 | 0x00100000 | 0x00080000;
  Put("cloud.txt", "c", FILE_ATTRIBUTE_HIDDEN);
  Begin();
  SayOf("cloud.txt", Cloud);
  const TImportPatch Opens("CreateFileA", NoteFlags);
  Brief("copied", File->CopyFileLogged(Text(App("cloud.txt")), Text(App("other\\cloud.txt")), 5));
  Brief("deleted", DeleteLogged(App("cloud.txt")));
  UndoAll();
  EXPECT_EQ(0u, FlagsOfAll & Cloud);
  EXPECT_NE(0u, FlagsOfAll & FILE_ATTRIBUTE_HIDDEN);
  // What a restore would refuse is not saved.
  SayOf("cloud.txt", FILE_ATTRIBUTE_DEVICE | 0x04000000);
  Brief("no attributes of a file", DeleteLogged(App("cloud.txt")));
}

/// A folder of a plain user, as it looks to an elevated process.
DWORD WINAPI OwnedByUsers(HANDLE File, SE_OBJECT_TYPE Type, SECURITY_INFORMATION What, PSID* Owner, PSID* Group,
                          PACL* Rights, PACL* Audit, PSECURITY_DESCRIPTOR* Descriptor) {
  wchar_t Name[MAX_PATH] = L"";
  GetFinalPathNameByHandleW(File, Name, MAX_PATH, 0);
  if (std::wstring(Name).ends_with(L".tmp"))
    return GetSecurityInfo(File, Type, What, Owner, Group, Rights, Audit, Descriptor);
  static BYTE Users[SECURITY_MAX_SID_SIZE];
  DWORD Size = sizeof Users;
  CreateWellKnownSid(WinBuiltinUsersSid, nullptr, Users, &Size);
  *Owner = Users;
  return ERROR_SUCCESS;
}

TEST_F(Places, OfPlainUsersAreNoBaseForAnElevatedProcess) {
  Put("a.txt", "a");
  Begin();
  const TImportPatch Owner("GetSecurityInfo", OwnedByUsers);
  Brief("recorded", DeleteLogged(App("a.txt")));
  Brief("check point", Transactions->PutCheckPoint(NumberedGuid(1)));
  Brief("rolled back", RollBack());
}

}  // namespace
