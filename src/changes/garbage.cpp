#include "changes/garbage.h"

#include "base/named_lock.h"
#include "changes/folder_tree.h"
#include "formats/garbage_lines.h"
#include "retry/file_wrappers.h"
#include "server/arguments.h"
#include "server/environment.h"

#include <shlwapi.h>

#include <new>

namespace {

constexpr wchar_t LogName[] = L"UGarbage";
constexpr char FilesList[] = "\\Files.grb", FoldersList[] = "\\Dirs.grb", KeysList[] = "\\RKeys.grb",
               ValuesList[] = "\\RKeyVals.grb";

TNamedLock ListLock;

std::string ListPath(const char* ListName) { return GetServiceDir() + "\\Garbage" + ListName; }

void RequireLine(const std::string& Name) {
  if (Name.empty() || Name.find_first_of("\r\n") != std::string::npos)
    throw EFailure(E_INVALIDARG, L"A name in a garbage list must not be empty or hold a line break.");
}

/// Takes back what a failed write left: the next line must not be appended to half of one.
void CutBack(HANDLE File, int64_t Size) {
  LARGE_INTEGER Target;
  Target.QuadPart = Size;
  if (Size >= 0 && SetFilePointerEx(File, Target, nullptr, FILE_BEGIN)) SetEndOfFile(File);
}

// ---- Removing. An entry that cannot be removed is dropped, so nothing here looks at results. False stands for a line
// that cannot be understood.

bool RemoveFile(const std::string& Line) {
  DeleteFileA(Line.c_str());
  return true;
}

bool RemoveFolder(const std::string& Line) {
  DeleteFolderTree(Line, true);
  return true;
}

/// The handle of a line's root; null for a number that names none, which could be any handle of this process.
HKEY RootHandle(uint32_t RootKey) {
  constexpr uint32_t FirstRoot = 0x80000000, LastRoot = 0x80000005;
  const bool Known = RootKey >= FirstRoot && RootKey <= LastRoot;
  return Known ? reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(RootKey))) : nullptr;
}

bool NamesAKey(const std::string& Path) { return Path.find_first_not_of('\\') != std::string::npos; }

bool RemoveKey(const std::string& Line) {
  const TSplit Fields = SplitAtBlank(Line);
  const std::optional<uint32_t> Root = ParseRoot(Fields.First);
  const std::string Path(Fields.Second);
  // Without a path the whole root would go.
  if (Root && RootHandle(*Root) && NamesAKey(Path)) SHDeleteKeyA(RootHandle(*Root), Path.c_str());
  return Root.has_value();
}

bool RemoveValue(const std::string& Line) {
  const TSplit Fields = SplitAtBlank(Line), Names = SplitAtBlank(Fields.Second);
  const std::optional<uint32_t> Root = ParseRoot(Fields.First);
  const std::string Path(Names.First), Value(Names.Second);
  TRegistryKey Key;
  if (Root && RootHandle(*Root) &&
      RegOpenKeyExA(RootHandle(*Root), Path.c_str(), 0, KEY_ALL_ACCESS, Key.Out()) == ERROR_SUCCESS)
    RegDeleteValueA(Key.Get(), Value.c_str());
  return Root.has_value();
}

/// The whole text of a list; nothing when it cannot be read, or is larger than any that was written.
std::optional<std::string> ReadList(const std::string& Path) {
  constexpr int64_t LargestList = 256 << 20;
  const TFileHandle File(
      CreateFileA(Path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  const int64_t Size = File ? PlainFileSize(File.Get()) : -1;
  if (Size < 0 || Size > LargestList) return std::nullopt;
  std::string Text(static_cast<size_t>(Size), '\0');
  DWORD BytesRead = 0;
  const bool Read = ReadFile(File.Get(), Text.data(), static_cast<DWORD>(Text.size()), &BytesRead, nullptr) != FALSE;
  return Read && BytesRead == Text.size() ? std::optional(std::move(Text)) : std::nullopt;
}

/// One list. What goes wrong ends it and leaves its file, whole, for the next time; the other lists do not suffer.
void ProcessList(const char* ListName, bool (*Remove)(const std::string& Line)) {
  // Read and deleted under the mutex, so that no line is appended in between and lost. The semaphore is not taken here.
  TNamedLock::TOwner Owner(ListLock);
  try {
    const std::string Path = ListPath(ListName);
    const std::optional<std::string> Text = ReadList(Path);
    if (!Text) return;
    for (std::string_view Rest = *Text; const auto Line = TakeLine(Rest);) {
      // The system would see a line with a NUL as a shorter one, which names something else.
      if (Line->find('\0') == std::string_view::npos && !Remove(std::string(*Line))) return;
    }
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
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
}

HRESULT TUGarbage::PutFile(BSTR FileName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("PutFile", FileName));
    WriteToGrbFile(FilesList, FileNameArgument(FileName));
    Log.End(LogText("PutFile"));
  });
}

HRESULT TUGarbage::PutDirectory(BSTR DirName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("PutDirectory", DirName));
    WriteToGrbFile(FoldersList, FileNameArgument(DirName));
    Log.End(LogText("PutDirectory"));
  });
}

HRESULT TUGarbage::PutRegKey(unsigned long RootKey, BSTR KeyName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("PutRegKey", RootKey, KeyName));
    const std::string Key = KeyNameArgument(KeyName);
    if (!NamesAKey(Key)) throw EFailure(E_INVALIDARG, L"The registry key in a garbage list must have a name.");
    WriteToGrbFile(KeysList, std::to_string(RootKeyArgument(RootKey)) + " " + Key);
    Log.End(LogText("PutRegKey"));
  });
}

HRESULT TUGarbage::PutRegKeyValue(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  return SafeCall([&] {
    // Told in the words of PutRegKey, by intent: readers of the log look for those.
    TLogScope Log(DebugLog.Get(), LogName, LogText("PutRegKey", RootKey, KeyName, ValueName));
    const std::string Key = KeyNameArgument(KeyName);
    if (Key.find(' ') != std::string::npos)
      throw EFailure(E_INVALIDARG, L"The key of a value in a garbage list must not have a blank in its path.");
    WriteToGrbFile(ValuesList,
                   std::to_string(RootKeyArgument(RootKey)) + " " + Key + " " + ValueNameArgument(ValueName));
    Log.End(LogText("PutRegKey"));
  });
}

void TUGarbage::WriteToGrbFile(const char* ListName, const std::string& Line) {
  const std::string Path = ListPath(ListName), Bytes = Line + "\r\n";
  RequireLine(Line);
  TLogScope Log(DebugLog.Get(), LogName, LogText("WriteToGrbFile", Path, Line));
  {
    TNamedLock::TOwner Owner(ListLock);
    const TNamedLock::THold Hold(Owner);
    if (!EndsInWholeLine(Path)) CutTornLine(Path);
    TFileHandle File = RetryCreateFile(Path, GENERIC_WRITE, 0, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL);
    RetrySetFilePointer(Path, File.Get(), 0, FILE_END);
    const int64_t End = PlainFileSize(File.Get());
    try {
      RetryWriteFile(Path, File.Get(), Bytes.data(), true, static_cast<DWORD>(Bytes.size()));
    } catch (const EFailure&) {
      CutBack(File.Get(), End);
      throw;
    }
    RetryFlushFileBuffers(Path, File.Get());
    RetryCloseHandle(Path, File);
  }
  Log.End(LogText("WriteToGrbFile"));
}

HRESULT TUGarbage::Garbage() {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("Garbage"));
    ProcessList(FilesList, RemoveFile);
    ProcessList(FoldersList, RemoveFolder);
    ProcessList(KeysList, RemoveKey);
    ProcessList(ValuesList, RemoveValue);
    Log.End(LogText("Garbage"));
  });
}

TAutoObjectBase* CreateUGarbage(TVersionedAutoObjectFactory& Factory) { return new TUGarbage(Factory); }

void StartGarbage() { ListLock.Create(GuidText(CLSID_UGarbage)); }
void StopGarbage() { ListLock.Close(); }
