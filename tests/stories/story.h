#pragma once

#include "support/module_calls.h"
#include "support/sandbox_test.h"

#include <set>

/// Holds a long text against FOLDER\NAME of the tests' sources; no text needs no file. What was found is left in the
/// build folder when it differs.
void ExpectText(const std::string& Folder, const std::string& Name, const std::string& Found);

/// Tests that tell everything: each step's result and boxes, the lines of the debug log with the locks that were taken
/// between them, what it changed in files, registry, transaction log and the system's own folder. What is told must be
/// what tests/stories/SUITE.TEST.txt has, to the last character; GUIDs, handles, folders, ids and the system's words
/// are told by names. After a wanted change, look at what differs and copy the file that the failing test names.
class TStory : public TSandboxTest {
 protected:
  TStory();
  void TearDown() override;

 public:
  /// Tells a step that was just taken; Brief tells it without the log's lines.
  void Step(const std::string& What, HRESULT Result) { TellStep(What, Result, true); }
  void Brief(const std::string& What, HRESULT Result) { TellStep(What, Result, false); }
  void Tell(const std::string& Line) { Told += Plain(Line) + "\n"; }
  /// Undoes everything, tells so, and what is not as it was when the story, or the last Begin, began.
  void UndoAll();
  /// What has happened until now is not told, and is what UndoAll must bring back.
  void Begin();
  void Put(const std::string& Name, const std::string& Content, DWORD Attributes = FILE_ATTRIBUTE_NORMAL) {
    Write(App(Name), Content, Attributes);
  }
  /// What a call gives while a fault, an open file or a replaced function lasts, which is to the end of the expression.
  static HRESULT While(const auto& /*Lasting*/, const auto& Call) { return Call(); }
  static TFileHandle Hold(const std::string& Path, DWORD Share = 0) {
    return TFileHandle(CreateFileA(Path.c_str(), GENERIC_READ, Share, nullptr, OPEN_EXISTING, 0, nullptr));
  }
  /// A flag of a call, by its letter.
  static VARIANT_BOOL Is(const std::string& Flags, char Flag) { return Flags.find(Flag) == std::string::npos ? 0 : -1; }
  /// Leaves error information behind, as an object does that fails.
  static void TellError(const std::string& Description);
  /// A record of the transaction log or of a history group, by hand.
  static std::string RecordOf(const GUID& Id, int Code, const GUID& DataID);

  std::string ItemPath(const GUID& DataID) const { return Service("Backup\\" + GuidText(DataID)); }
  /// An item with these bytes, as if it had been saved.
  GUID Stored(const std::string& Content);

  std::wstring WatchedKey = TestKey;
  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
  TComRef<IUTransactionLog> Transactions = Make<IUTransactionLog>(CLSID_UTransactionLog);
  TComRef<IUHistory> History = Make<IUHistory>(CLSID_UHistory);
  TComRef<IUMacro> Macro = Make<IUMacro>(CLSID_UMacro);
  TComRef<IUCom> Com = Make<IUCom>(CLSID_UCom);
  TComRef<IUGarbage> Garbage = Make<IUGarbage>(CLSID_UGarbage);

 private:
  struct TState {
    TTree App;
    TRegistryTree Keys;
    std::string Entries, Service;
    std::multiset<std::string> Items;
  };
  TState Now() const;
  void Remember();
  void TellStep(const std::string& What, HRESULT Result, bool Lines);
  void TellLines();
  void TellChanges(const TState& Since);
  std::string Plain(std::string Text) const;
  std::string Entries() const;

  const TImportPatch Waits, Releases, Leaves, Gets, Sets;
  TNoPauses NoPauses;
  mutable std::vector<std::string> GuidNames;  ///< of GUIDs, in the order in which they appeared
  std::string Told;
  std::set<std::string> Routines;  ///< that were told
  TState Start, Last;
  int StoredItems = 0;
};
