#pragma once

#include "base/guid.h"
#include "base/text.h"
#include "server/interfaces.h"
#include "support/doubles.h"
#include "support/module_calls.h"
#include "support/tree.h"

#include <string>
#include <vector>

/// Where one test, torture or benchmark lives: COM for its thread, a folder of its own with an application in it, the
/// base folder's registry value pointing there, and doubles for the dialogs and (unless told otherwise) the debug log,
/// both registered as the active objects that the module takes by its own rules. One test, one process, one sandbox.
class TSandbox {
 public:
  /// NoDoubles is for tests whose clients are other processes: those would wait for this one's thread.
  enum TLogChoice { LogInMemory, LogToFile, NoDoubles };
  explicit TSandbox(TLogChoice Choice = LogInMemory);
  ~TSandbox();
  TSandbox(const TSandbox&) = delete;
  TSandbox& operator=(const TSandbox&) = delete;

  /// The sandbox's folder, one for each process, whose name is always as long; App and Base lie in it.
  const std::string& Root() const { return RootDir; }
  std::string App(const std::string& Name = "") const { return Under(RootDir + "\\App", Name); }
  std::string Base(const std::string& Name = "") const { return Under(RootDir + "\\Base", Name); }
  /// The system's own folders.
  std::string Updates(const std::string& Name = "") const { return Under(Base("Updates"), Name); }
  std::string Service(const std::string& Name = "") const {
    return Under(Updates(sizeof(void*) == 8 ? "Mendwork64" : "Mendwork"), Name);
  }

  TScriptedDialog& Dialog() { return *DialogDouble; }
  /// The lines that went to the debug-log double.
  TMemoryLog& Log() { return *LogDouble; }

 private:
  static std::string Under(const std::string& Folder, const std::string& Name) {
    return Name.empty() ? Folder : Folder + "\\" + Name;
  }

  std::string RootDir;
  TComRef<TScriptedDialog> DialogDouble;
  TComRef<TMemoryLog> LogDouble;
  DWORD DialogEntry = 0, LogEntry = 0;
};

/// A new object of one of the module's classes, through COM.
template <class TInterface>
TComRef<TInterface> Make(const CLSID& ClassId) {
  TComRef<TInterface> Object;
  const HRESULT Made = CoCreateInstance(ClassId, nullptr, CLSCTX_INPROC_SERVER, __uuidof(TInterface), Object.OutVoid());
  Must(SUCCEEDED(Made), "CoCreateInstance failed with " + std::to_string(Made));
  return Object;
}

/// A BSTR for the length of a call: File->DeleteFiles(Text("C:\\App\\*.*"), ...). The text is ANSI.
class Text {
 public:
  explicit Text(const std::string& Ansi) : Value(MakeBstr(ToWide(Ansi))) {}
  explicit Text(const std::wstring& Wide) : Value(MakeBstr(Wide)) {}
  operator BSTR() const { return Value.Get(); }

 private:
  TBstr Value;
};

/// Takes a BSTR result as ANSI and frees it.
std::string Take(TBstr& Result);

/// The description of the thread's error information, or "" when there is none; it is taken away.
std::string ErrorText();

/// The system's text for an error code, as FormatMessage gives it on this machine.
std::string SystemText(DWORD Code);

/// A GUID from its registry form.
GUID Guid(const char* Text);

/// A different GUID for each number: {00000000-0000-0000-0000-00000000000N}.
GUID NumberedGuid(int Number);

/// Undoes what is in the transaction log, to its beginning or to the last check point.
HRESULT RollBack(VARIANT_BOOL OnlyToCheckPoint = VARIANT_FALSE, GUID* Reached = nullptr);

/// Makes pauses pass at once, and counts those of patient wrappers, of 3000 ms.
struct TNoPauses {
  static int Count();
  const TImportPatch Patch{"Sleep", SleepUnlessPause};

 private:
  static void WINAPI SleepUnlessPause(DWORD Milliseconds);
};

/// A small type library in a file of its own, of this program's bitness, with one interface; `HelpFile` may be empty.
void MakeTypeLibrary(const std::string& Path, const std::string& HelpFile = "");
constexpr char MadeLibraryId[] = "{3F0C6A52-7B1E-4D9A-8C35-51A2E7D4B960}";
constexpr WORD MadeLibraryMajor = 3, MadeLibraryMinor = 7;
constexpr SYSKIND OwnKind = sizeof(void*) == 4 ? SYS_WIN32 : SYS_WIN64;
