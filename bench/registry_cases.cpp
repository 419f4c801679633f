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

/// Saves the values of a key and of its subkeys, an item for each value and each key, as the rules have it.
struct TBareSaver {
  const TBench& Bench;
  int Items = 0;

  std::string NameOf(int Item) const { return Bench.Service("Backup\\" + std::to_string(Item)); }
  void SaveItem(const std::string& Bytes) { BareItem(NameOf(Items++), Bytes); }
  void Save(const std::string& Name) {
    TRegistryKey Key;
    Check(RegOpenKeyExA(HKEY_CURRENT_USER, Name.c_str(), 0, KEY_ALL_ACCESS, Key.Out()), "RegOpenKeyEx");
    char Part[256];
    DWORD Length = sizeof Part, Type = 0, Value = 0, Size = sizeof Value;
    const auto NextValue = [&](DWORD At) {
      Length = sizeof Part, Size = sizeof Value;
      return RegEnumValueA(Key.Get(), At, Part, &Length, nullptr, &Type, reinterpret_cast<BYTE*>(&Value), &Size) ==
             ERROR_SUCCESS;
    };
    for (DWORD At = 0; NextValue(At); ++At) SaveItem(std::string(Part, Length) + std::to_string(Value));
    for (DWORD At = 0; RegEnumKeyA(Key.Get(), At, Part, sizeof Part) == ERROR_SUCCESS; ++At) Save(Name + "\\" + Part);
    SaveItem(Name);
  }
};

void DeleteBarely(TBareSaver& Saver) {
  Saver.Save(TopKey);
  BareEntry(Saver.Bench.Service("update.prt"));
  Check(static_cast<LSTATUS>(SHDeleteKeyA(HKEY_CURRENT_USER, TopKey)), "SHDeleteKey");
}

void RollbackAll(IUTransactionLog& Log) {
  GUID CheckPoint{};
  Require(Log.Rollback(VARIANT_FALSE, &CheckPoint), "Rollback");
}

std::vector<int> GrowthSizes(const TBench& Bench) {
  return Bench.Quick ? std::vector<int>{5, 10} : std::vector<int>{10, 100, 1000};
}

}  // namespace

namespace {

/// So many values set one after the other, each in place of itself.
TResult SetValues(const TBench& Bench, int Calls, int Rounds) {
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
  // Looks for the value, saves it in a file of its own, records that, and writes the new one.
  const auto Bare = [&] {
    TBareSaver Saver{Bench};
    for (int At = 0; At < Calls; ++At) {
      DWORD Value = 0, Size = sizeof Value;
      for (int Look = 0; Look < 3; ++Look) {  // is the key there, is the value, and what is in it
        TRegistryKey Key;
        Check(RegOpenKeyExA(HKEY_CURRENT_USER, TopKey, 0, KEY_ALL_ACCESS, Key.Out()), "RegOpenKeyEx");
        RegQueryValueExA(Key.Get(), "Value", nullptr, nullptr, reinterpret_cast<BYTE*>(&Value), &Size);
      }
      Saver.SaveItem(std::to_string(Value));
      BareEntry(Bench.Service("update.prt"));
      SetValue(CreateKey(TopKey), "Value", At);
    }
  };
  return Bench.Compare({Prepare, Logged}, {Prepare, Bare}, 1, Bench.Quick ? 1 : Rounds, Calls);
}

}  // namespace

TResult SetValueLogged(const TBench& Bench) { return SetValues(Bench, 20, 15); }

TResult SmallValues(const TBench& Bench) { return SetValues(Bench, Bench.Quick ? 20 : 500, 3); }

TResult KeyTreeDelete(const TBench& Bench) {
  const TKeyTree Tree(Bench.Quick ? 20 : 1000);
  const TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  const auto Prepare = [&] { Bench.ForgetChanges(), Tree.Make(); };
  const auto Bare = [&] {
    TBareSaver Saver{Bench};
    DeleteBarely(Saver);
  };
  const auto Logged = [&] { Require(Registry->DeleteRegKeyLogged(User, Text(TopKey)), "DeleteRegKeyLogged"); };
  return Bench.Compare({Prepare, Logged}, {Prepare, Bare}, 0, Bench.Quick ? 1 : 3, Tree.Keys);
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
  TBareSaver Saver{Bench};
  const auto BareDelete = [&] {
    Bench.ForgetChanges();
    Tree.Make();
    Saver.Items = 0;
    DeleteBarely(Saver);
  };
  // Every item is looked at before anything is restored, and read again then.
  const auto Bare = [&] {
    for (int At = 0; At < 2 * Saver.Items; ++At) BareReadFile(Saver.NameOf(At % Saver.Items));
    Tree.Make();
    BareReadFile(Bench.Service("update.prt"));
    DeleteFileA(Bench.Service("update.prt").c_str());
  };
  return Bench.Compare({Delete, [&] { RollbackAll(*Log); }}, {BareDelete, Bare}, 0, Bench.Quick ? 1 : 3, Tree.Keys);
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
