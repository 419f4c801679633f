#include "update.h"

#include "stories/story.h"

namespace {

class Update : public TStory {
 protected:
  Update() {
    WatchedKey = AppKeyName;
    LayOutFiles(Root()), LayOutRegistry(), LayOutLists(Root());
    Begin();
  }
  ~Update() override { DeleteKeyTree(AppKeyName); }
};

/// The update that the torture disturbs, here in peace. The first step of each kind is told in full.
TEST_F(Update, SavesAndRecordsBeforeItChangesAnything) {
  constexpr long Kinds = 15;
  Dialog().OnBox = [this] {
    Dialog().Answer({(Dialog().Boxes.back().MsgType & Kinds) == MB_YESNO ? IDYES : IDCANCEL});
  };
  TUpdater Updater(Root());
  std::set<std::string> Told;
  for (const TStep& Next : UpdateSteps()) {
    const std::string Kind = Next.Name.substr(0, Next.Name.find(' ', Next.Name.find(' ') + 1));
    const HRESULT Result = Next.Run(Updater);
    Told.insert(Next.Name.starts_with("copy") ? Next.Name.substr(Next.Name.find(',')) : Kind).second
        ? Step(Next.Name, Result)
        : Brief(Next.Name, Result);
  }
  GUID Reached{};
  Step("back to the check point", RollBack(VARIANT_TRUE, &Reached));
  Tell("reached " + GuidText(Reached));
  UndoAll();
}

}  // namespace
