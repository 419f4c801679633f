// Writes the small corpus that the fuzzers start from into DIR/TARGET/...: what the system itself writes, and a few
// damaged forms of it.
//
// usage: make_seeds DIR

#include "formats/backup_items.h"
#include "fuzz/targets.h"
#include "support/memory_file.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

std::filesystem::path Dir;
int Number = 0;

void Seed(const char* Target, int First, const std::string& Rest) {
  std::filesystem::create_directories(Dir / Target);
  std::ofstream File(Dir / Target / std::to_string(++Number), std::ios::binary);
  File << static_cast<char>(First) << Rest;
}

void SeedLogs() {
  const auto Both = [](const std::string& Bytes) {
    Seed("uninstall_log", 0, Bytes);
    Seed("uninstall_log", AcceptHeader | AcceptBlocks, Bytes);
  };
  TUninstallLog Log;
  Log.ApplicationId = "Application";
  Log.ApplicationName = "Orvane Notes";
  std::string Bytes;
  SaveTo(Bytes, Log);
  Both(Bytes);
  Log.AddStringRecord(0x82, {"C:\\App\\a.dll"}, 0x10);
  Log.AddStringRecord(0x81, {}, -1);
  Log.AddRecord(0x10, {}, 7);
  SaveTo(Bytes, Log);
  Both(Bytes);
  Both(Bytes.substr(0, Bytes.size() - 1));
  SaveTo(Bytes, Log, true);
  Both(Bytes + "beyond the end");
  Log.Is64Bit = true;
  Log.AddStringRecord(0x82, {std::string(5000, 'x')}, 0);
  SaveTo(Bytes, Log);
  Both(Bytes);
}

void SeedStrings() {
  for (const std::vector<std::string>& Strings :
       {std::vector<std::string>{}, {""}, {"a", "bc", ""}, {std::string(252, 'x'), std::string(253, 'y')}}) {
    TUninstallLog Log;
    Log.AddStringRecord(1, Strings, 0);
    Seed("record_strings", 10, std::string(Log.First()->Data().begin(), Log.First()->Data().end()));
  }
  Seed("record_strings", 1, std::string("\xFE\2\0\0\0ab\xFD\1\0c", 10));
}

void SeedItems() {
  const TGuidBytes Guid{1, 2, 3};
  const std::string Items[] = {EncodeItem(TSingleFileItem{"C:\\a", 0x20, 1, 2, 3}),
                               EncodeItem(TFileSetItem{{Guid, Guid}, {Guid}, {}}),
                               EncodeItem(TRegistryValueItem{0x80000001, "Key", "Name", 1, {'a', 0}}),
                               EncodeItem(TRegistryKeyItem{0x80000002, "Key", {Guid}, {Guid, Guid}})};
  int Kind = 0;
  for (const std::string& Item : Items) Seed("backup_items", Kind++, Item.substr(ItemTagSize));
  Seed("backup_items", Kind, "plain,\"with, comma\",\"say \"\"hi\"\"\" blank\n,\"\"");
}

}  // namespace

int main(int Count, char** Arguments) {
  if (Count != 2) return 1;
  Dir = Arguments[1];
  SeedLogs();
  SeedStrings();
  SeedItems();
  std::printf("%d seeds\n", Number);
}
