// This machine: its files, its registry, its processes, and the lock of the library.

#include "base/failure.h"
#include "base/handles.h"
#include "base/module_instance.h"
#include "base/named_lock.h"
#include "base/system_error.h"
#include "base/text.h"
#include "mendctl/entries.h"
#include "mendctl/machine.h"

#include <io.h>
#include <restartmanager.h>

#include <array>
#include <cstdio>

namespace fs = std::filesystem;

HINSTANCE ModuleInstance() { return GetModuleHandleA(nullptr); }

namespace {

constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// A path that the system takes at any length.
std::wstring SystemPath(const fs::path& Path) {
  constexpr size_t LongestPlain = 240;
  std::wstring Text = Path.wstring();
  if (Text.size() < LongestPlain || Text.starts_with(L"\\\\?\\")) return Text;
  std::error_code Error;
  const std::wstring Whole = fs::absolute(Path, Error).make_preferred().wstring();
  return Whole.starts_with(L"\\\\") ? L"\\\\?\\UNC\\" + Whole.substr(2) : L"\\\\?\\" + Whole;
}

TFileHandle Open(const fs::path& Path, DWORD Access, DWORD Share = ShareAll, DWORD Flags = 0) {
  return TFileHandle(CreateFileW(SystemPath(Path).c_str(), Access, Share, nullptr, OPEN_EXISTING, Flags, nullptr));
}

uint64_t NumberOf(const FILETIME& Time) { return uint64_t{Time.dwHighDateTime} << 32 | Time.dwLowDateTime; }

std::string Utf8(std::wstring_view Text) {
  std::string Result(Text.size() * 3, '\0');
  const int Size = WideCharToMultiByte(CP_UTF8, 0, Text.data(), static_cast<int>(Text.size()), Result.data(),
                                       static_cast<int>(Result.size()), nullptr, nullptr);
  Result.resize(static_cast<size_t>(std::max(Size, 0)));
  return Result;
}

std::string ErrorText(DWORD Code) { return Utf8(ToWide(SystemErrorText(Code))); }

TRegistryKey OpenKey(uint32_t Root, const std::string& Name) {
  TRegistryKey Key;
  RegOpenKeyExA(reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<int32_t>(Root))), Name.c_str(), 0, KEY_READ,
                Key.Out());
  return Key;
}

/// The names of the processes that the Restart Manager knows to use a file.
std::string UsersOf(const fs::path& Path) {
  const TModuleHandle Library(LoadLibraryW(L"rstrtmgr.dll"));
  const auto Function = [&](const char* Name) { return reinterpret_cast<void*>(GetProcAddress(Library.Get(), Name)); };
  const auto Start = reinterpret_cast<decltype(&RmStartSession)>(Function("RmStartSession"));
  const auto Register = reinterpret_cast<decltype(&RmRegisterResources)>(Function("RmRegisterResources"));
  const auto List = reinterpret_cast<decltype(&RmGetList)>(Function("RmGetList"));
  const auto End = reinterpret_cast<decltype(&RmEndSession)>(Function("RmEndSession"));
  if (!Start || !Register || !List || !End) return {};
  DWORD Session = 0;
  wchar_t Key[CCH_RM_SESSION_KEY + 1] = {};
  if (Start(&Session, 0, Key) != ERROR_SUCCESS) return {};
  std::string Users;
  const std::wstring Name = Path.wstring();
  const wchar_t* Names[] = {Name.c_str()};
  std::array<RM_PROCESS_INFO, 16> Found{};
  UINT Needed = 0, Count = static_cast<UINT>(Found.size());
  DWORD Reasons = 0;
  if (Register(Session, 1, Names, 0, nullptr, 0, nullptr) == ERROR_SUCCESS &&
      List(Session, &Needed, &Count, Found.data(), &Reasons) == ERROR_SUCCESS)
    for (UINT At = 0; At < Count; ++At)
      Users += (At ? ", " : "") + Utf8(Found[At].strAppName) + " (process " +
               std::to_string(Found[At].Process.dwProcessId) + ")";
  End(Session);
  return Users;
}

}  // namespace

const bool TMachine::Registry = true;

TReadableFile::TReadableFile(const fs::path& Path) : Name(NameOf(Path)) {
  TFileHandle File = Open(Path, GENERIC_READ);
  BY_HANDLE_FILE_INFORMATION Facts{};
  if (!File || !GetFileInformationByHandle(File.Get(), &Facts)) throw ECannotRead{Name, 0, ErrorText(GetLastError())};
  FileSize = uint64_t{Facts.nFileSizeHigh} << 32 | Facts.nFileSizeLow;
  Written = NumberOf(Facts.ftLastWriteTime);
  Handle = reinterpret_cast<intptr_t>(File.Detach());
}

TReadableFile::TReadableFile(TReadableFile&& Other) noexcept
    : Name(std::move(Other.Name)), Handle(Other.Handle), FileSize(Other.FileSize), Written(Other.Written) {
  Other.Handle = InvalidHandle;
}

TReadableFile::~TReadableFile() {
  if (Handle != InvalidHandle) CloseHandle(reinterpret_cast<HANDLE>(Handle));
}

size_t TReadableFile::ReadAt(uint64_t Offset, void* Buffer, size_t Count) const {
  constexpr size_t MostAtOnce = size_t{1} << 24;
  size_t Done = 0;
  while (Done < Count) {
    const uint64_t From = Offset + Done;
    OVERLAPPED Place{};
    Place.Offset = static_cast<DWORD>(From);
    Place.OffsetHigh = static_cast<DWORD>(From >> 32);
    DWORD Got = 0;
    if (!ReadFile(reinterpret_cast<HANDLE>(Handle), static_cast<char*>(Buffer) + Done,
                  static_cast<DWORD>(std::min(Count - Done, MostAtOnce)), &Got, &Place)) {
      if (GetLastError() == ERROR_HANDLE_EOF) break;
      throw ECannotRead{Name, From, ErrorText(GetLastError())};
    }
    if (Got == 0) break;
    Done += Got;
  }
  return Done;
}

std::string TMachine::ToUtf8(std::string_view Ansi) const {
  if (Ansi.empty()) return {};
  const UINT Page = CodePage ? CodePage : CP_ACP;
  std::wstring Wide(Ansi.size(), L'\0');
  const int Size = MultiByteToWideChar(Page, 0, Ansi.data(), static_cast<int>(Ansi.size()), Wide.data(),
                                       static_cast<int>(Wide.size()));
  if (Size <= 0) throw ECannotRead{"--code-page", 0, "there is no code page " + std::to_string(CodePage)};
  Wide.resize(static_cast<size_t>(Size));
  return Utf8(Wide);
}

std::optional<fs::path> TMachine::PathOf(std::string_view Ansi) const {
  const std::string Name = ToUtf8(Ansi);
  if (Drives.empty()) return PathFrom(Name);
  if (Name.size() < 2 || Name[1] != ':' || Name.find("..") != std::string::npos) return std::nullopt;
  const auto Drive = Drives.find(static_cast<char>(Name[0] | 0x20));
  if (Drive == Drives.end()) return std::nullopt;
  return Drive->second / PathFrom(Name.substr(std::min(Name.find_first_not_of("\\/", 2), Name.size())));
}

std::optional<TFileNow> TMachine::LookAt(const fs::path& Path) {
  WIN32_FILE_ATTRIBUTE_DATA Facts{};
  if (!GetFileAttributesExW(SystemPath(Path).c_str(), GetFileExInfoStandard, &Facts)) {
    const DWORD Code = GetLastError();
    if (Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND || Code == ERROR_INVALID_NAME) return std::nullopt;
    throw ECannotRead{NameOf(Path), 0, ErrorText(Code)};
  }
  return TFileNow{(Facts.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                  uint64_t{Facts.nFileSizeHigh} << 32 | Facts.nFileSizeLow, NumberOf(Facts.ftLastWriteTime),
                  Facts.dwFileAttributes};
}

std::string TMachine::HoldersOf(const fs::path& Path) const {
  if (Open(Path, DELETE) || GetLastError() != ERROR_SHARING_VIOLATION) return {};
  const std::string Users = UsersOf(Path);
  return Users.empty() ? "another program" : Users;
}

TAnswer TMachine::CanCreateIn(const fs::path& Folder) const {
  if (Open(Folder, FILE_ADD_FILE, ShareAll, FILE_FLAG_BACKUP_SEMANTICS)) return TAnswer::Yes;
  return GetLastError() == ERROR_ACCESS_DENIED ? TAnswer::No : TAnswer::Unknown;
}

std::optional<uint64_t> TMachine::FreeBytes(const fs::path& Folder) const {
  ULARGE_INTEGER Free{};
  if (!GetDiskFreeSpaceExW(SystemPath(Folder).c_str(), &Free, nullptr, nullptr)) return std::nullopt;
  return Free.QuadPart;
}

bool TMachine::HasKey(uint32_t Root, const std::string& Name) const { return static_cast<bool>(OpenKey(Root, Name)); }

std::optional<TValueNow> TMachine::Value(uint32_t Root, const std::string& Key, const std::string& Name) const {
  const TRegistryKey Open = OpenKey(Root, Key);
  TValueNow Now;
  DWORD Type = 0, Size = 0;
  if (!Open || RegQueryValueExA(Open.Get(), Name.c_str(), nullptr, &Type, nullptr, &Size) != ERROR_SUCCESS)
    return std::nullopt;
  Now.Data.resize(Size);
  LSTATUS Status = ERROR_MORE_DATA;
  for (int Tries = 3; Status == ERROR_MORE_DATA && Tries > 0; --Tries) {
    Now.Data.resize(std::max<size_t>(Now.Data.size(), Size));
    Size = static_cast<DWORD>(Now.Data.size());
    Status = RegQueryValueExA(Open.Get(), Name.c_str(), nullptr, &Type, Now.Data.data(), &Size);
  }
  if (Status != ERROR_SUCCESS) return std::nullopt;
  Now.Data.resize(Size);
  Now.Type = Type;
  return Now;
}

std::vector<std::string> TMachine::ValueNames(uint32_t Root, const std::string& Key) const {
  constexpr DWORD LongestName = 16384;
  std::vector<std::string> Names;
  const TRegistryKey Open = OpenKey(Root, Key);
  std::string Name(LongestName, '\0');
  for (DWORD Index = 0; Open; ++Index) {
    DWORD Size = LongestName;
    if (RegEnumValueA(Open.Get(), Index, Name.data(), &Size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      break;
    Names.emplace_back(Name.data(), Size);
  }
  return Names;
}

TAnswer TMachine::HasClass(const std::string& ClassId) const {
  for (const char* Server : {"\\InprocServer32", "\\LocalServer32"})
    if (HasKey(0x80000000, "CLSID\\" + ClassId + Server)) return TAnswer::Yes;
  return TAnswer::No;
}

std::string TMachine::ProgIdOf(const std::string& ClassId) const {
  const std::optional<TValueNow> Found = Value(0x80000000, "CLSID\\" + ClassId + "\\ProgID", "");
  return Found ? ToUtf8(std::string(Found->Data.begin(), Found->Data.end()).c_str()) : std::string();
}

TLockState TMachine::LockState() const {
  const std::string Name = "Global\\Mendwork.Owner." + IdOfClass("UTransactionLog");
  const TKernelHandle Mutex(OpenMutexA(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, Name.c_str()));
  if (!Mutex) return GetLastError() == ERROR_FILE_NOT_FOUND ? TLockState::Free : TLockState::Unknown;
  if (WaitForSingleObject(Mutex.Get(), 0) == WAIT_TIMEOUT) return TLockState::Held;
  ReleaseMutex(Mutex.Get());
  return TLockState::Loaded;
}

std::optional<fs::path> TMachine::RegisteredBase(std::string& Why) {
  constexpr char KeyName[] = "Software\\Orvane\\Core";
  const std::optional<TValueNow> Found = TMachine().Value(0x80000001, KeyName, "");
  const std::string Text = Found ? std::string(Found->Data.begin(), Found->Data.end()).c_str() : "";
  if (Found && Found->Type == REG_SZ && !Text.empty()) return PathFrom(TMachine().ToUtf8(Text));
  Why = "The default value of HKEY_CURRENT_USER\\" + std::string(KeyName) +
        " does not name the application's base folder; name it with --base.";
  return std::nullopt;
}

bool TMachine::OutputIsTerminal() {
  DWORD Mode = 0;
  const HANDLE Output = GetStdHandle(STD_OUTPUT_HANDLE);
  constexpr DWORD UnderstandColours = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  return GetConsoleMode(Output, &Mode) && SetConsoleMode(Output, Mode | UnderstandColours);
}

void TMachine::UseUtf8Output() { SetConsoleOutputCP(CP_UTF8); }

std::string NameOf(const fs::path& Path) { return Utf8(Path.wstring()); }

struct TStateLock::TLocks {
  TNamedLock Log, History;
  std::optional<TNamedLock::TOwner> LogOwner, HistoryOwner;
  std::optional<TNamedLock::THold> LogHold, HistoryHold;
};

TStateLock::TStateLock() : Locks(std::make_unique<TLocks>()) {
  if (TMachine().LockState() != TLockState::Free)
    throw ECannotRead{"the transaction log", 0, "an updater has it in use; wait for its end"};
  Locks->Log.Create(IdOfClass("UTransactionLog"));
  Locks->History.Create(IdOfClass("UHistory"));
  Locks->LogOwner.emplace(Locks->Log);
  Locks->HistoryOwner.emplace(Locks->History);
  Locks->LogHold.emplace(*Locks->LogOwner);
  Locks->HistoryHold.emplace(*Locks->HistoryOwner);
}

TStateLock::~TStateLock() = default;

void FlushFile(const fs::path& Path) {
  const TFileHandle File = Open(Path, GENERIC_WRITE);
  if (File) FlushFileBuffers(File.Get());
}
