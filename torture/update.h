#pragma once

#include "kit/interfaces.h"
#include "sample.h"
#include "support/sandbox.h"

#include <functional>
#include <string>
#include <vector>

/// One update of everything: every kind of change that the system offers, one step after the other, on the sample
/// application of machine.h.

constexpr unsigned long User = 0x80000001;
constexpr VARIANT_BOOL Yes = VARIANT_TRUE, No = VARIANT_FALSE;
/// The application's key or one below it.
Text KeyName(const std::string& Below = "");

/// How an update makes what did not exist before it: with the logged methods alone, whose rollback leaves folders, keys
/// and values, or with the kit, whose rollback leaves nothing.
enum class TForm { Plain, Kit };

/// The objects of one process that updates.
struct TUpdater {
  explicit TUpdater(const std::string& Root, TForm Form = TForm::Plain) : Places{Root}, Form(Form) {
    if (Form == TForm::Kit) Kit = Make<IKit>(CLSID_Kit);
  }

  HRESULT ReadGroup(const GUID& Group) { return History->Get(Group, &Code, &Item, &Flag, &Flag); }

  TPlaces Places;
  TForm Form;
  // What calls gave back; nobody looks at most of it.
  GUID Item{};
  TBstr Content;
  long Code = 0;
  VARIANT_BOOL Flag = No;
  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
  TComRef<IUTransactionLog> Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  TComRef<IUHistory> History = Make<IUHistory>(CLSID_UHistory);
  TComRef<IUMacro> Macro = Make<IUMacro>(CLSID_UMacro);
  TComRef<IUCom> Com = Make<IUCom>(CLSID_UCom);
  TComRef<IUInno> Inno = Make<IUInno>(CLSID_UInno);
  TComRef<IUGarbage> Garbage = Make<IUGarbage>(CLSID_UGarbage);
  TComRef<IKit> Kit;  ///< of that form only
};

struct TStep {
  std::string Name;
  std::function<HRESULT(TUpdater&)> Run;
};
const std::vector<TStep>& UpdateSteps(TForm Form = TForm::Plain);
/// The step that tells the uninstaller.
inline constexpr char UninstallLogStep[] = "uninstall log: write";

/// Runs the steps until one fails. `Current` is the name of the step that runs, or has failed. The answers of the user,
/// when a step asks whether to overwrite, are the caller's business: Yes.
HRESULT RunUpdate(TUpdater& Updater, std::string& Current);
/// Fails when the history, the macros or the garbage lists, which outlive a rollback, are not whole.
HRESULT LookAtStores();

/// What a rollback leaves although it was not there before, because no rule takes it away: folders and registry keys
/// and values that logged calls of the plain form created. Removes those lines from a difference and gives how many
/// there were.
int RemoveKnownRemains(std::string& Difference);
