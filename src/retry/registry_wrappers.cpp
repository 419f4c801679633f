#include "retry/registry_wrappers.h"

#include "base/text.h"
#include "retry/engine.h"

#include <shlwapi.h>

#include <algorithm>
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
            LSTATUS Status = ERROR_CHILD_MUST_BE_VOLATILE;
            for (const DWORD Options : {DWORD{REG_OPTION_NON_VOLATILE}, DWORD{REG_OPTION_VOLATILE}})
              if (Status == ERROR_CHILD_MUST_BE_VOLATILE)
                Status = RegCreateKeyExA(Place.RootHandle(), Place.Name.c_str(), 0, nullptr, Options, Access, nullptr,
                                         Key.Handle.Out(), nullptr);
            return ByStatus(Status);
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

namespace {

/// `Ask` is RegQueryInfoKeyA or RegQueryInfoKeyW, whose calls have the same form here.
template <class TAsk>
LSTATUS AskKeyInfo(HKEY Key, TKeyInfo& Info, TAsk Ask) {
  return Ask(Key, nullptr, nullptr, nullptr, &Info.SubkeyCount, &Info.LongestSubkeyName, nullptr, &Info.ValueCount,
             &Info.LongestValueName, &Info.LongestValueData, nullptr, &Info.LastWrite);
}

}  // namespace

TKeyInfo RetryGetKeyInfo(const TOpenKey& Key) {
  TKeyInfo Info;
  TRetryCall(Standard, "RetryGetKeyInfo", Key.Name, NumberOf(Key.Get()))
      .Run([&] { return ByStatus(AskKeyInfo(Key.Get(), Info, RegQueryInfoKeyA)); }, MsgCannotGetKeyInfo, Key.Name);
  return Info;
}

void RetryGetDataSizeAndType(const TOpenKey& Key, const std::string& ValueName, DWORD& Type, DWORD& Size) {
  TRetryCall(Standard, "RetryGetDataSizeAndType", Key.Name, NumberOf(Key.Get()), ValueName)
      .Run([&] { return ByStatus(RegQueryValueExA(Key.Get(), ValueName.c_str(), nullptr, &Type, nullptr, &Size)); },
           MsgCannotGetValueInfo, Key.Name);
}

bool RetryGetData(const TOpenKey& Key, const std::string& ValueName, void* Buffer, DWORD& Size, DWORD& Type,
                  bool LastTry) {
  const DWORD Room = Size;
  bool Grown = false;
  TRetryCall(Standard, "RetryGetData", Key.Name, NumberOf(Key.Get()), ValueName, Size)
      .Run(
          [&] {
            Size = Room;  // a failed attempt may have changed it
            const LSTATUS Status =
                RegQueryValueExA(Key.Get(), ValueName.c_str(), nullptr, &Type, static_cast<BYTE*>(Buffer), &Size);
            Grown = Status == ERROR_MORE_DATA && !LastTry;
            return Grown ? TOutcome{true} : ByStatus(Status);
          },
          MsgCannotGetValues, ValueName, Key.Name);
  return !Grown;
}

bool RetryRegSetValueEx(const TOpenKey& Key, const std::string& ValueName, const void* Data, DWORD Size, DWORD Type,
                        bool LastTry) {
  bool Gone = false;
  TRetryCall(Standard, "RetryRegSetValueEx", Key.Name, NumberOf(Key.Get()), ValueName, Size, Type)
      .Run(
          [&] {
            const LSTATUS Status =
                RegSetValueExA(Key.Get(), ValueName.c_str(), 0, Type, static_cast<const BYTE*>(Data), Size);
            Gone = Status == ERROR_KEY_DELETED && !LastTry;
            return Gone ? TOutcome{true} : ByStatus(Status);
          },
          MsgCannotDetectValues, ValueName, Key.Name);
  return !Gone;
}

namespace {

/// How often what somebody else changes is begun again, before it is a failure that the user hears of.
constexpr int MostTries = 16;

}  // namespace

std::string RetryReadValue(const TOpenKey& Key, const std::string& ValueName, DWORD& Type) {
  std::string Data;
  for (int TriesLeft = MostTries; TriesLeft > 0; --TriesLeft) {
    DWORD Size = 0;
    RetryGetDataSizeAndType(Key, ValueName, Type, Size);
    // A buffer even for nothing: without one the system would only tell the size, and call that a success.
    Data.assign(size_t{Size} + 1, '\0');
    if (!RetryGetData(Key, ValueName, Data.data(), Size, Type, TriesLeft == 1)) continue;
    Data.resize(Size);  // it may have shrunk meanwhile
    break;
  }
  return Data;
}

TOpenKey RetryWriteValue(const TValuePlace& Place, const void* Data, DWORD Size, DWORD Type) {
  for (int TriesLeft = MostTries;; --TriesLeft) {
    TOpenKey Key = RetryRegCreateKeyEx(Place.Key, KEY_ALL_ACCESS);
    if (RetryRegSetValueEx(Key, Place.Name, Data, Size, Type, TriesLeft <= 1)) return Key;
  }
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
  TRetryCall Call(Standard, "RetryRegCloseKey", Key.Name, NumberOf(Key.Get()));
  Call.Until([&] { return Released(Key.Handle, ByStatus(RegCloseKey(Key.Get()))); }, MsgCannotCloseKey, Key.Name);
  Call.End();
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

// ---- Without lines

namespace {

/// `Enumerate` is RegEnumValueW or RegEnumKeyExW, whose calls have the same form here.
template <class TEnumerate>
std::optional<std::wstring> StoredNameAt(const TOpenKey& Key, DWORD Index, TMessage Message, TEnumerate Enumerate) {
  constexpr DWORD LongestName = 16383;  // of a value, in characters; those of keys are shorter
  std::wstring Name(LongestName + 1, L'\0');
  bool Missing = false;
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            DWORD Size = LongestName + 1;
            const LSTATUS Status = Enumerate(Key.Get(), Index, Name.data(), &Size, nullptr, nullptr, nullptr, nullptr);
            Missing = Status == ERROR_NO_MORE_ITEMS;
            if (Status == ERROR_SUCCESS) Name.resize(Size);
            return Missing ? TOutcome{true} : ByStatus(Status);
          },
          Message, Key.Name);
  return Missing ? std::nullopt : std::optional(std::move(Name));
}

LSTATUS OpenPlainly(const TKeyPlace& Place, REGSAM Access, DWORD Options, TRegistryKey& Key) {
  return RegOpenKeyExW(Place.RootHandle(), ToWide(Place.Name).c_str(), Options, Access, Key.Out());
}

/// The name of an open key as the registry has it, without the path; empty when the system does not tell it.
std::wstring StoredNameOf(HKEY Key) {
  struct {
    LARGE_INTEGER LastWrite;
    ULONG TitleIndex, NameBytes;
    wchar_t Name[256];
  } Basic{};  // documented as KEY_BASIC_INFORMATION
  using TQueryKey = LONG(NTAPI*)(HANDLE, int, void*, ULONG, ULONG*);
  static const auto QueryKey = reinterpret_cast<TQueryKey>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryKey")));
  constexpr int BasicInformation = 0;
  ULONG Size = 0;
  if (!QueryKey || QueryKey(Key, BasicInformation, &Basic, sizeof Basic, &Size) < 0) return L"";
  return {Basic.Name, Basic.NameBytes / sizeof(wchar_t)};
}

}  // namespace

TRegistryKey RetryOpenKeyIfThere(const TKeyPlace& Place, REGSAM Access, DWORD Options) {
  TRegistryKey Key;
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            const LSTATUS Status = OpenPlainly(Place, Access, Options, Key);
            return Status == ERROR_FILE_NOT_FOUND ? TOutcome{true} : ByStatus(Status);
          },
          MsgCannotOpenKey, Place.Text());
  return Key;
}

std::optional<std::wstring> RetryStoredValueName(const TOpenKey& Key, DWORD Index) {
  return StoredNameAt(Key, Index, MsgCannotGetValueName, RegEnumValueW);
}

std::optional<std::wstring> RetryStoredKeyName(const TOpenKey& Key, DWORD Index) {
  return StoredNameAt(Key, Index, MsgCannotFindKeyName, RegEnumKeyExW);
}

std::optional<std::string> RetryStoredData(const TOpenKey& Key, const std::string& ValueName) {
  const std::wstring Name = ToWide(ValueName);
  std::string Data;
  bool Missing = false;
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            LSTATUS Status = ERROR_MORE_DATA;
            for (DWORD Size = 0; Status == ERROR_MORE_DATA; Data.resize(Size)) {
              Data.resize(size_t{Size} + 1);
              Size = static_cast<DWORD>(Data.size());
              Status = RegQueryValueExW(Key.Get(), Name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(Data.data()),
                                        &Size);
            }
            Missing = Status == ERROR_FILE_NOT_FOUND;
            return Missing ? TOutcome{true} : ByStatus(Status);
          },
          MsgCannotGetValues, ValueName, Key.Name);
  return Missing ? std::nullopt : std::optional(std::move(Data));
}

bool RetryIsKeyLink(const TKeyPlace& Place) {
  const TRegistryKey Key = RetryOpenKeyIfThere(Place, KEY_QUERY_VALUE, REG_OPTION_OPEN_LINK);
  DWORD Type = REG_NONE;
  return Key && RegQueryValueExW(Key.Get(), L"SymbolicLinkValue", nullptr, &Type, nullptr, nullptr) == ERROR_SUCCESS &&
         Type == REG_LINK;
}

std::optional<TKeyInfo> RetryKeyInfoAt(const TKeyPlace& Place) {
  const TRegistryKey Key = RetryOpenKeyIfThere(Place, KEY_QUERY_VALUE);
  if (!Key) return std::nullopt;
  TKeyInfo Info;
  TRetryCall(Unnumbered)
      .Until([&] { return ByStatus(AskKeyInfo(Key.Get(), Info, RegQueryInfoKeyW)); }, MsgCannotGetKeyInfo,
             Place.Text());
  return Info;
}

TKeyPlace StoredSpelling(const TKeyPlace& Place) {
  TKeyPlace Stored{Place.Root, ""};
  const std::wstring Path = ToWide(Place.Name);
  for (size_t At = 0; At < Path.size();) {
    const size_t End = std::min(Path.find(L'\\', At), Path.size());
    const std::wstring Given = Path.substr(At, End - At);
    if (Given.empty()) return Place;
    const TKeyPlace Part = Stored.Below(LossyAnsi(Given));
    TRegistryKey Key;
    const std::wstring Name =
        OpenPlainly(Part, KEY_QUERY_VALUE, REG_OPTION_OPEN_LINK, Key) == ERROR_SUCCESS ? StoredNameOf(Key.Get()) : L"";
    const bool Same = CompareStringOrdinal(Name.c_str(), -1, Given.c_str(), -1, TRUE) == CSTR_EQUAL;
    Stored = Same ? Stored.Below(LossyAnsi(Name)) : Part;  // in another case, which the code page holds as well
    At = End + 1;
  }
  return Stored;
}

std::string StoredSpelling(const TOpenKey& Key, const std::string& ValueName) {
  const std::wstring Wanted = ToWide(ValueName);
  std::optional<std::wstring> Name;
  for (DWORD Index = 0; (Name = RetryStoredValueName(Key, Index)); ++Index)
    if (CompareStringOrdinal(Name->c_str(), -1, Wanted.c_str(), -1, TRUE) == CSTR_EQUAL)
      return ExactAnsi(*Name).value_or(ValueName);
  return ValueName;
}
