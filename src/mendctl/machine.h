#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What cannot be read, and why; the console ends with status 3.
struct ECannotRead {
  std::string File;  ///< UTF-8
  uint64_t Offset = 0;
  std::string Why;
};

/// The bitness of the library whose state is looked at when nobody says which: this program's own, or 32 bits where
/// there is no library.
#ifdef _WIN32
constexpr int OwnBits = 8 * sizeof(void*);
#else
constexpr int OwnBits = 32;
#endif

/// A file that is read where it is, while others may write, rename or delete it. Raises ECannotRead.
class TReadableFile {
 public:
  explicit TReadableFile(const std::filesystem::path& Path);
  ~TReadableFile();
  TReadableFile(TReadableFile&&) noexcept;
  TReadableFile& operator=(TReadableFile&&) = delete;

  uint64_t Size() const { return FileSize; }
  /// FILETIME of the last change.
  uint64_t LastWrite() const { return Written; }
  /// Gives the number of bytes read: fewer than `Count` at the end.
  size_t ReadAt(uint64_t Offset, void* Buffer, size_t Count) const;
  /// From `Offset` on, at most `Most` bytes.
  std::string Text(uint64_t Offset = 0, uint64_t Most = UINT64_MAX) const;

 private:
  std::string Name;
  intptr_t Handle;
  uint64_t FileSize = 0, Written = 0;
};

/// UTF-8 of a path of this system, for messages.
std::string NameOf(const std::filesystem::path& Path);
inline std::filesystem::path PathFrom(std::string_view Utf8) {
  return {std::u8string(reinterpret_cast<const char8_t*>(Utf8.data()), Utf8.size())};
}

/// An answer that cannot always be had: a folder copied from another machine has neither registry nor processes.
enum class TAnswer { Unknown, No, Yes };

/// Whether somebody is at work on the transaction log.
enum class TLockState {
  Unknown,
  Free,    ///< no living process has the library in use
  Loaded,  ///< some process has the library in use, and is between two changes
  Held,    ///< some process is in the middle of a change or a rollback
};

/// A file or folder as it is now.
struct TFileNow {
  bool IsFolder = false;
  uint64_t Size = 0, LastWrite = 0;
  std::optional<uint32_t> Attributes;
};

/// A registry value as it is now, in the form in which items keep it.
struct TValueNow {
  uint32_t Type = 0;
  std::vector<uint8_t> Data;
};

/// The machine that a state folder belongs to: this one, on Windows; elsewhere what was copied of it. Texts of items,
/// logs and lists are in the code page of that machine ("ANSI"); whatever is told is UTF-8.
class TMachine {
 public:
  unsigned CodePage = 0;  ///< 0: this machine's own, or Windows-1252 where it has none
  /// By drive letter in lower case, where the copy of that drive lies. With none, Windows means its own drives.
  std::map<char, std::filesystem::path> Drives;

  std::string ToUtf8(std::string_view Ansi) const;

  /// Where a file of the machine is to be looked for; nothing when its drive is not at hand.
  std::optional<std::filesystem::path> PathOf(std::string_view Ansi) const;
  /// Nothing when it is not there. Raises ECannotRead when that cannot be told.
  static std::optional<TFileNow> LookAt(const std::filesystem::path& Path);
  /// Who has a file in use, so that it cannot be deleted; "" when nobody has, or nobody can tell.
  std::string HoldersOf(const std::filesystem::path& Path) const;
  TAnswer CanCreateIn(const std::filesystem::path& Folder) const;
  std::optional<uint64_t> FreeBytes(const std::filesystem::path& Folder) const;

  // The registry. The names are ANSI.
  bool HasRegistry() const { return Registry; }
  bool HasKey(uint32_t Root, const std::string& Name) const;
  std::optional<TValueNow> Value(uint32_t Root, const std::string& Key, const std::string& Name) const;
  std::vector<std::string> ValueNames(uint32_t Root, const std::string& Key) const;

  /// Of a class by the registry form of its identifier.
  TAnswer HasClass(const std::string& ClassId) const;
  std::string ProgIdOf(const std::string& ClassId) const;

  TLockState LockState() const;
  /// The application's base folder, as the registry has it; the text says why it has none.
  static std::optional<std::filesystem::path> RegisteredBase(std::string& Why);

  static bool OutputIsTerminal();
  static void UseUtf8Output();

 private:
  static const bool Registry;
};

/// Keeps everybody else from changing the transaction log and the history, from construction to destruction. Raises
/// ECannotRead when somebody has the library in use: what he has saved and not yet recorded would look like an orphan.
class TStateLock {
 public:
  TStateLock();
  ~TStateLock();
  TStateLock(const TStateLock&) = delete;
  TStateLock& operator=(const TStateLock&) = delete;

 private:
  struct TLocks;
  std::unique_ptr<TLocks> Locks;
};

/// Waits until the content of a file is on the disk; used on what was just written.
void FlushFile(const std::filesystem::path& Path);
