#include "base/data_folders.h"

#include "base/error_code.h"
#include "base/failure.h"
#include "base/handles.h"
#include "base/system_error.h"
#include "base/text.h"

#include <cstring>
#include <vector>

namespace {

constexpr char BaseKeyName[] = "Software\\Orvane\\Core";

std::string UpdatesDir;
std::string ServiceDir;

[[noreturn]] void RaiseNoBaseFolder(long Code, const std::string& Why) {
  throw EFailure(MakeErrorHResult(Code), ToWide(FormatMessageText(MsgNoBaseFolder, std::string(BaseKeyName), Why)));
}

std::string Expanded(const std::string& Text) {
  std::string Result(ExpandEnvironmentStringsA(Text.c_str(), nullptr, 0), '\0');
  ExpandEnvironmentStringsA(Text.c_str(), Result.data(), static_cast<DWORD>(Result.size()));
  Result.resize(std::strlen(Result.c_str()));
  return Result;
}

std::string ReadBaseFolder() {
  TRegistryKey Key;
  LSTATUS Status = RegOpenKeyExA(HKEY_CURRENT_USER, BaseKeyName, 0, KEY_ALL_ACCESS, Key.Out());
  DWORD Type = REG_NONE, Size = 0;
  if (Status == ERROR_SUCCESS) Status = RegQueryValueExA(Key.Get(), nullptr, nullptr, &Type, nullptr, &Size);
  // One zero more than asked for: a stored string need not have its terminator.
  std::vector<char> Buffer(Size + 1);
  if (Status == ERROR_SUCCESS)
    Status = RegQueryValueExA(Key.Get(), nullptr, nullptr, &Type, reinterpret_cast<BYTE*>(Buffer.data()), &Size);
  if (Status != ERROR_SUCCESS) RaiseNoBaseFolder(Status, SystemErrorText(static_cast<DWORD>(Status)));
  if (Type != REG_SZ && Type != REG_EXPAND_SZ)
    RaiseNoBaseFolder(ERROR_INVALID_DATA, LoadMessage(MsgBaseFolderNoString));
  const std::string Text = Buffer.data();
  if (Text.empty()) RaiseNoBaseFolder(ERROR_INVALID_DATA, LoadMessage(MsgBaseFolderEmpty));
  return Type == REG_EXPAND_SZ ? Expanded(Text) : Text;
}

/// An existing folder is what is wanted, and the first file operation in a missing one tells the user what is wrong.
void MakeFolder(const std::string& Folder) { CreateDirectoryA(Folder.c_str(), nullptr); }

}  // namespace

std::string GetUpdatesDir() {
  if (UpdatesDir.empty()) {
    UpdatesDir = ReadBaseFolder() + "\\Updates";
    MakeFolder(UpdatesDir);
    MakeFolder(UpdatesDir + "\\Log");
  }
  return UpdatesDir;
}

std::string GetServiceDir() {
  if (ServiceDir.empty()) {
    ServiceDir = GetUpdatesDir() + "\\Mendwork";
    MakeFolder(ServiceDir);
    for (const char* Name : {"\\Garbage", "\\History", "\\Backup"}) MakeFolder(ServiceDir + Name);
  }
  return ServiceDir;
}

std::string GetUninstallDir() { return ReadBaseFolder() + "\\Uninstall"; }

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
}
