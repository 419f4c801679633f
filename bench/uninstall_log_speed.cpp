#include "uninstall_log_speed.h"

#include "formats/uninstall_log.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr int ManyRecords = 200000, QuickRecords = 5000;
constexpr double BytesPerMiB = 1 << 20;

/// A file whose size is fixed: nothing is taken or cleared while it is written.
class TFixedFile final : public TCustomFile {
 public:
  explicit TFixedFile(std::string& Bytes) : Bytes(Bytes) {}
  uint64_t GetPosition() override { return At; }
  uint64_t GetSize() override { return Bytes.size(); }
  uint32_t Read(void* Buffer, uint32_t Count) override {
    const size_t Part = std::min<size_t>(Count, Bytes.size() - At);
    std::memcpy(Buffer, Bytes.data() + At, Part);
    At += Part;
    return static_cast<uint32_t>(Part);
  }
  void Seek(uint64_t Position) override { At = static_cast<size_t>(Position); }
  uint32_t Write(const void* Buffer, uint32_t Count) override {
    const size_t Part = std::min<size_t>(Count, Bytes.size() - At);
    std::memcpy(Bytes.data() + At, Buffer, Part);
    At += Part;
    return static_cast<uint32_t>(Part);
  }
  void Truncate() override {}
  void Flush() override {}

 private:
  std::string& Bytes;
  size_t At = 0;
};

/// A log in memory, as it is loaded and as it is saved.
struct TSubject {
  explicit TSubject(int Records) : Records(Records) {
    constexpr size_t NameLength = 155;  // 200,000 records are 32 MiB then
    for (int At = 0; At < Records; ++At) {
      std::string Name = "C:\\Program Files\\Orvane\\" + std::to_string(At) + "-";
      Name.resize(NameLength, 'm');
      Log.AddStringRecord(0x82, {Name}, 0);
    }
    constexpr size_t MoreThanARecord = 200;
    Bytes.resize(static_cast<size_t>(Records) * MoreThanARecord + 1000);
    Save();
    TFixedFile File(Bytes);
    TUninstallLog Check;
    Check.Load(File);
    if (Check.Count() != Records) throw EBench("the log does not load");
    Bytes.resize(static_cast<size_t>(File.GetPosition()));
    Copy = Bytes;  // for Save
  }
  void Load() {
    Loaded = std::make_unique<TUninstallLog>();
    TFixedFile File(Bytes);
    Loaded->Load(File);
  }
  void Save() {
    const auto Open = [this](const std::string&, TFileDisposition, TFileAccess, TFileSharing) {
      return std::make_unique<TFixedFile>(Bytes);
    };
    Log.Save(Open, "", false, false);
  }
  /// Frees what the last round loaded, outside the time that counts.
  TVariant Loads() {
    return {[this] { Loaded.reset(); }, [this] { Load(); }};
  }
  TVariant Saves() {
    return {[] {}, [this] { Save(); }};
  }
  TVariant Yardsticks(bool NewMemory) {
    const auto Prepare = [this, NewMemory] {
      if (NewMemory) std::string().swap(Copy);
    };
    return {Prepare, [this] { Yardstick(Bytes, Copy); }};
  }

  const int Records;
  TUninstallLog Log;
  std::string Bytes, Copy;
  std::unique_ptr<TUninstallLog> Loaded;
};

TResult Compare(bool Quick, bool Save) {
  TSubject Subject(Quick ? QuickRecords : ManyRecords);
  const std::vector<TSamples> Times =
      Interleave(1, Quick ? 3 : 25,
                 {Save ? Subject.Saves() : Subject.Loads(), Subject.Yardsticks(!Save), Subject.Yardsticks(false)});
  const auto Speed = [&](const TSamples& Samples) {
    return static_cast<double>(Subject.Bytes.size()) / BytesPerMiB / (Samples.Median() / 1e6);
  };
  return {Times[0].Over(Times[1]).Median(),
          Times[0].Count(),
          {{"ratio of the least", Times[0].Least() / Times[1].Least(), ""},
           {Save ? "Save" : "Load", Speed(Times[0]), "MiB/s"},
           {"zlib's crc32 and a copy", Speed(Times[1]), "MiB/s"},
           {"the same in old memory", Speed(Times[2]), "MiB/s"},
           {"the log", static_cast<double>(Subject.Bytes.size()) / BytesPerMiB, "MiB"}}};
}

}  // namespace

unsigned long Yardstick(const std::string& Bytes, std::string& Copy) {
  Copy.assign(Bytes);
  return crc32(0, reinterpret_cast<const Bytef*>(Bytes.data()), static_cast<uInt>(Bytes.size()));
}

TResult UninstallLogLoad(bool Quick) { return Compare(Quick, false); }

TResult UninstallLogSave(bool Quick) { return Compare(Quick, true); }

TResult UninstallLogGrowth(bool Quick) {
  const int Large = Quick ? QuickRecords : ManyRecords, Small = Large / 10;
  TSubject Few(Small), Many(Large);
  const auto Both = [](TSubject& Subject) {
    return TVariant{[&] { Subject.Loaded.reset(); },
                    [&] {
                      Subject.Load();
                      Subject.Save();
                    }};
  };
  return Growth(Interleave(1, Quick ? 3 : 15, {Both(Few), Both(Many)}), {Small, Large}, {Small, Large});
}
