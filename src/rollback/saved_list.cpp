#include "rollback/saved_list.h"

#include "base/failure.h"
#include "base/text.h"
#include "formats/comma_text.h"

namespace {

/// Names that the user's locale finds equal without case have the same key.
std::string KeyOf(const std::string& Name) {
  // More than the weights of any character take.
  constexpr size_t KeyBytesPerCharacter = 16, KeyFrame = 16;
  std::string Key(Name.size() * KeyBytesPerCharacter + KeyFrame, '\0');
  const int Size = LCMapStringA(LOCALE_USER_DEFAULT, LCMAP_SORTKEY | NORM_IGNORECASE, Name.data(),
                                static_cast<int>(Name.size()), Key.data(), static_cast<int>(Key.size()));
  if (Size <= 0) return Name;  // an empty name has no key
  Key.resize(static_cast<size_t>(Size));
  return Key;
}

}  // namespace

const std::string* TSavedList::Find(const std::string& Name) const {
  if (Entries.empty()) return nullptr;
  const std::string Key = KeyOf(Name);
  const auto Found = Index.lower_bound(Key);
  return Found != Index.end() && Found->first == Key ? &*Found->second : nullptr;
}

void TSavedList::Remove(const std::string& Name) {
  if (Entries.empty()) return;
  const auto [Begin, End] = Index.equal_range(KeyOf(Name));
  for (auto At = Begin; At != End; ++At) Entries.erase(At->second);
  Index.erase(Begin, End);
}

void TSavedList::Add(std::string Entry) {
  std::string Key = KeyOf(NameOf(Entry));
  Entries.push_back(std::move(Entry));
  Index.emplace(std::move(Key), std::prev(Entries.end()));
}

void TSavedList::Clear() {
  Index.clear();
  Entries.clear();
}

std::string TSavedList::CommaText() const { return MakeCommaText({Entries.begin(), Entries.end()}); }

void TSavedList::Save(IUBackup& Backup, IUHistory& History) const {
  constexpr long AnyCode = 0;
  GUID DataID{};
  CheckCall(Backup.BackupString(MakeBstr(ToWide(CommaText())).Get(), &DataID));
  CheckCall(History.Put(GroupID, AnyCode, DataID));
}

void TSavedList::Load(IUBackup& Backup, IUHistory& History) {
  long Code = 0;
  GUID DataID{};
  VARIANT_BOOL NoMoreRecords = VARIANT_FALSE, ThisIsCheckPoint = VARIANT_FALSE;
  CheckCall(History.Get(GroupID, &Code, &DataID, &NoMoreRecords, &ThisIsCheckPoint));
  if (NoMoreRecords) return;
  TBstr Text;
  CheckCall(Backup.RestoreString(DataID, Text.Out()));
  Clear();
  for (std::string& Entry : ParseCommaText(ToAnsi(ViewOf(Text.Get())))) Add(std::move(Entry));
}
