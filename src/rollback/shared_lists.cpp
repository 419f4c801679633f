#include "rollback/shared_lists.h"

void TSharedLists::Forget() {
  for (TSavedList* List : Lists) List->Assign({});
  Loaded = false;
}

TSharedLists::TSaved TSharedLists::Read(const TBackupClient& Store, IUHistory& History) const {
  TSaved Saved;
  if (Loaded) return Saved;
  for (const TSavedList* List : Lists) Saved.push_back(List->Load(Store, History));
  return Saved;
}

void TSharedLists::LoadOnce(const TSaved& Saved) {
  if (Loaded) return;
  for (size_t At = 0; At < Lists.size(); ++At)
    if (Saved[At]) Lists[At]->Assign(*Saved[At]);
  Loaded = true;
}
