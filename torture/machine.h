#pragma once

#include "support/process.h"
#include "support/registry_tree.h"
#include "support/sandbox.h"

#include <set>
#include <string>
#include <vector>

/// All of a sample application that an update may change, as it can be compared: files with their bytes, attributes and
/// times, folders, registry keys with their values' types and bytes, class registrations.
struct TCapture {
  TTree Files;
  TRegistryTree Registry;
  TRegistryTree Classes;
};
/// One line for each thing that differs; "" when nothing does.
std::string Difference(const TCapture& Before, const TCapture& After);

/// The machine that is tortured: a sandbox with the sample application, its package, its part of the registry and its
/// base folder. The processes that change it find it by the base folder's value in the registry.
class TMachine final : public TSandbox {
 public:
  TMachine();
  ~TMachine();

  /// The sample application and its package as they are before an update; the base folder is empty.
  void LayOut();
  TCapture Capture() const;

 private:
  void LayOutFiles() const;
  void LayOutClasses();
  void FindClassKeys();
  TRegistryTree CaptureClasses() const;

  /// The module stays loaded here as long as its machine lives, so that the locks of the dead outlive them.
  TComRef<IClassFactory> Loaded;
  /// Nobody sees it. Wine's desktop goes with the last window, and takes half a second to start with the next.
  HWND Window = nullptr;
  TCapture Original;
  /// Where in HKEY_CLASSES_ROOT the sample's servers and type library register.
  std::set<std::wstring> ClassKeys;
};

/// Where the sandbox of another process is.
struct TPlaces {
  std::string Root;
  std::string App(const std::string& Name = "") const { return Below("App", Name); }
  std::string Package(const std::string& Name = "") const { return Below("Package", Name); }
  std::string Service(const std::string& Name = "") const { return Below("Base\\Updates\\Mendwork", Name); }

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

/// The application's key below HKEY_CURRENT_USER.
inline constexpr wchar_t AppKeyName[] = L"Software\\MendworkTorture";
