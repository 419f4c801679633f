#include "support/tree.h"

#include "base/handles.h"
#include "base/text.h"

namespace {

constexpr DWORD TimesOnly = FILE_WRITE_ATTRIBUTES;
/// 2020-02-02 02:02:02 UTC and a little more for each file, so that no two times are alike by accident.
constexpr uint64_t FirstTime = 132250969220000000;
uint64_t NextTime = FirstTime;

FILETIME TimeOf(uint64_t Ticks) { return {static_cast<DWORD>(Ticks), static_cast<DWORD>(Ticks >> 32)}; }
uint64_t TicksOf(const FILETIME& Time) { return static_cast<uint64_t>(Time.dwHighDateTime) << 32 | Time.dwLowDateTime; }

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

void Collect(const std::string& Folder, const std::string& Prefix, TTree& Tree) {
  ForEach(Folder, [&](const std::string& Name, const WIN32_FIND_DATAA& Entry) {
    const std::string Path = Folder + "\\" + Name;
    if (Entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      Tree[Prefix + Name + "\\"] = {};
      Collect(Path, Prefix + Name + "\\", Tree);
      return;
    }
    Tree[Prefix + Name] = {Read(Path), Entry.dwFileAttributes, TicksOf(Entry.ftLastAccessTime),
                           TicksOf(Entry.ftLastWriteTime)};
  });
}

}  // namespace

TTree TreeOf(const std::string& Folder) {
  TTree Tree;
  Collect(Folder, "", Tree);
  return Tree;
}

std::string Differing(const TTreeEntry& Before, const TTreeEntry& After) {
  return std::string(After.Content != Before.Content ? " content" : "") +
         (After.Attributes != Before.Attributes ? " attributes" : "") +
         (After.LastAccess != Before.LastAccess ? " access time" : "") +
         (After.LastWrite != Before.LastWrite ? " write time" : "");
}

std::string Shown(const std::wstring& Name) { return ToAnsi(Name); }

void Plant(const std::string& Folder, const TTree& Tree) {
  const TTree Now = TreeOf(Folder);
  MakeFolders(Folder);
  // From the last to the first, so that a folder is empty when its turn comes.
  for (auto At = Now.rbegin(); At != Now.rend(); ++At) {
    const std::string Path = Folder + "\\" + At->first;
    if (Tree.count(At->first)) continue;
    SetFileAttributesA(Path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (Path.back() == '\\')
      RemoveDirectoryA(Path.c_str());
    else
      DeleteFileA(Path.c_str());
  }
  for (const auto& [Name, Entry] : Tree) {
    const std::string Path = Folder + "\\" + Name;
    const auto Found = Now.find(Name);
    if (Name.back() == '\\') {
      MakeFolders(Path.substr(0, Path.size() - 1));
    } else if (Found == Now.end() || !(Found->second == Entry)) {
      Write(Path, Entry.Content);
      SetTimes(Path, Entry.LastAccess, Entry.LastWrite);
      SetFileAttributesA(Path.c_str(), Entry.Attributes);
    }
  }
}

void Write(const std::string& Path, const std::string& Content, DWORD Attributes) {
  const size_t Slash = Path.rfind('\\');
  MakeFolders(Path.substr(0, Slash));
  SetFileAttributesA(Path.c_str(), FILE_ATTRIBUTE_NORMAL);
  {
    const TFileHandle File = Open(Path, GENERIC_WRITE, CREATE_ALWAYS);
    DWORD Written = 0;
    WriteFile(File.Get(), Content.data(), static_cast<DWORD>(Content.size()), &Written, nullptr);
  }
  // The access time lies in the future: file systems that update it lazily leave it alone then when the file is read.
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
  for (size_t Slash = Path.find('\\'); Slash != std::string::npos; Slash = Path.find('\\', Slash + 1))
    CreateDirectoryA(Path.substr(0, Slash).c_str(), nullptr);
  CreateDirectoryA(Path.c_str(), nullptr);
}

void RemoveTree(const std::string& Folder) {
  ForEach(Folder, [&](const std::string& Name, const WIN32_FIND_DATAA& Entry) {
    const std::string Path = Folder + "\\" + Name;
    SetFileAttributesA(Path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (Entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
      RemoveTree(Path);
    else
      DeleteFileA(Path.c_str());
  });
  RemoveDirectoryA(Folder.c_str());
}

void SetTimes(const std::string& Path, uint64_t LastAccess, uint64_t LastWrite) {
  const TFileHandle File = Open(Path, TimesOnly, OPEN_EXISTING);
  const FILETIME Access = TimeOf(LastAccess), WriteTime = TimeOf(LastWrite);
  SetFileTime(File.Get(), &WriteTime, &Access, &WriteTime);
}
