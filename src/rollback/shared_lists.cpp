#include "rollback/shared_lists.h"

#include "base/guid.h"

#include <optional>
#include <string>

void TSharedLists::Start(const CLSID& ClassId) {
  Loaded = false;
  Lock.Create(GuidText(ClassId));
}

void TSharedLists::Stop() {
  Lock.Close();
  for (TSavedList* List : Lists) List->Assign({});
}

void TSharedLists::LoadOnce(const TBackupClient& Store, IUHistory& History) {
  if (Loaded) return;
  std::vector<std::optional<std::vector<std::string>>> Saved;
  for (const TSavedList* List : Lists) Saved.push_back(List->Load(Store, History));
  for (size_t At = 0; At < Lists.size(); ++At)
    if (Saved[At]) Lists[At]->Assign(*Saved[At]);
  Loaded = true;
}
