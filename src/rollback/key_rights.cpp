#include "rollback/key_rights.h"

#include "base/failure.h"
#include "base/guid.h"
#include "base/text.h"
#include "retry/registry_wrappers.h"
#include "rollback/backup.h"
#include "rollback/backup_store.h"

#include <sddl.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace {

using TLocalText = TOwned<char*, LocalFree>;
using TDescriptor = TOwned<PSECURITY_DESCRIPTOR, LocalFree>;

/// The access list of a key in the security descriptor definition language; empty when there is no such key.
std::string RightsOf(const TKeyPlace& Place) {
  const TRegistryKey Key = RetryOpenKeyIfThere(Place, READ_CONTROL);
  if (!Key) return "";
  std::vector<BYTE> Bytes(512);
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            LSTATUS Status = ERROR_INSUFFICIENT_BUFFER;
            while (Status == ERROR_INSUFFICIENT_BUFFER) {
              DWORD Size = static_cast<DWORD>(Bytes.size());
              Status = RegGetKeySecurity(Key.Get(), DACL_SECURITY_INFORMATION, Bytes.data(), &Size);
              if (Status == ERROR_INSUFFICIENT_BUFFER) Bytes.resize(std::max<size_t>(2 * Bytes.size(), Size));
            }
            return ByStatus(Status);
          },
          MsgCannotGetKeyInfo, Place.Text());
  TLocalText Text;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorA(Bytes.data(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                            Text.Out(), nullptr))
    RaiseLastError();
  return Text.Get();
}

/// Whether a list holds more than what was inherited: D:FLAGS(TYPE;FLAGS;...)..., where P stands for a protected list
/// and ID for an inherited entry.
bool HasOwnEntries(const std::string& Rights) {
  const size_t First = Rights.find('(');
  if (First == std::string::npos || Rights.substr(0, First).find('P') != std::string::npos) return true;
  for (size_t At = First; At != std::string::npos; At = Rights.find('(', At + 1)) {
    const size_t Flags = Rights.find(';', At) + 1;
    if (Rights.substr(Flags, Rights.find(';', Flags) - Flags).find("ID") == std::string::npos) return true;
  }
  return false;
}

TKeyPlace Above(const TKeyPlace& Place) {
  const size_t End = ToWide(Place.Name).rfind(L'\\');
  return {Place.Root, End == std::wstring::npos ? "" : LossyAnsi(ToWide(Place.Name).substr(0, End))};
}

void RecordBelow(IUTransactionLog& TransactionLog, const TKeyPlace& Place, const std::string& AboveIt,
                 const std::string& OfRoot) {
  const std::string Rights = RightsOf(Place);
  // Not every platform tells what was inherited; where all keys have one list, none has its own.
  if (!Rights.empty() && HasOwnEntries(Rights) && !(Rights == AboveIt && Rights == OfRoot)) {
    const GUID DataID = SaveItem(TKeyRightsItem{Place.Root, Place.Name, Rights}, Place.Text());
    CheckCall(TransactionLog.Put(CLSID_UBackup, BackupCode::KeyRights, DataID));
  }
  const TOpenKey Key{Place.Text(), RetryOpenKeyIfThere(Place, KEY_READ)};
  std::optional<std::wstring> Name;
  for (DWORD Index = 0; Key && (Name = RetryStoredKeyName(Key, Index)); ++Index)
    RecordBelow(TransactionLog, Place.Below(LossyAnsi(*Name)), Rights, OfRoot);
}

}  // namespace

void RecordKeyRights(IUTransactionLog& TransactionLog, const TKeyPlace& Place) {
  RecordBelow(TransactionLog, Place, RightsOf(Above(Place)), RightsOf({Place.Root, ""}));
}

void LoadKeyRights(const GUID& DataID, IUDialog& Dialog) {
  const auto Saved = LoadItem<TKeyRightsItem>(DataID, Dialog, MsgInternalError4);
  const TKeyPlace Place{Saved.RootKey, Saved.KeyName};
  TDescriptor Descriptor;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(Saved.Rights.c_str(), SDDL_REVISION_1, Descriptor.Out(),
                                                            nullptr))
    FailWithBox(Dialog, MsgInternalError4);
  const TRegistryKey Key = RetryOpenKeyIfThere(Place, WRITE_DAC);
  if (!Key) return;
  TRetryCall(Unnumbered)
      .Until([&] { return ByStatus(RegSetKeySecurity(Key.Get(), DACL_SECURITY_INFORMATION, Descriptor.Get())); },
             MsgCannotWriteKey, Place.Text());
}
