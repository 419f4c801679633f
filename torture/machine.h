#pragma once

#include "sample.h"
#include "support/process.h"
#include "support/sandbox.h"
#include "support/tree.h"
#include "update.h"

#include <map>
#include <set>
#include <string>

/// All of a sample application that an update may change, as it can be compared: files with their bytes, attributes and
/// times, folders, registry keys with their values' types and bytes, class registrations.
struct TCapture {
  TTree Files;
  TRegistryTree Registry, Classes;
};
/// One line for each thing that differs; "" when nothing does.
std::string Difference(const TCapture& Before, const TCapture& After);

/// What a process told that changed the machine.
struct TTold {
  DWORD Status;
  int Boxes = 0;           ///< that told of a failing call
  HRESULT Result = -1;     ///< -1 when the process did not come to its end
  std::string Step = {};   ///< in which the user was asked, or which failed
  std::string Error = {};  ///< the failure's text
  TWords Calls = {};       ///< the names of its calls, when they were counted
};

/// The machine that is tortured: a sandbox with the sample application, its package, its part of the registry and its
/// base folder. The processes that change it find it by the base folder's value in the registry.
class TMachine final : public TSandbox {
 public:
  /// Its processes update in this form.
  explicit TMachine(TForm Form = TForm::Plain);
  ~TMachine();

  /// The sample application and its package as they are before an update; the base folder is empty.
  void LayOut();
  const TCapture& Before() const { return Original; }
  TCapture Capture() const;
  /// Lets a process make the update, or roll everything back and look at what outlives it; the role in machine.cpp says
  /// what may happen to it.
  TTold Change(const std::string& What, const TWords& Event = {"nothing", "0"}) const;
  /// Lets a process roll everything back and gives what is wrong then, or ""; counts whether all is exactly as before.
  /// With the kit it must be.
  std::string RollBackAndCompare(std::map<std::string, int>& Notes) const;

 private:
  void FindClassKeys();
  TRegistryTree CaptureClasses() const;

  const TForm Form;
  /// The modules stay loaded here as long as their machine lives, so that the locks of the dead outlive them.
  TComRef<IClassFactory> Loaded, LoadedKit;
  /// Nobody sees it. Wine's desktop goes with the last window, and takes half a second to start with the next.
  HWND Window = nullptr;
  TCapture Original;
  /// Where in HKEY_CLASSES_ROOT the sample's servers and type library register.
  std::set<std::wstring> ClassKeys;
};
