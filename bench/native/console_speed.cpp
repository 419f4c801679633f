#include "native/console_speed.h"

#include "formats/backup_items.h"
#include "formats/entry_codes.h"
#include "formats/log_record.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

/// The identifier of the class of file operations.
std::string FileClassId() {
  std::string Found;
#define CLASS(Name, Id) \
  if (std::string(#Name) == "UFile") Found = Id;
#include "server/class_ids.inc"
#undef CLASS
  return Found;
}

/// The state of an update that was interrupted after so many copies.
class TMadeState {
 public:
  explicit TMadeState(uint32_t Entries) {
    const fs::path Service = Base / "Updates" / "Mendwork";
    fs::create_directories(Service / "Backup");
    const TGuidBytes Class = ParseGuid(FileClassId()).value();
    std::ofstream Log(Service / "update.prt", std::ios::binary);
    for (uint32_t Number = 1; Number <= Entries; ++Number) {
      const std::string Path = "C:\\App\\folder\\file" + std::to_string(Number) + ".dat";
      const TGuidBytes File = Item(Service, 2 * Number, EncodeItem(TSingleFileItem{Path, 0x20, 1, 1, 1}) + "content");
      const TGuidBytes Set = Item(Service, 2 * Number + 1, EncodeItem(TFileSetItem{{File}, {}, {}}));
      const TLogRecordBytes Bytes = EncodeRecord({Class, FileCode::Overwritten, Set});
      Log.write(reinterpret_cast<const char*>(Bytes.data()), LogRecordSize);
    }
  }
  ~TMadeState() { fs::remove_all(Base); }
  TMadeState(const TMadeState&) = delete;
  TMadeState& operator=(const TMadeState&) = delete;

  const fs::path Base = fs::temp_directory_path() / ("mendwork-bench-" + std::to_string(getpid()));

 private:
  static TGuidBytes Item(const fs::path& Service, uint32_t Number, const std::string& Bytes) {
    TGuidBytes Id{};
    for (size_t At = 0; At < sizeof Number; ++At) Id[At] = static_cast<uint8_t>(Number >> 8 * At);
    std::ofstream(Service / "Backup" / GuidText(Id), std::ios::binary) << Bytes;
    return Id;
  }
};

}  // namespace

TResult ConsoleSpeed(bool Quick, const char* Command) {
  constexpr uint32_t Entries = 10000;
  constexpr double MicrosecondsPerSecond = 1e6;
  const char* const Program = std::getenv("MENDCTL");
  if (!Program) throw EBench("MENDCTL does not name the console");
  const TMadeState State(Entries);
  const std::string Line = std::string(Program) + " " + Command + " --base " + State.Base.string() + " > " +
                           (State.Base / "out.txt").string();
  double Slowest = 0;
  const int Rounds = Quick ? 2 : 10;
  for (int Round = 0; Round < Rounds; ++Round) {
    const double Begin = Now();
    const int Status = std::system(Line.c_str());
    Slowest = std::max(Slowest, (Now() - Begin) / MicrosecondsPerSecond);
    if (Status == -1 || WEXITSTATUS(Status) > 1) throw EBench(Line + " failed");
  }
  std::ifstream Out(State.Base / "out.txt");
  if (std::count(std::istreambuf_iterator<char>(Out), {}, '\n') == 0) throw EBench(Line + " printed nothing");
  return {Slowest, Rounds, {}};
}
