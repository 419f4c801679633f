#include "retry/registry_wrappers.h"

#include "base/text.h"
#include "retry/engine.h"

#include <shlwapi.h>

#include <vector>

namespace {

LSTATUS Open(const TKeyPlace& Place, DWORD Access, TRegistryKey& Key) {
  return RegOpenKeyExA(Place.RootHandle(), Place.Name.c_str(), 0, Access, Key.Out());
}

/// A handle as lines show it.
unsigned long NumberOf(HKEY Handle) { return static_cast<unsigned long>(reinterpret_cast<ULONG_PTR>(Handle)); }

/// `Enumerate` is RegEnumValueA or RegEnumKeyExA, whose calls have the same form here.
template <class TEnumerate>
std::string NameAt(TRetryCall& Call, const TOpenKey& Key, DWORD Index, DWORD Longest, TMessage Message,
                   TEnumerate Enumerate) {
  // Room for the name in any code page, of which some take four bytes for a character, and its terminator.
  constexpr size_t BytesPerCharacter = 4;
  std::vector<char> Name(BytesPerCharacter * Longest + 1);
  Call.Until(
      [&] {
        DWORD Size = static_cast<DWORD>(Name.size());
        return ByStatus(Enumerate(Key.Get(), Index, Name.data(), &Size, nullptr, nullptr, nullptr, nullptr));
      },
      Message, Key.Name);
  Call.End();
  return Name.data();
}

}  // namespace

bool RetryRegKeyExists(const TKeyPlace& Place) {
  TRetryCall Call(Standard, "RetryRegKeyExists", Place.Root, Place.Name);
  TRegistryKey Key;
  const bool Exists = Open(Place, KEY_ALL_ACCESS, Key) == ERROR_SUCCESS;
  Call.End(Exists);
  return Exists;
}

bool RetryRegKeyValueExists(const TValuePlace& Place) {
  constexpr char Name[] = "RetryRegKeyValueExists";
  TRetryCall Call(Standard, Name, Place.Key.Root, Place.Key.Name, Place.Name);
  bool Exists = RetryRegKeyExists(Place.Key);
  if (Exists) {
    TRegistryKey Key;
    Exists = Open(Place.Key, KEY_ALL_ACCESS, Key) == ERROR_SUCCESS &&
             RegQueryValueExA(Key.Get(), Place.Name.c_str(), nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
  }
  // No blank before the digit: the log's form of this line, unlike that of the test above.
  Call.Line(LoadWideMessage(MsgEnd), ToWide(std::string(Name) + (Exists ? "1" : "0")));
  return Exists;
}

TOpenKey RetryRegCreateKeyEx(const TKeyPlace& Place, DWORD Access) {
  TOpenKey Key{Place.Text()};
  TRetryCall(Standard, "RetryRegCreateKeyEx", Place.Root, Place.Name, Access)
      .Run(
          [&] {
            return ByStatus(RegCreateKeyExA(Place.RootHandle(), Place.Name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                            Access, nullptr, Key.Handle.Out(), nullptr));
          },
          MsgCannotCreateKey, Key.Name);
  return Key;
}

TOpenKey RetryRegOpenKeyEx(const TKeyPlace& Place, DWORD Access) {
  TOpenKey Key{Place.Text()};
  TRetryCall(Standard, "RetryRegOpenKeyEx", Place.Root, Place.Name, Access)
      .Run([&] { return ByStatus(Open(Place, Access, Key.Handle)); }, MsgCannotOpenKey, Key.Name);
  return Key;
}

TKeyInfo RetryGetKeyInfo(const TOpenKey& Key) {
  TKeyInfo Info;
  TRetryCall(Standard, "RetryGetKeyInfo", Key.Name, NumberOf(Key.Get()))
      .Run(
          [&] {
            return ByStatus(RegQueryInfoKeyA(Key.Get(), nullptr, nullptr, nullptr, &Info.SubkeyCount,
                                             &Info.LongestSubkeyName, nullptr, &Info.ValueCount, &Info.LongestValueName,
                                             &Info.LongestValueData, nullptr, &Info.LastWrite));
          },
          MsgCannotGetKeyInfo, Key.Name);
  return Info;
}

void RetryGetDataSizeAndType(const TOpenKey& Key, const std::string& ValueName, DWORD& Type, DWORD& Size) {
  TRetryCall(Standard, "RetryGetDataSizeAndType", Key.Name, NumberOf(Key.Get()), ValueName)
      .Run([&] { return ByStatus(RegQueryValueExA(Key.Get(), ValueName.c_str(), nullptr, &Type, nullptr, &Size)); },
           MsgCannotGetValueInfo, Key.Name);
}

void RetryGetData(const TOpenKey& Key, const std::string& ValueName, void* Buffer, DWORD& Size, DWORD& Type) {
  const DWORD Room = Size;
  TRetryCall(Standard, "RetryGetData", Key.Name, NumberOf(Key.Get()), ValueName, Size)
      .Run(
          [&] {
            Size = Room;  // a failed attempt may have changed it
            return ByStatus(
                RegQueryValueExA(Key.Get(), ValueName.c_str(), nullptr, &Type, static_cast<BYTE*>(Buffer), &Size));
          },
          MsgCannotGetValues, ValueName, Key.Name);
}

void RetryRegSetValueEx(const TOpenKey& Key, const std::string& ValueName, const void* Data, DWORD Size, DWORD Type) {
  TRetryCall(Standard, "RetryRegSetValueEx", Key.Name, NumberOf(Key.Get()), ValueName, Size, Type)
      .Run(
          [&] {
            return ByStatus(
                RegSetValueExA(Key.Get(), ValueName.c_str(), 0, Type, static_cast<const BYTE*>(Data), Size));
          },
          MsgCannotDetectValues, ValueName, Key.Name);
}

std::string RetryRegEnumValue(const TOpenKey& Key, DWORD Index, DWORD Longest) {
  TRetryCall Call(Standard, "RetryRegEnumValue", Key.Name, NumberOf(Key.Get()), Index);
  return NameAt(Call, Key, Index, Longest, MsgCannotGetValueName, RegEnumValueA);
}

std::string RetryRegEnumKeyEx(const TOpenKey& Key, DWORD Index, DWORD Longest) {
  TRetryCall Call(Standard, "RetryRegEnumKeyEx", Key.Name, NumberOf(Key.Get()), Index);
  return NameAt(Call, Key, Index, Longest, MsgCannotFindKeyName, RegEnumKeyExA);
}

void RetryRegCloseKey(TOpenKey& Key) {
  const HKEY Open = Key.Handle.Detach();
  TRetryCall(Standard, "RetryRegCloseKey", Key.Name, NumberOf(Open))
      .Run([&] { return ByStatus(RegCloseKey(Open)); }, MsgCannotCloseKey, Key.Name);
}

void RetryRegDeleteValue(const TValuePlace& Place) {
  TRetryCall Call(Standard, "RetryRegDeleteValue", Place.Key.Root, Place.Key.Name, Place.Name);
  if (RetryRegKeyExists(Place.Key) && RetryRegKeyValueExists(Place)) {
    Call.Until(
        [&] {
          TRegistryKey Key;
          LSTATUS Status = Open(Place.Key, KEY_ALL_ACCESS, Key);
          if (Status == ERROR_SUCCESS) Status = RegDeleteValueA(Key.Get(), Place.Name.c_str());
          return ByStatus(Status);
        },
        MsgCannotDeleteValue, Place.Name, Place.Key.Text());
  }
  Call.End();
}

void RetrySHDeleteKey(const TKeyPlace& Place) {
  TRetryCall Call(Standard, "RetrySHDeleteKey", Place.Root, Place.Name);
  if (RetryRegKeyExists(Place)) {
    // The message names the key without its root: the text that support staff know for this failure.
    Call.Until([&] { return ByStatus(static_cast<LSTATUS>(SHDeleteKeyA(Place.RootHandle(), Place.Name.c_str()))); },
               MsgCannotDeleteKey, Place.Name);
  }
  Call.End();
}
