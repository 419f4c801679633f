#include "rollback/saved_list.h"

#include "base/failure.h"
#include "base/guid.h"
#include "base/text.h"
#include "formats/comma_text.h"

#include <iterator>

namespace {

/// Names that the user's locale finds equal without case have the same key.
std::string KeyOf(const std::string& Name) {
  // More than the weights of any character take.
  constexpr size_t KeyBytesPerCharacter = 16, KeyFrame = 16;
  const std::wstring Wide = ToWide(Name);
  std::string Key(Wide.size() * KeyBytesPerCharacter + KeyFrame, '\0');
  // The bytes of a key are handed out as if they were characters; the room is counted in bytes.
  const int Size =
      LCMapStringW(LOCALE_USER_DEFAULT, LCMAP_SORTKEY | NORM_IGNORECASE, Wide.data(), static_cast<int>(Wide.size()),
                   reinterpret_cast<wchar_t*>(Key.data()), static_cast<int>(Key.size()));
  if (Size <= 0) return Name;  // an empty name has no key
  Key.resize(static_cast<size_t>(Size));
  return Key;
}

}  // namespace

const std::string* TNameList::Find(const std::string& Name) const {
  if (Entries.empty()) return nullptr;
  const std::string Key = KeyOf(Name);
  const auto Found = Index.lower_bound(Key);
  return Found != Index.end() && Found->first == Key ? &*Found->second : nullptr;
}

void TNameList::Remove(const std::string& Name) {
  if (Entries.empty()) return;
  const std::lock_guard Guard(Changing);
  const auto [Begin, End] = Index.equal_range(KeyOf(Name));
  for (auto At = Begin; At != End; ++At) Entries.erase(At->second);
  Index.erase(Begin, End);
}

void TNameList::RemoveFirst(const std::string& Name) {
  if (Entries.empty()) return;
  const std::lock_guard Guard(Changing);
  const auto [Begin, End] = Index.equal_range(KeyOf(Name));
  if (Begin == End) return;
  Entries.erase(Begin->second);  // equal keys are in the order in which they came
  Index.erase(Begin);
}

void TNameList::Add(const std::string& Entry) {
  const std::lock_guard Guard(Changing);
  Insert(Entry);
}

void TNameList::Assign(const std::vector<std::string>& New) {
  const std::lock_guard Guard(Changing);
  Index.clear();
  Entries.clear();
  for (const std::string& Entry : New) Insert(Entry);
}

void TNameList::Insert(const std::string& Entry) {
  std::string Key = KeyOf(NameOf(Entry));
  Entries.push_back(Entry);
  Index.emplace(std::move(Key), std::prev(Entries.end()));
}

std::string TNameList::CommaText() const {
  const std::lock_guard Guard(Changing);
  return MakeCommaText({Entries.begin(), Entries.end()});
}

TSavedList::TSavedList(const char* GroupId, TNameOf NameOf)
    : TNameList(NameOf), GroupID(GuidOf(ParseGuid(GroupId).value())) {}

void TSavedList::Save(const TBackupClient& Store, IUHistory& History) const {
  constexpr long AnyCode = 0;
  CheckCall(History.Put(GroupID, AnyCode, Store.SaveString(CommaText())));
}

std::optional<std::vector<std::string>> TSavedList::Load(const TBackupClient& Store, IUHistory& History) const {
  long Code = 0;
  GUID DataID{};
  VARIANT_BOOL NoMoreRecords = VARIANT_FALSE, ThisIsCheckPoint = VARIANT_FALSE;
  CheckCall(History.Get(GroupID, &Code, &DataID, &NoMoreRecords, &ThisIsCheckPoint));
  if (NoMoreRecords) return std::nullopt;
  return ParseCommaText(Store.LoadString(DataID));
}
