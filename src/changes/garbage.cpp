#include "changes/garbage.h"

#include "base/data_folders.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "base/named_lock.h"
#include "base/paths.h"
#include "base/registry_roots.h"
#include "base/text.h"
#include "changes/folder_tree.h"
#include "formats/garbage_lines.h"
#include "retry/file_wrappers.h"
#include "server/arguments.h"

#include <shlwapi.h>

#include <new>
#include <optional>

namespace {

constexpr char FilesList[] = "Files.grb", FoldersList[] = "Dirs.grb", KeysList[] = "RKeys.grb",
               ValuesList[] = "RKeyVals.grb";

TNamedLock ListLock;

std::string ListPath(const char* ListName) { return GetServiceDir() + "\\Garbage\\" + ListName; }

void RequireLine(const std::string& Name) {
  if (Name.empty() || Name.find_first_of("\r\n") != std::string::npos) Refuse(MsgBadGarbageLine);
}

/// A name as its caller wrote it; it must be one that means the same to whoever removes what is listed.
std::string ListedName(BSTR Name) {
  RequireRoot(MaskArgument(Name));
  return TextArgument(Name);
}

/// Takes back what a failed write left: the next line must not be appended to half of one.
void CutBack(HANDLE File, int64_t Size) {
  LARGE_INTEGER Target;
  Target.QuadPart = Size;
  if (Size >= 0 && SetFilePointerEx(File, Target, nullptr, FILE_BEGIN)) SetEndOfFile(File);
}

// ---- Removing. An entry that cannot be removed is dropped, so nothing here looks at results. False stands for a line
// that cannot be understood.

/// A line that another hand wrote may be relative, and would reach into whatever folder is the current one.
bool RemoveFile(const std::string& Line) {
  if (RootSize(Line) != 0) DeleteFileA(Line.c_str());
  return true;
}

/// A drive alone, with or without its colon, is one too.
bool RemoveFolder(const std::string& Line) {
  const bool Drive = !Line.empty() && Line.size() <= 2 && (Line.size() == 1 || Line[1] == ':');
  if (Drive || RootSize(Line) != 0) DeleteFolderTree(ToWide(Line), true);
  return true;
}

/// The key that the fields of a line name; nothing when the root is none, which could be any handle of this process.
std::optional<TKeyPlace> PlaceOf(uint32_t Root, std::string_view Name) {
  return IsRegistryRoot(Root) ? std::optional(TKeyPlace{Root, std::string(Name)}) : std::nullopt;
}

bool RemoveKey(const std::string& Line) {
  const TSplit Fields = SplitAtBlank(Line);
  const std::optional<uint32_t> Root = ParseRoot(Fields.First);
  if (!Root) return false;
  const std::optional<TKeyPlace> Place = PlaceOf(*Root, Fields.Second);
  // Without a path the whole root would go.
  if (Place && Place->IsBelowRoot()) SHDeleteKeyA(Place->RootHandle(), Place->Name.c_str());
  return true;
}

bool RemoveValue(const std::string& Line) {
  const TSplit Fields = SplitAtBlank(Line), Names = SplitAtBlank(Fields.Second);
  const std::optional<uint32_t> Root = ParseRoot(Fields.First);
  if (!Root) return false;
  const std::optional<TKeyPlace> Place = PlaceOf(*Root, Names.First);
  TRegistryKey Key;
  if (Place && RegOpenKeyExA(Place->RootHandle(), Place->Name.c_str(), 0, KEY_ALL_ACCESS, Key.Out()) == ERROR_SUCCESS)
    RegDeleteValueA(Key.Get(), std::string(Names.Second).c_str());
  return true;
}

/// The whole text of a list; nothing when it cannot be read, or is larger than any that was written.
std::optional<std::string> ReadList(const std::string& Path) {
  constexpr int64_t LargestList = 256 << 20;
  return ReadWholeFile(ToWide(Path), LargestList);
}

/// One list. What goes wrong ends it and leaves its file, whole, for the next time; the other lists do not suffer.
void ProcessList(TRoutine& Lines, const char* ListName, bool (*Remove)(const std::string& Line)) {
  // Read and deleted under the mutex, so that no line is appended in between and lost. The semaphore is not taken here.
  TNamedLock::TOwner Owner(ListLock);
  try {
    const std::string Path = ListPath(ListName);
    const std::optional<std::string> Text = ReadList(Path);
    if (!Text) return;
    std::string_view Rest = *Text;
    while (const auto Line = TakeLine(Rest)) {
      // The system would see a line with a NUL as a shorter one, which names something else.
      if (Line->find('\0') == std::string_view::npos && !Remove(std::string(*Line))) return;
    }
    // Whoever wrote it died; it may name a folder above the one that was meant.
    if (!Rest.empty()) Lines.Line(L"Dropped", ToWide(Path) + L" " + ToWide(Rest));
    DeleteFileA(Path.c_str());
  } catch (const std::bad_alloc&) {
    // The list stays.
  }
}

/// Whether the last line of a list is whole; also true of a list that cannot be read, which the append will find.
bool EndsInWholeLine(const std::string& Path) {
  const TFileHandle File(
      CreateFileA(Path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  char Last = '\n';
  DWORD BytesRead = 0;
  if (File && SetFilePointer(File.Get(), -1, nullptr, FILE_END) != INVALID_SET_FILE_POINTER)
    ReadFile(File.Get(), &Last, 1, &BytesRead, nullptr);
  return BytesRead == 0 || Last == '\n' || Last == '\r';
}

/// Takes back what a process left that died while it wrote.
void CutTornLine(const std::string& Path) {
  const std::optional<std::string> Text = ReadList(Path);
  if (!Text) return;
  const TFileHandle File(
      CreateFileA(Path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (File) CutBack(File.Get(), static_cast<int64_t>(Text->find_last_of("\r\n") + 1));  // 0 when there is no line
}

}  // namespace

void TUGarbage::Initialize() {
  PrepareDataFolders();
  TLoggedObject::Initialize();
}

HRESULT TUGarbage::PutFile(BSTR FileName) {
  return Method("PutFile", {FileName}, [&] { WriteToGrbFile(FilesList, ListedName(FileName)); });
}

HRESULT TUGarbage::PutDirectory(BSTR DirName) {
  return Method("PutDirectory", {DirName}, [&] { WriteToGrbFile(FoldersList, ListedName(DirName)); });
}

HRESULT TUGarbage::PutRegKey(unsigned long RootKey, BSTR KeyName) {
  return Method("PutRegKey", {RootKey, KeyName}, [&] {
    const TKeyPlace Place = KeyArgument(RootKey, KeyName);
    if (!Place.IsBelowRoot()) Refuse(MsgGarbageKeyNeedsName);
    WriteToGrbFile(KeysList, std::to_string(Place.Root) + " " + Place.Name);
  });
}

HRESULT TUGarbage::PutRegKeyValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  // Told in the words of PutRegKey, by intent: readers of the log look for those.
  return Method("PutRegKey", {RootKey, KeyName, ValueName}, [&] {
    const TValuePlace Place = ValueArgument(RootKey, KeyName, ValueName);
    if (Place.Key.Name.find(' ') != std::string::npos) Refuse(MsgGarbageKeyWithBlank);
    WriteToGrbFile(ValuesList, std::to_string(Place.Key.Root) + " " + Place.Key.Name + " " + Place.Name);
  });
}

void TUGarbage::WriteToGrbFile(const char* ListName, const std::string& Line) const {
  const std::string Path = ListPath(ListName), Bytes = Line + "\r\n";
  RequireLine(Line);
  Routine("WriteToGrbFile", {Path, Line}, [&] {
    TNamedLock::TOwner Owner(ListLock);
    const TNamedLock::THold Hold(Owner);
    if (!EndsInWholeLine(Path)) CutTornLine(Path);
    TOpenFile File = RetryCreateFile(Path, GENERIC_WRITE, 0, OPEN_ALWAYS);
    RetrySetFilePointer(File, 0, FILE_END);
    const int64_t End = PlainFileSize(File.Get());
    try {
      RetryWriteFile(File, Bytes.data(), true, static_cast<DWORD>(Bytes.size()));
    } catch (const EFailure&) {
      CutBack(File.Get(), End);
      throw;
    }
    RetryFlushFileBuffers(File);
    RetryCloseHandle(File);
  });
}

HRESULT TUGarbage::Garbage() {
  return Method("Garbage", {}, [&](TRoutine& Lines) {
    ProcessList(Lines, FilesList, RemoveFile);
    ProcessList(Lines, FoldersList, RemoveFolder);
    ProcessList(Lines, KeysList, RemoveKey);
    ProcessList(Lines, ValuesList, RemoveValue);
  });
}

COCLASS(UGarbage, TUGarbage, &ListLock);
