#include "rollback/shared_lists.h"

#include <optional>
#include <string>

void TSharedLists::Forget() {
  for (TSavedList* List : Lists) List->Assign({});
  Loaded = false;
}

void TSharedLists::LoadOnce(const TBackupClient& Store, IUHistory& History) {
  if (Loaded) return;
  std::vector<std::optional<std::vector<std::string>>> Saved;
  for (const TSavedList* List : Lists) Saved.push_back(List->Load(Store, History));
  for (size_t At = 0; At < Lists.size(); ++At)
    if (Saved[At]) Lists[At]->Assign(*Saved[At]);
  Loaded = true;
}
