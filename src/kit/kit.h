#pragma once

#include "kit/interfaces.h"
#include "kit/kit_dialog.h"
#include "kit/kit_log.h"
#include "kit/message_list.h"
#include "kit/progress.h"
#include "kit/services.h"
#include "kit/stand_in.h"
#include "server/automation.h"
#include "server/routine.h"

#include <initializer_list>
#include <memory>
#include <optional>

/// What updates want beside Mendwork's own objects: quiet, a debug log of their own, a progress. What stands in for
/// Mendwork's dialogs and debug log serves the objects that are made afterwards, and goes with the kit object: an
/// object of Mendwork keeps those that it found when it was made.
class TKit final : public TAutoObject<IKit> {
 public:
  using TAutoObject::TAutoObject;

  /// Answers questions without the user, as the policy says (see ParseSilencePolicy); an empty one ends that. A text
  /// that is no policy fails with E_INVALIDARG, and what was before goes on.
  STDMETHOD(Silent)(BSTR Words) override;
  /// The texts that boxes showed, or would have shown, since the kit stands in for the dialogs; see TMessageList.
  STDMETHOD(get_LastMessage)(BSTR* Text) override;
  STDMETHOD(get_Messages)(BSTR* Texts) override;
  STDMETHOD(ClearMessages)() override;
  /// Begins a progress of so many steps, in place of the one that was, and with 0 only ends that. `Window` is the
  /// number of a window that is told (see TProgress), or 0. A negative total, or no window, fails with E_INVALIDARG.
  STDMETHOD(Progress)(long Total, long Window) override;
  /// Does nothing without a progress, so that an update is written once for both.
  STDMETHOD(Step)(BSTR Text) override;
  /// Writes the debug log to a file of this process in the folder, which is made when it is missing; `Limit` is what it
  /// may take in bytes, at least 65,536, or 0 for any size (see TLogFile). An empty folder ends that. A name that is no
  /// full one, or another limit, fails with E_INVALIDARG, and what was before goes on; a file that cannot be had fails
  /// with the system's code, and nothing goes on.
  STDMETHOD(Log)(BSTR Folder, long Limit) override;

  /// Whether boxes about files in use name who holds them; see AskAboutFile. Silent goes before it.
  STDMETHOD(FileInUse)(VARIANT_BOOL On) override;
  /// IUTransactionLog::Rollback, which the boxes about files in use then know of.
  STDMETHOD(Rollback)(VARIANT_BOOL OnlyToCheckPoint, GUID* CheckPointID) override;
  /// Applies a manifest; see RunUpdate. `Result` is a TUpdateResult, and LastMessage says why it is a failure.
  STDMETHOD(Update)(BSTR ManifestFileName, long* Result) override;

  // What follows records in the transaction log what it is about to make, and a rollback removes it again; see
  // creations.h, tree_copy.h and kit_rollback.h. Each checks its arguments as Mendwork does: full names, predefined
  // roots, names that the code page holds; what it refuses fails with E_INVALIDARG.

  STDMETHOD(CreateKeyLogged)(unsigned long RootKey, BSTR KeyName) override;
  /// `Type` is the registry's number, `Value` a text that ValueDataArgument takes.
  STDMETHOD(CreateValueLogged)
  (unsigned long RootKey, BSTR KeyName, BSTR ValueName, long Type, BSTR Value) override;
  STDMETHOD(CreateFolderLogged)(BSTR FolderName) override;
  /// Mendwork's own CopyFileLogged, which leaves the folders that it made.
  STDMETHOD(CopyFileLogged)(BSTR SourceFileName, BSTR DestFileName, long CopyMode) override;
  STDMETHOD(CopyTreeLogged)
  (BSTR SourceFolder, BSTR DestFolder, BSTR FileMask, long CopyMode, BSTR* Files) override;

 private:
  /// A method that changes something, with its lines in the debug log.
  template <class TBody>
  HRESULT Change(const char* Name, std::initializer_list<TLogWord> Words, TBody&& Body) noexcept {
    return SafeCall([&] { RunRoutine({nullptr, Class().Name}, Name, Words, Body); });
  }

  /// An object that stands in for one of Mendwork's, in its place.
  template <class TObject>
  struct TStanding {
    template <class... TArgs>
    explicit TStanding(const CLSID& ClassId, TArgs&&... Args)
        : Object(new TObject(std::forward<TArgs>(Args)...)), Place(Object->Identity(), ClassId) {}
    TComRef<TObject> Object;
    TActivePlace Place;
  };

  void StandIn();

  std::optional<TSilencePolicy> Policy;
  bool NamesHolders = false;
  std::shared_ptr<TMessageList> Heard = std::make_shared<TMessageList>();
  std::optional<TStanding<TKitLog>> DebugLog;
  std::optional<TStanding<TKitDialog>> Dialog;
  std::optional<TProgress> Shown;
  TServices Services;  ///< made anew when what they found when they were made is another
};
