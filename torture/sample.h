#pragma once

#include <string>

/// The sample application that is updated: its files and its package, its part of the registry, and, for its installer
/// and its rubbish, the lists.
void LayOutFiles(const std::string& Root);
void LayOutRegistry();
void LayOutLists(const std::string& Root);

/// Where the sandbox of another process is.
struct TPlaces {
  std::string Root;
  std::string App(const std::string& Name = "") const { return Below("App", Name); }
  std::string Package(const std::string& Name = "") const { return Below("Package", Name); }
  std::string Service(const std::string& Name = "") const {
    return Below(sizeof(void*) == 8 ? "Base\\Updates\\Mendwork64" : "Base\\Updates\\Mendwork", Name);
  }

 private:
  std::string Below(const std::string& Folder, const std::string& Name) const {
    return Root + "\\" + Folder + (Name.empty() ? "" : "\\" + Name);
  }
};

/// Servers that the platform ships: the sample application has registered the one and the other not.
std::string RegisteredServer();
std::string UnregisteredServer();
/// The installer's uninstall log holds so many records before the update.
constexpr int UninstallRecords = 3;
inline std::string UninstallLogOf(const std::string& Root) { return Root + "\\Base\\Uninstall\\unins000.dat"; }
/// How many records an uninstall log holds; -1 when it is damaged.
int UninstallRecordsOf(const std::string& Log);

/// The application's key below HKEY_CURRENT_USER.
inline constexpr wchar_t AppKeyName[] = L"Software\\MendworkTorture";
