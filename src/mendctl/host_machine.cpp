// The machine as a folder that was copied from it: files where --drive says, no registry, no processes.

#include "mendctl/machine.h"

#include <fcntl.h>
#include <iconv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace fs = std::filesystem;

namespace {

/// 100 ns since 1601, from the seconds and nanoseconds since 1970.
uint64_t FileTimeOf(const timespec& Time) {
  constexpr int64_t SecondsBetween = 11644473600, TicksPerSecond = 10000000, NanosecondsPerTick = 100;
  return static_cast<uint64_t>((Time.tv_sec + SecondsBetween) * TicksPerSecond + Time.tv_nsec / NanosecondsPerTick);
}

/// The entry of a folder under a name in any case; the name as it is when there is none.
fs::path Found(const fs::path& Folder, const std::string& Name) {
  std::error_code Error;
  if (fs::exists(fs::symlink_status(Folder / Name, Error))) return Folder / Name;
  for (const auto& Entry : fs::directory_iterator(Folder, Error))
    if (strcasecmp(Entry.path().filename().c_str(), Name.c_str()) == 0) return Entry.path();
  return Folder / Name;
}

}  // namespace

const bool TMachine::Registry = false;

TReadableFile::TReadableFile(const fs::path& Path) : Name(NameOf(Path)), Handle(open(Path.c_str(), O_RDONLY)) {
  struct stat Facts {};
  if (Handle < 0 || fstat(static_cast<int>(Handle), &Facts) != 0) {
    const int Code = errno;
    if (Handle >= 0) close(static_cast<int>(Handle));
    throw ECannotRead{Name, 0, std::strerror(Code)};
  }
  if (!S_ISREG(Facts.st_mode)) {
    close(static_cast<int>(Handle));
    throw ECannotRead{Name, 0, "it is not a file"};
  }
  FileSize = static_cast<uint64_t>(Facts.st_size);
  Written = FileTimeOf(Facts.st_mtim);
}

TReadableFile::TReadableFile(TReadableFile&& Other) noexcept
    : Name(std::move(Other.Name)), Handle(Other.Handle), FileSize(Other.FileSize), Written(Other.Written) {
  Other.Handle = -1;
}

TReadableFile::~TReadableFile() {
  if (Handle >= 0) close(static_cast<int>(Handle));
}

size_t TReadableFile::ReadAt(uint64_t Offset, void* Buffer, size_t Count) const {
  size_t Done = 0;
  while (Done < Count) {
    const ssize_t Got = pread(static_cast<int>(Handle), static_cast<char*>(Buffer) + Done, Count - Done,
                              static_cast<off_t>(Offset + Done));
    if (Got < 0) throw ECannotRead{Name, Offset + Done, std::strerror(errno)};
    if (Got == 0) break;
    Done += static_cast<size_t>(Got);
  }
  return Done;
}

std::string TMachine::ToUtf8(std::string_view Ansi) const {
  constexpr unsigned Utf8 = 65001, WesternEurope = 1252;
  const unsigned Page = CodePage ? CodePage : WesternEurope;
  const std::string From = Page == Utf8 ? "UTF-8" : "CP" + std::to_string(Page);
  const iconv_t Converter = iconv_open("UTF-8", From.c_str());
  std::string Result;
  char* In = const_cast<char*>(Ansi.data());
  size_t InLeft = Ansi.size();
  while (InLeft > 0) {
    char Buffer[512];
    char* Out = Buffer;
    size_t OutLeft = sizeof Buffer;
    const bool Stopped = Converter == reinterpret_cast<iconv_t>(-1) ||
                         (iconv(Converter, &In, &InLeft, &Out, &OutLeft) == static_cast<size_t>(-1) && errno != E2BIG);
    Result.append(Buffer, sizeof Buffer - OutLeft);
    if (Stopped) {
      Result += "\xEF\xBF\xBD";  // the replacement character
      ++In, --InLeft;
    }
  }
  if (Converter != reinterpret_cast<iconv_t>(-1)) iconv_close(Converter);
  return Result;
}

std::optional<fs::path> TMachine::PathOf(std::string_view Ansi) const {
  std::string Name = ToUtf8(Ansi);
  std::replace(Name.begin(), Name.end(), '/', '\\');
  if (Name.starts_with("\\\\?\\")) Name.erase(0, 4);
  if (Name.size() < 2 || Name[1] != ':') return std::nullopt;
  const auto Drive = Drives.find(static_cast<char>(std::tolower(static_cast<unsigned char>(Name[0]))));
  if (Drive == Drives.end()) return std::nullopt;
  fs::path Path = Drive->second;
  for (size_t At = 2; At < Name.size();) {
    const size_t End = std::min(Name.find('\\', At), Name.size());
    const std::string Part = Name.substr(At, End - At);
    if (Part == "..") return std::nullopt;
    if (!Part.empty() && Part != ".") Path = Found(Path, Part);
    At = End + 1;
  }
  return Path;
}

std::optional<TFileNow> TMachine::LookAt(const fs::path& Path) {
  struct stat Facts {};
  if (stat(Path.c_str(), &Facts) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    throw ECannotRead{NameOf(Path), 0, std::strerror(errno)};
  }
  return TFileNow{S_ISDIR(Facts.st_mode), static_cast<uint64_t>(Facts.st_size), FileTimeOf(Facts.st_mtim), {}};
}

// A copy has no processes, and nothing is written to it by a rollback.
std::string TMachine::HoldersOf(const fs::path&) const { return {}; }
TAnswer TMachine::CanCreateIn(const fs::path&) const { return TAnswer::Unknown; }
std::optional<uint64_t> TMachine::FreeBytes(const fs::path&) const { return std::nullopt; }
bool TMachine::HasKey(uint32_t, const std::string&) const { return false; }
std::optional<TValueNow> TMachine::Value(uint32_t, const std::string&, const std::string&) const {
  return std::nullopt;
}
std::vector<std::string> TMachine::ValueNames(uint32_t, const std::string&) const { return {}; }
TAnswer TMachine::HasClass(const std::string&) const { return TAnswer::Unknown; }
std::string TMachine::ProgIdOf(const std::string&) const { return {}; }
TLockState TMachine::LockState() const { return TLockState::Unknown; }

std::optional<fs::path> TMachine::RegisteredBase(std::string& Why) {
  Why = "This system has no registry that could name the base folder; name it with --base.";
  return std::nullopt;
}

std::string NameOf(const fs::path& Path) { return Path.string(); }

bool TMachine::OutputIsTerminal() { return isatty(STDOUT_FILENO) != 0; }
void TMachine::UseUtf8Output() {}

struct TStateLock::TLocks {};
TStateLock::TStateLock() = default;
TStateLock::~TStateLock() = default;

void FlushFile(const fs::path& Path) {
  const int File = open(Path.c_str(), O_RDONLY);
  if (File < 0) return;
  fsync(File);
  close(File);
}
