#include "base/data_folders.h"

#include "base/error_code.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "base/handles.h"
#include "base/paths.h"
#include "base/system_error.h"
#include "base/text.h"

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace {

constexpr char BaseKeyName[] = "Software\\Orvane\\Core";

// The caches of the process, for threads of several apartments.
std::recursive_mutex CacheLock;
std::string UpdatesDir;
std::string ServiceDir;
/// The service folder and the log folder, and where they really are; asked for once.
struct TPlace {
  std::string Name;
  std::wstring Path;  ///< see FinalPath
};
std::vector<TPlace> OwnFolders;

// Programs of both kinds may update one application.
constexpr const char* ServiceName = sizeof(void*) == 8 ? "\\Mendwork64" : "\\Mendwork";

[[noreturn]] void RaiseNoBaseFolder(long Code, const std::string& Why) {
  throw EFailure(MakeErrorHResult(Code), ToWide(FormatMessageText(MsgNoBaseFolder, std::string(BaseKeyName), Why)));
}

std::wstring Expanded(const std::wstring& Text) {
  std::wstring Result(ExpandEnvironmentStringsW(Text.c_str(), nullptr, 0), L'\0');
  ExpandEnvironmentStringsW(Text.c_str(), Result.data(), static_cast<DWORD>(Result.size()));
  Result.resize(Result.find(L'\0'));
  return Result;
}

std::string ReadBaseFolder() {
  TRegistryKey Key;
  LSTATUS Status = RegOpenKeyExA(HKEY_CURRENT_USER, BaseKeyName, 0, KEY_ALL_ACCESS, Key.Out());
  DWORD Type = REG_NONE, Size = 0;
  if (Status == ERROR_SUCCESS) Status = RegQueryValueExW(Key.Get(), nullptr, nullptr, &Type, nullptr, &Size);
  // One zero more than asked for: a stored string need not have its terminator.
  std::vector<wchar_t> Buffer(Size / sizeof(wchar_t) + 2);
  if (Status == ERROR_SUCCESS)
    Status = RegQueryValueExW(Key.Get(), nullptr, nullptr, &Type, reinterpret_cast<BYTE*>(Buffer.data()), &Size);
  if (Status != ERROR_SUCCESS) RaiseNoBaseFolder(Status, SystemErrorText(static_cast<DWORD>(Status)));
  if (Type != REG_SZ && Type != REG_EXPAND_SZ)
    RaiseNoBaseFolder(ERROR_INVALID_DATA, LoadMessage(MsgBaseFolderNoString));
  std::wstring Text = Buffer.data();
  if (Type == REG_EXPAND_SZ) Text = Expanded(Text);
  if (Text.empty()) RaiseNoBaseFolder(ERROR_INVALID_DATA, LoadMessage(MsgBaseFolderEmpty));
  std::optional<std::string> Folder = ExactAnsi(Text);
  if (!Folder) RaiseNoBaseFolder(ERROR_NO_UNICODE_TRANSLATION, FormatMessageText(MsgNotInCodePage, LossyAnsi(Text)));
  return std::move(*Folder);
}

/// An existing folder is what is wanted, and the first file operation in a missing one tells the user what is wrong.
void MakeFolder(const std::string& Folder) { CreateDirectoryA(Folder.c_str(), nullptr); }

}  // namespace

std::string GetUpdatesDir() {
  const std::lock_guard Guard(CacheLock);
  if (UpdatesDir.empty()) {
    UpdatesDir = ReadBaseFolder() + "\\Updates";
    MakeFolder(UpdatesDir);
    MakeFolder(UpdatesDir + "\\Log");
  }
  return UpdatesDir;
}

std::string GetServiceDir() {
  const std::lock_guard Guard(CacheLock);
  if (ServiceDir.empty()) {
    ServiceDir = GetUpdatesDir() + ServiceName;
    MakeFolder(ServiceDir);
    for (const char* Name : {"\\Garbage", "\\History", "\\Backup"}) MakeFolder(ServiceDir + Name);
  }
  return ServiceDir;
}

std::string GetUninstallDir() { return ReadBaseFolder() + "\\Uninstall"; }

namespace {

std::wstring WithEnd(const std::wstring& Place) { return Place.ends_with(L'\\') ? Place : Place + L"\\"; }

/// Whether a place is a folder or lies in it.
bool LiesIn(const std::wstring& Place, const std::wstring& Folder) {
  if (Place.empty() || Folder.empty()) return false;
  const std::wstring Whole = WithEnd(Place), Begin = WithEnd(Folder);
  return Whole.size() >= Begin.size() &&
         CompareStringOrdinal(Whole.data(), static_cast<int>(Begin.size()), Begin.data(),
                              static_cast<int>(Begin.size()), TRUE) == CSTR_EQUAL;
}

TPlace PlaceOf(const std::string& Name) {
  const TFileHandle Open(OpenToAsk(Name));
  return {Name, Open ? FinalPath(Open.Get()) : L""};
}

BY_HANDLE_FILE_INFORMATION FactsOfFolder(const std::string& Name) {
  return FactsOf(TFileHandle(OpenToAsk(Name)).Get());
}

/// The same by the files' own numbers, for a place whose path tells nothing, such as a share that leads back to this
/// machine.
bool LiesInByNumber(const TPlace& Place, const TPlace& Folder) {
  std::string Name = Place.Name;
  const BY_HANDLE_FILE_INFORMATION Facts = FactsOfFolder(Folder.Name);
  while (!AreOneFile(FactsOfFolder(Name), Facts)) {
    const std::string Above = FolderPart(Name);
    if (IsRoot(Name) || Above.size() >= Name.size()) return false;
    Name = Above;
  }
  return true;
}

bool LiesIn(const TPlace& Place, const TPlace& Folder) {
  constexpr wchar_t Network[] = L"\\Device\\Mup\\";
  if (LiesIn(Place.Path, Folder.Path)) return true;
  const bool Comparable = !Place.Path.empty() && !Folder.Path.empty() &&
                          Place.Path.starts_with(Network) == Folder.Path.starts_with(Network);
  return !Comparable && LiesInByNumber(Place, Folder);
}

}  // namespace

void RequireOutsideOwnFolders(const std::string& Mask, bool Recursive) {
  const std::lock_guard Guard(CacheLock);
  if (!PrepareDataFolders()) return;  // there are none
  if (OwnFolders.empty()) OwnFolders = {PlaceOf(GetServiceDir()), PlaceOf(GetUpdatesDir() + "\\Log")};
  const TPlace Folder = PlaceOf(FolderPart(Mask));
  for (const TPlace& Own : OwnFolders)
    if (LiesIn(Folder, Own) || (Recursive && LiesIn(Own, Folder))) Refuse(MsgOwnFolder, ToWide(Mask), ToWide(Own.Name));
}

bool PrepareDataFolders() noexcept {
  try {
    return !GetServiceDir().empty();
  } catch (...) {
    return false;  // said again, and then heard, by the first call that needs a folder
  }
}

void ForgetDataFolders() {
  UpdatesDir.clear();
  ServiceDir.clear();
  OwnFolders.clear();
}
