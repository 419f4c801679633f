#include "support/tree.h"

#include "base/file_time.h"
#include "base/folder_content.h"
#include "base/text.h"

#include <vector>

namespace {

TFileHandle Open(const std::string& Path, DWORD Access, DWORD Disposition) {
  return TFileHandle(CreateFileA(Path.c_str(), Access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 Disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

template <class TAction>
void ForEach(const std::string& Folder, TAction Action) {
  WIN32_FIND_DATAA Entry;
  const TFindHandle Search(FindFirstFileA((Folder + "\\*").c_str(), &Entry));
  if (!Search) return;
  do {
    const std::string Name = Entry.cFileName;
    if (Name != "." && Name != "..") Action(Name, Entry);
  } while (FindNextFileA(Search.Get(), &Entry));
}

void Collect(HKEY Parent, const std::wstring& KeyName, const std::wstring& Prefix, TRegistryTree& Tree) {
  constexpr DWORD LongestName = 16384;
  TRegistryKey Key;
  if (RegOpenKeyExW(Parent, KeyName.c_str(), 0, KEY_READ, Key.Out()) != ERROR_SUCCESS) return;
  Tree[Prefix] = {};
  std::wstring Name(LongestName, L'\0');
  DWORD Length = LongestName, Type = 0, Size = 0;
  for (DWORD At = 0; !RegEnumValueW(Key.Get(), At, Name.data(), &Length, nullptr, &Type, nullptr, &Size); ++At) {
    std::string Data(Size, '\0');
    RegQueryValueExW(Key.Get(), Name.c_str(), nullptr, &Type, reinterpret_cast<BYTE*>(Data.data()), &Size);
    Tree[Prefix + Name.c_str()] = {Type, Data};
    Length = LongestName;
  }
  for (DWORD At = 0; !RegEnumKeyW(Key.Get(), At, Name.data(), LongestName); ++At)
    Collect(Key.Get(), Name.c_str(), Prefix + Name.c_str() + L"\\", Tree);
}

std::string Differing(const TTreeEntry& Before, const TTreeEntry& After) {
  return std::string(After.Content != Before.Content ? " content" : "") +
         (After.Attributes != Before.Attributes ? " attributes" : "") +
         (After.LastAccess != Before.LastAccess ? " access time" : "") +
         (After.LastWrite != Before.LastWrite ? " write time" : "");
}
std::string Differing(const TRegistryEntry& Before, const TRegistryEntry& After) {
  return std::string(After.Type != Before.Type ? " type" : "") + (After.Data != Before.Data ? " data" : "");
}

std::string Shown(const std::string& Name) { return Name; }
std::string Shown(const std::wstring& Name) { return LossyAnsi(Name); }

template <class TAnyTree>
std::string DifferenceOf(const TAnyTree& Before, const TAnyTree& After) {
  std::string Result;
  for (const auto& [Name, Entry] : Before) {
    const auto Found = After.find(Name);
    if (Found == After.end())
      Result += "missing: " + Shown(Name) + "\n";
    else if (!(Found->second == Entry))
      Result += "differs: " + Shown(Name) + Differing(Entry, Found->second) + "\n";
  }
  for (const auto& [Name, Entry] : After)
    if (!Before.count(Name)) Result += "new: " + Shown(Name) + "\n";
  return Result;
}

}  // namespace

TTree TreeOf(const std::string& Folder) {
  TTree Tree;
  ForEach(Folder, [&](const std::string& Name, const WIN32_FIND_DATAA& Entry) {
    const std::string Path = Folder + "\\" + Name;
    if (!(Entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
      Tree[Name] = {Read(Path), Entry.dwFileAttributes, TicksOf(Entry.ftLastAccessTime),
                    TicksOf(Entry.ftLastWriteTime)};
      return;
    }
    Tree[Name + "\\"] = {};
    for (const auto& [Inner, Below] : TreeOf(Path)) Tree[Name + "\\" + Inner] = Below;
  });
  return Tree;
}

std::ostream& operator<<(std::ostream& Out, const TRegistryEntry& Entry) {
  Out << "type " << Entry.Type << std::hex;
  for (const char Byte : Entry.Data) Out << ' ' << (Byte & 0xFF);
  return Out << std::dec;
}

TRegistryTree RegistryTreeOf(const std::wstring& KeyName, HKEY Root) {
  TRegistryTree Tree;
  Collect(Root, KeyName, L"", Tree);
  return Tree;
}

std::string Difference(const TTree& Before, const TTree& After) { return DifferenceOf(Before, After); }
std::string Difference(const TRegistryTree& Before, const TRegistryTree& After) { return DifferenceOf(Before, After); }

void Plant(const std::string& Folder, const TTree& Tree) {
  const TTree Now = TreeOf(Folder);
  MakeFolders(Folder);
  for (const auto& [Name, Entry] : Now)
    // The end of a folder's name would be a name of its own there.
    if (!Tree.count(Name)) RemoveTree(Folder + "\\" + Name.substr(0, Name.find_last_not_of('\\') + 1));
  for (const auto& [Name, Entry] : Tree) {
    const std::string Path = Folder + "\\" + Name;
    const auto Found = Now.find(Name);
    if (Name.back() == '\\') {
      MakeFolders(Path);
    } else if (Found == Now.end() || !(Found->second == Entry)) {
      Write(Path, Entry.Content);
      SetTimes(Path, Entry.LastAccess, Entry.LastWrite);
      SetFileAttributesA(Path.c_str(), Entry.Attributes);
    }
  }
}

void Write(const std::string& Path, const std::string& Content, DWORD Attributes) {
  MakeFolders(Path.substr(0, Path.rfind('\\')));
  SetFileAttributesA(Path.c_str(), FILE_ATTRIBUTE_NORMAL);
  DWORD Written = 0;
  WriteFile(Open(Path, GENERIC_WRITE, CREATE_ALWAYS).Get(), Content.data(), static_cast<DWORD>(Content.size()),
            &Written, nullptr);
  // 2020-02-02 02:02:02 UTC and a little more for each file, so that no two times are alike by accident. The access
  // time lies in the future: file systems that update it lazily leave it alone then when the file is read.
  static uint64_t NextTime = 132250969220000000;
  constexpr uint64_t OneSecond = 10000000, FarAhead = 27750000000000000;
  NextTime += OneSecond;
  SetTimes(Path, NextTime + FarAhead, NextTime);
  SetFileAttributesA(Path.c_str(), Attributes);
}

std::string Read(const std::string& Path) {
  const TFileHandle File = Open(Path, GENERIC_READ, OPEN_EXISTING);
  if (!File) return "<no file>";
  std::string Content(GetFileSize(File.Get(), nullptr), '\0');
  DWORD BytesRead = 0;
  ReadFile(File.Get(), Content.data(), static_cast<DWORD>(Content.size()), &BytesRead, nullptr);
  return Content;
}

bool Exists(const std::string& Path) { return GetFileAttributesA(Path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void MakeFolders(const std::string& Path) {
  for (size_t Slash = 0; Slash != std::string::npos;) {
    Slash = Path.find('\\', Slash + 1);
    CreateDirectoryA(Path.substr(0, Slash).c_str(), nullptr);
  }
}

static void RemoveTree(const std::wstring& Folder) {
  std::vector<TFolderEntry> Found;
  SetFileAttributesW(Folder.c_str(), FILE_ATTRIBUTE_NORMAL);
  if (DeleteFileW(Folder.c_str())) return;
  ListFolder(Folder + L"\\*", Found);
  for (const TFolderEntry& Entry : Found) RemoveTree(Folder + L"\\" + Entry.Name);
  RemoveDirectoryW(Folder.c_str());
}
void RemoveTree(const std::string& Folder) { RemoveTree(L"\\\\?\\" + ToWide(Folder)); }

void SetTimes(const std::string& Path, uint64_t LastAccess, uint64_t LastWrite) {
  const TFileHandle File = Open(Path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
  const FILETIME Access = FileTimeOf(LastAccess), WriteTime = FileTimeOf(LastWrite);
  SetFileTime(File.Get(), &WriteTime, &Access, &WriteTime);
}

void StoreValue(const std::wstring& KeyName, const std::wstring& Name, DWORD Type, const std::string& Data) {
  TRegistryKey Key;
  RegCreateKeyW(HKEY_CURRENT_USER, KeyName.c_str(), Key.Out());
  // The byte behind the data is no zero: the system would add a terminator to a string without one.
  const std::string Guarded = Data + "\xFF\xFF";
  const LSTATUS Status = RegSetValueExW(Key.Get(), Name.c_str(), 0, Type, reinterpret_cast<const BYTE*>(Guarded.data()),
                                        static_cast<DWORD>(Data.size()));
  Must(Status == ERROR_SUCCESS, "cannot store the value " + LossyAnsi(Name));
}

std::string WideBytes(std::wstring_view Text) {
  return std::string(reinterpret_cast<const char*>(Text.data()), Text.size() * sizeof(wchar_t));
}

void DeleteKeyTree(const std::wstring& KeyName) { RegDeleteTreeW(HKEY_CURRENT_USER, KeyName.c_str()); }
