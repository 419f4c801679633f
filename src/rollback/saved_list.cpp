#include "rollback/saved_list.h"

#include "server/comma_text.h"
#include "server/failure.h"
#include "server/text.h"

namespace {

bool SameName(const std::string& Left, const std::string& Right) {
  return CompareStringA(LOCALE_USER_DEFAULT, NORM_IGNORECASE, Left.data(), static_cast<int>(Left.size()), Right.data(),
                        static_cast<int>(Right.size())) == CSTR_EQUAL;
}

}  // namespace

const std::string* TSavedList::Find(const std::string& Name) const {
  for (const std::string& Entry : Entries)
    if (SameName(NameOf(Entry), Name)) return &Entry;
  return nullptr;
}

void TSavedList::Remove(const std::string& Name) {
  std::erase_if(Entries, [&](const std::string& Entry) { return SameName(NameOf(Entry), Name); });
}

std::string TSavedList::CommaText() const { return MakeCommaText(Entries); }

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
  Entries = ParseCommaText(ToAnsi(ViewOf(Text.Get())));
}
