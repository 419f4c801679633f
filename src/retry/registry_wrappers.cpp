#include "retry/registry_wrappers.h"

#include <shlwapi.h>

namespace {

/// A predefined root is a handle already; its value is sign-extended on 64-bit systems.
HKEY RootHandle(DWORD RootKey) { return reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(RootKey))); }

unsigned long NumberOf(HKEY Handle) { return static_cast<unsigned long>(reinterpret_cast<ULONG_PTR>(Handle)); }

struct TRootName {
  DWORD RootKey;
  const char* Name;
};
constexpr TRootName RootNames[] = {
    {0x80000000, "HKEY_CLASSES_ROOT"}, {0x80000001, "HKEY_CURRENT_USER"},   {0x80000002, "HKEY_LOCAL_MACHINE"},
    {0x80000003, "HKEY_USERS"},        {0x80000005, "HKEY_CURRENT_CONFIG"},
};

/// Room for a name of `Longest` characters in any code page, and its terminator.
std::vector<char> NameBuffer(DWORD Longest) { return std::vector<char>(2 * static_cast<size_t>(Longest) + 1); }

}  // namespace

std::string KeyText(DWORD RootKey, const std::string& KeyName) {
  for (const TRootName& Root : RootNames)
    if (Root.RootKey == RootKey) return std::string(Root.Name) + "\\" + KeyName;
  return "\\" + KeyName;
}

bool RetryRegKeyExists(DWORD RootKey, const std::string& KeyName) {
  TRetryCall Call(Standard, LogText("RetryRegKeyExists", RootKey, KeyName));
  TRegistryKey Key;
  const bool Exists =
      RegOpenKeyExA(RootHandle(RootKey), KeyName.c_str(), 0, KEY_ALL_ACCESS, Key.Out()) == ERROR_SUCCESS;
  Call.End(LogText("RetryRegKeyExists", Exists));
  return Exists;
}

bool RetryRegKeyValueExists(DWORD RootKey, const std::string& KeyName, const std::string& ValueName) {
  TRetryCall Call(Standard, LogText("RetryRegKeyValueExists", RootKey, KeyName, ValueName));
  bool Exists = RetryRegKeyExists(RootKey, KeyName);
  if (Exists) {
    TRegistryKey Key;
    Exists = RegOpenKeyExA(RootHandle(RootKey), KeyName.c_str(), 0, KEY_ALL_ACCESS, Key.Out()) == ERROR_SUCCESS &&
             RegQueryValueExA(Key.Get(), ValueName.c_str(), nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
  }
  // No blank before the digit: the log's form of this line, unlike that of the test above.
  Call.End(Exists ? L"RetryRegKeyValueExists1" : L"RetryRegKeyValueExists0");
  return Exists;
}

TRegistryKey RetryRegCreateKeyEx(DWORD RootKey, const std::string& KeyName, DWORD Access) {
  TRegistryKey Key;
  TRetryCall Call(Standard, LogText("RetryRegCreateKeyEx", RootKey, KeyName, Access));
  Call.Until(
      [&] {
        return ByStatus(RegCreateKeyExA(RootHandle(RootKey), KeyName.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                        Access, nullptr, Key.Out(), nullptr));
      },
      MsgCannotCreateKey, KeyText(RootKey, KeyName));
  Call.End(L"RetryRegCreateKeyEx");
  return Key;
}

TRegistryKey RetryRegOpenKeyEx(DWORD RootKey, const std::string& KeyName, DWORD Access) {
  TRegistryKey Key;
  TRetryCall Call(Standard, LogText("RetryRegOpenKeyEx", RootKey, KeyName, Access));
  Call.Until([&] { return ByStatus(RegOpenKeyExA(RootHandle(RootKey), KeyName.c_str(), 0, Access, Key.Out())); },
             MsgCannotOpenKey, KeyText(RootKey, KeyName));
  Call.End(L"RetryRegOpenKeyEx");
  return Key;
}

TKeyInfo RetryGetKeyInfo(const std::string& Key, HKEY Handle) {
  TKeyInfo Info;
  TRetryCall Call(Standard, LogText("RetryGetKeyInfo", Key, NumberOf(Handle)));
  Call.Until(
      [&] {
        return ByStatus(RegQueryInfoKeyA(Handle, nullptr, nullptr, nullptr, &Info.SubkeyCount, &Info.LongestSubkeyName,
                                         nullptr, &Info.ValueCount, &Info.LongestValueName, &Info.LongestValueData,
                                         nullptr, &Info.LastWrite));
      },
      MsgCannotGetKeyInfo, Key);
  Call.End(L"RetryGetKeyInfo");
  return Info;
}

void RetryGetDataSizeAndType(const std::string& Key, HKEY Handle, const std::string& ValueName, DWORD& Type,
                             DWORD& Size) {
  TRetryCall Call(Standard, LogText("RetryGetDataSizeAndType", Key, NumberOf(Handle), ValueName));
  Call.Until([&] { return ByStatus(RegQueryValueExA(Handle, ValueName.c_str(), nullptr, &Type, nullptr, &Size)); },
             MsgCannotGetValueInfo, Key);
  Call.End(L"RetryGetDataSizeAndType");
}

void RetryGetData(const std::string& Key, HKEY Handle, const std::string& ValueName, void* Buffer, DWORD& Size,
                  DWORD& Type) {
  const DWORD Room = Size;
  TRetryCall Call(Standard, LogText("RetryGetData", Key, NumberOf(Handle), ValueName, Size));
  Call.Until(
      [&] {
        Size = Room;  // a failed attempt may have changed it
        return ByStatus(RegQueryValueExA(Handle, ValueName.c_str(), nullptr, &Type, static_cast<BYTE*>(Buffer), &Size));
      },
      MsgCannotGetValues, ValueName, Key);
  Call.End(L"RetryGetData");
}

void RetryRegSetValueEx(const std::string& Key, HKEY Handle, const std::string& ValueName, const void* Data, DWORD Size,
                        DWORD Type) {
  TRetryCall Call(Standard, LogText("RetryRegSetValueEx", Key, NumberOf(Handle), ValueName, Size, Type));
  Call.Until(
      [&] {
        return ByStatus(RegSetValueExA(Handle, ValueName.c_str(), 0, Type, static_cast<const BYTE*>(Data), Size));
      },
      MsgCannotDetectValues, ValueName, Key);
  Call.End(L"RetryRegSetValueEx");
}

std::string RetryRegEnumValue(const std::string& Key, HKEY Handle, DWORD Index, DWORD Longest) {
  std::vector<char> Name = NameBuffer(Longest);
  TRetryCall Call(Standard, LogText("RetryRegEnumValue", Key, NumberOf(Handle), Index));
  Call.Until(
      [&] {
        DWORD Size = static_cast<DWORD>(Name.size());
        return ByStatus(RegEnumValueA(Handle, Index, Name.data(), &Size, nullptr, nullptr, nullptr, nullptr));
      },
      MsgCannotGetValueName, Key);
  Call.End(L"RetryRegEnumValue");
  return Name.data();
}

std::string RetryRegEnumKeyEx(const std::string& Key, HKEY Handle, DWORD Index, DWORD Longest) {
  std::vector<char> Name = NameBuffer(Longest);
  TRetryCall Call(Standard, LogText("RetryRegEnumKeyEx", Key, NumberOf(Handle), Index));
  Call.Until(
      [&] {
        DWORD Size = static_cast<DWORD>(Name.size());
        return ByStatus(RegEnumKeyExA(Handle, Index, Name.data(), &Size, nullptr, nullptr, nullptr, nullptr));
      },
      MsgCannotFindKeyName, Key);
  Call.End(L"RetryRegEnumKeyEx");
  return Name.data();
}

void RetryRegCloseKey(const std::string& Key, TRegistryKey& Handle) {
  const HKEY Open = Handle.Detach();
  TRetryCall Call(Standard, LogText("RetryRegCloseKey", Key, NumberOf(Open)));
  Call.Until([&] { return ByStatus(RegCloseKey(Open)); }, MsgCannotCloseKey, Key);
  Call.End(L"RetryRegCloseKey");
}

void RetryRegDeleteValue(DWORD RootKey, const std::string& KeyName, const std::string& ValueName) {
  TRetryCall Call(Standard, LogText("RetryRegDeleteValue", RootKey, KeyName, ValueName));
  if (RetryRegKeyExists(RootKey, KeyName) && RetryRegKeyValueExists(RootKey, KeyName, ValueName)) {
    Call.Until(
        [&] {
          TRegistryKey Key;
          LSTATUS Status = RegOpenKeyExA(RootHandle(RootKey), KeyName.c_str(), 0, KEY_ALL_ACCESS, Key.Out());
          if (Status == ERROR_SUCCESS) Status = RegDeleteValueA(Key.Get(), ValueName.c_str());
          return ByStatus(Status);
        },
        MsgCannotDeleteValue, ValueName, KeyText(RootKey, KeyName));
  }
  Call.End(L"RetryRegDeleteValue");
}

void RetrySHDeleteKey(DWORD RootKey, const std::string& KeyName) {
  TRetryCall Call(Standard, LogText("RetrySHDeleteKey", RootKey, KeyName));
  if (RetryRegKeyExists(RootKey, KeyName)) {
    // The message names the key without its root: the text that support staff know for this failure.
    Call.Until([&] { return ByStatus(static_cast<LSTATUS>(SHDeleteKeyA(RootHandle(RootKey), KeyName.c_str()))); },
               MsgCannotDeleteKey, KeyName);
  }
  Call.End(L"RetrySHDeleteKey");
}
