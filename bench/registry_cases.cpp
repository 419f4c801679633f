// Registry changes: what a logged one takes beside the bare calls that do the same job, saving included; and how the
// saved state of the history and the macros grows.

#include "bench.h"

#include <shlwapi.h>

namespace {

constexpr unsigned long User = 0x80000001;
constexpr char TopKey[] = "Software\\MendworkBench";

std::string Below(const std::string& Name) { return TopKey + ("\\" + Name); }

void Check(LSTATUS Status, const char* What) {
  SetLastError(static_cast<DWORD>(Status));
  Require(Status == ERROR_SUCCESS, What);
}

TRegistryKey CreateKey(const std::string& Name) {
  TRegistryKey Key;
  Check(RegCreateKeyExA(HKEY_CURRENT_USER, Name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, Key.Out(), nullptr),
        "RegCreateKeyEx");
  return Key;
}

void SetValue(const TRegistryKey& Key, const std::string& Name, DWORD Value) {
  Check(RegSetValueExA(Key.Get(), Name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&Value), sizeof Value),
        "RegSetValueEx");
}

/// Writes bytes to a new file as a backup item is written, up to its flush.
void BareItem(const std::string& Name, const std::string& Bytes) {
  const TFileHandle File(
      CreateFileA(Name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD Written = 0;
  Require(WriteFile(File.Get(), Bytes.data(), static_cast<DWORD>(Bytes.size()), &Written, nullptr) != FALSE,
          "WriteFile");
}

/// A tree of keys with three values each, ten keys in each key of the first level.
struct TKeyTree {
  static constexpr int KeysInKey = 10, ValuesInKey = 3;

  explicit TKeyTree(int Keys) : Keys(Keys) {}
  ~TKeyTree() { SHDeleteKeyA(HKEY_CURRENT_USER, TopKey); }

  void Make() const {
    for (int At = 0; At < Keys; ++At) {
      const TRegistryKey Key = CreateKey(Name(At));
      for (int Value = 0; Value < ValuesInKey; ++Value) SetValue(Key, "Value" + std::to_string(Value), 1);
    }
  }
  static std::string Name(int At) {
    const std::string Outer = Below("Key" + std::to_string(At / KeysInKey));
    return At % KeysInKey ? Outer + "\\Key" + std::to_string(At) : Outer;
  }
  const int Keys;
};

/// Reads the values of a key and of its subkeys into memory, as a saver must.
void BareRead(const std::string& Name, std::string& Bytes) {
  TRegistryKey Key;
  Check(RegOpenKeyExA(HKEY_CURRENT_USER, Name.c_str(), 0, KEY_ALL_ACCESS, Key.Out()), "RegOpenKeyEx");
  char Part[256];
  DWORD Length = sizeof Part, Type = 0, Value = 0, Size = sizeof Value;
  const auto NextValue = [&](DWORD At) {
    Length = sizeof Part, Size = sizeof Value;
    return RegEnumValueA(Key.Get(), At, Part, &Length, nullptr, &Type, reinterpret_cast<BYTE*>(&Value), &Size) ==
           ERROR_SUCCESS;
  };
  for (DWORD At = 0; NextValue(At); ++At) Bytes.append(Part, Length).append(reinterpret_cast<char*>(&Value), Size);
  for (DWORD At = 0; RegEnumKeyA(Key.Get(), At, Part, sizeof Part) == ERROR_SUCCESS; ++At)
    BareRead(Name + "\\" + Part, Bytes);
}

void RollbackAll(IUTransactionLog& Log) {
  GUID CheckPoint{};
  Require(Log.Rollback(VARIANT_FALSE, &CheckPoint), "Rollback");
}

/// The first variant against the second, with the cost of one of `Items`.
TResult Compare(const std::vector<TVariant>& Variants, int WarmUps, int Rounds, int Items, const char* Module,
                const char* Bare) {
  const std::vector<TSamples> Times = Interleave(WarmUps, Rounds, Variants);
  return {Times[0].Over(Times[1]).Median(),
          Times[0].Count(),
          {{Module, Times[0].Median() / Items, "us"}, {Bare, Times[1].Median() / Items, "us"}}};
}

std::vector<int> GrowthSizes(const TBench& Bench) {
  return Bench.Quick ? std::vector<int>{5, 10} : std::vector<int>{10, 100, 1000};
}

}  // namespace

TResult SetValueLogged(const TBench& Bench) {
  constexpr int Calls = 20;
  const TKeyTree Tree(0);
  const TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  const auto Prepare = [&] {
    Bench.ForgetChanges();
    SetValue(CreateKey(TopKey), "Value", 0);
  };
  const auto Logged = [&] {
    for (int At = 0; At < Calls; ++At)
      Require(Registry->SetDwordValueLogged(User, Text(TopKey), Text("Value"), At), "SetDwordValueLogged");
  };
  // Reads the old value, saves it in a file of its own, and writes the new one.
  const auto Bare = [&] {
    for (int At = 0; At < Calls; ++At) {
      std::string Bytes;
      BareRead(TopKey, Bytes);
      BareItem(Bench.Service("Backup\\" + std::to_string(At)), Bytes);
      SetValue(CreateKey(TopKey), "Value", At);
    }
  };
  const TResult Result = Compare({{Prepare, Logged}, {Prepare, Bare}}, 1, Bench.Quick ? 1 : 15, Calls,
                                 "SetDwordValueLogged", "bare calls");
  Bench.ForgetChanges();
  return Result;
}

TResult KeyTreeDelete(const TBench& Bench) {
  const TKeyTree Tree(Bench.Quick ? 20 : 1000);
  const TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  const auto Prepare = [&] { Bench.ForgetChanges(), Tree.Make(); };
  const auto Bare = [&] {
    std::string Bytes;
    BareRead(TopKey, Bytes);
    BareItem(Bench.Service("Backup\\saved"), Bytes);
    Check(static_cast<LSTATUS>(SHDeleteKeyA(HKEY_CURRENT_USER, TopKey)), "SHDeleteKey");
  };
  const TResult Result =
      Compare({{Prepare, [&] { Require(Registry->DeleteRegKeyLogged(User, Text(TopKey)), "DeleteRegKeyLogged"); }},
               {Prepare, Bare}},
              0, Bench.Quick ? 1 : 3, Tree.Keys, "a key, logged delete", "a key, bare calls");
  Bench.ForgetChanges();
  return Result;
}

TResult KeyTreeRollback(const TBench& Bench) {
  const TKeyTree Tree(Bench.Quick ? 20 : 1000);
  const TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  const TComRef<IUTransactionLog> Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  const auto Delete = [&] {
    Bench.ForgetChanges();
    Tree.Make();
    Require(Registry->DeleteRegKeyLogged(User, Text(TopKey)), "DeleteRegKeyLogged");
  };
  const TResult Result = Compare({{Delete, [&] { RollbackAll(*Log); }}, {Delete, [&] { Tree.Make(); }}}, 0,
                                 Bench.Quick ? 1 : 3, Tree.Keys, "a key, rolled back", "a key, bare calls");
  Bench.ForgetChanges();
  return Result;
}

TResult HistoryPut(const TBench& Bench) {
  constexpr int Puts = 5;
  const GUID Group = NumberedGuid(1);
  const std::vector<int> Sizes = GrowthSizes(Bench);
  const TComRef<IUHistory> History = Make<IUHistory>(CLSID_UHistory);
  const auto Put = [&](int Count) {
    for (int At = 0; At < Count; ++At) Require(History->Put(Group, 1, NumberedGuid(2)), "Put");
  };
  std::vector<TVariant> Variants;
  for (const int Size : Sizes) {
    const auto Prepare = [&, Size] {
      Write(Bench.Service("History\\" + GuidText(Group)), std::string(static_cast<size_t>(Size) * 36, 'r'));
    };
    Variants.push_back({Prepare, [&] { Put(Puts); }});
  }
  const std::vector<TSamples> Times = Interleave(1, Bench.Quick ? 1 : 25, Variants);
  Require(History->ClearAll(Group), "ClearAll");
  return Growth(Times, Sizes, std::vector<int>(Sizes.size(), Puts));
}

TResult MacroSet(const TBench& Bench) {
  constexpr int Sets = 5;
  const std::vector<int> Sizes = GrowthSizes(Bench);
  const TComRef<IUMacro> Macros = Make<IUMacro>(CLSID_UMacro);
  std::vector<TSamples> Times;
  int Known = 0;
  for (const int Size : Sizes) {
    const auto Set = [&](int Number) {
      Require(Macros->SetMacro(Text("Macro" + std::to_string(Number)), Text("value"), VARIANT_TRUE), "SetMacro");
    };
    while (Known < Size) Set(Known++);
    const auto Run = [&] {
      for (int At = 0; At < Sets; ++At) Set(At);
    };
    Times.push_back(Interleave(1, Bench.Quick ? 1 : 25, {{[] {}, Run}}).front());
  }
  Bench.ForgetChanges();
  RemoveTree(Bench.Service("History"));
  MakeFolders(Bench.Service("History"));
  return Growth(Times, Sizes, std::vector<int>(Sizes.size(), Sets));
}
