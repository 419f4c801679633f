#pragma once

#include "kit/interfaces.h"
#include "kit/kit_dialog.h"
#include "kit/kit_log.h"
#include "kit/message_list.h"
#include "kit/progress.h"
#include "kit/stand_in.h"
#include "server/automation.h"

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
  STDMETHOD(Silent)(BSTR Policy) override;
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

 private:
  /// An object that stands in for one of Mendwork's, in its place.
  template <class TObject>
  struct TStanding {
    template <class... TArgs>
    explicit TStanding(const CLSID& ClassId, TArgs&&... Args)
        : Object(new TObject(std::forward<TArgs>(Args)...)), Place(Object->Identity(), ClassId) {}
    TComRef<TObject> Object;
    TActivePlace Place;
  };

  std::shared_ptr<TMessageList> Heard = std::make_shared<TMessageList>();
  std::optional<TStanding<TKitLog>> DebugLog;
  std::optional<TStanding<TKitDialog>> Dialog;
  std::optional<TProgress> Shown;
};
