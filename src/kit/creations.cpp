#include "kit/creations.h"

#include "base/failure.h"
#include "base/text.h"
#include "kit/asked_step.h"
#include "kit/change_items.h"
#include "kit/names.h"
#include "kit/registry_value.h"

#include <algorithm>

namespace {

std::wstring Joined(const std::wstring& Key, std::wstring_view Part) {
  return Key.empty() ? std::wstring(Part) : (Key + L"\\").append(Part);
}

/// The keys on the way to a key, and itself, that do not exist, from the first.
TKitChanges MissingKeys(const TKeyPlace& Place) {
  const std::wstring Name = ToWide(Place.Name);
  TKitChanges Missing;
  std::wstring Key;
  for (size_t At = 0; At < Name.size();) {
    const size_t End = std::min(Name.find(L'\\', At), Name.size());
    if (End > At) {
      Key = Joined(Key, std::wstring_view(Name).substr(At, End - At));
      bool Empty = false;
      if (!Missing.empty() || LookAtKey(Place.RootHandle(), Key, Empty) == ERROR_FILE_NOT_FOUND)
        Missing.push_back(TKeyMade{Place.Root, Utf8Of(Key)});
    }
    At = End + 1;
  }
  return Missing;
}

TRegistryKey OpenOrCreate(const TKeyPlace& Place, REGSAM Access) {
  const std::wstring Name = ToWide(Place.Name);
  TRegistryKey Key;
  AnswerAsking(
      [&] {
        return RegCreateKeyExW(Place.RootHandle(), Name.c_str(), 0, nullptr, 0, Access, nullptr, Key.Out(), nullptr);
      },
      MsgCannotCreateKey, Place.Text());
  return Key;
}

TKitChanges FolderChanges(const std::vector<std::wstring>& Folders) {
  TKitChanges Changes;
  for (const std::wstring& Folder : Folders) Changes.push_back(TFolderMade{Utf8Of(Folder)});
  return Changes;
}

}  // namespace

void CreateKeyRecorded(TServices& Services, const TKeyPlace& Place) {
  const TKitChanges Missing = MissingKeys(Place);
  if (Missing.empty()) return;
  RecordChanges(Services, Missing);
  OpenOrCreate(Place, KEY_READ);
}

void CreateValueRecorded(TServices& Services, const TValuePlace& Place, DWORD Type, const std::vector<uint8_t>& Data) {
  const std::wstring Key = ToWide(Place.Key.Name), Name = ToWide(Place.Name);
  const HKEY Root = Place.Key.RootHandle();
  TRegistryData Stored;
  const bool Exists = AnswerAsking([&] { return ReadValue(Root, Key, Name, Stored); }, MsgCannotGetValues, Place.Name,
                                   Place.Key.Text()) == ERROR_SUCCESS;
  if (Exists && Stored == TRegistryData{Type, Data}) return;
  if (Exists) {
    GUID Saved{};
    CheckCall(
        Services.Backup().BackupRegKeyValueLogged(Place.Key.Root, MakeBstr(Key).Get(), MakeBstr(Name).Get(), &Saved));
  } else {
    TKitChanges Changes = MissingKeys(Place.Key);
    Changes.push_back(TValueMade{Place.Key.Root, Utf8Of(Key), Utf8Of(Name), Type, Data});
    RecordChanges(Services, Changes);
  }
  const TRegistryKey Open = OpenOrCreate(Place.Key, KEY_SET_VALUE);
  AnswerAsking(
      [&] { return RegSetValueExW(Open.Get(), Name.c_str(), 0, Type, Data.data(), static_cast<DWORD>(Data.size())); },
      MsgCannotWriteKey, Place.Key.Text());
}

void CreateFolderRecorded(TServices& Services, const std::wstring& Folder) {
  const std::vector<std::wstring> Missing = MissingFolders(Folder);
  RecordChanges(Services, FolderChanges(Missing));
  // Also when none is: a file of this name is told.
  MakeFolders(Missing.empty() ? std::vector{Folder} : Missing);
}

void CopyFileRecorded(TServices& Services, BSTR Source, BSTR Dest, long Mode) {
  FullNameArgument(Source);
  RecordChanges(Services, FolderChanges(MissingFolders(FolderOf(FullNameArgument(Dest)))));
  CheckCall(Services.File().CopyFileLogged(Source, Dest, Mode));
}
