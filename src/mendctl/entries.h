#pragma once

#include "formats/backup_items.h"
#include "formats/entry_codes.h"
#include "formats/log_record.h"
#include "mendctl/state_folder.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// What an entry's item holds.
enum class TLayout {
  Unknown,     ///< an entry of a foreign class: its own matter
  Nothing,     ///< there is nothing to undo
  CheckPoint,  ///< DataID is no item
  FileSet,
  File,      ///< one of a set; no entry has one alone
  FileName,  ///< a string item
  Value,
  Key,
  Rights,
};

/// What an entry means: what was done, and what a rollback does about it.
struct TMeaning {
  std::string Class;  ///< its name, or the registry form of its identifier
  std::string Done;   ///< "file overwritten"
  std::string Undo;   ///< "bring back"
  TLayout Layout = TLayout::Unknown;
};
TMeaning MeaningOf(const TLogRecord& Record, const TMachine& Machine);

/// The identifier of a class of the system, in the registry form.
std::string IdOfClass(const std::string& Name);
/// The name of a class of the system; "" for another one.
std::string ClassOfId(const std::string& Id);
bool IsCheckPoint(const TLogRecord& Entry);

/// What is wrong with an item, and where in it.
struct TItemFault {
  TGuidBytes DataID{};
  uint64_t Offset = 0;
  std::string What;
  bool Missing = false;
};

struct TSavedFile : TSingleFileItem {
  TGuidBytes DataID{};
  uint64_t Size = 0, ContentAt = 0;
};

/// Everything that an item holds, with the items that it is made of. Texts are ANSI.
struct TSaved {
  std::vector<TSavedFile> Files;
  std::vector<std::string> Folders;
  std::vector<TRegistryValueItem> Values;
  std::vector<TRegistryKeyItem> Keys;
  std::vector<TKeyRightsItem> Rights;
  std::optional<std::string> Text;
  std::vector<TItemFault> Faults;
  std::set<TGuidBytes> Items;
  uint64_t LastWrite = 0;  ///< FILETIME of the item itself; 0 when it is missing
};

/// Reads items; `Leaves` says whether the files of a set are opened, too, which takes longer and is not needed by
/// whoever only asks what is reached. Never raises: what is wrong is among the faults.
class TItemReaderOf {
 public:
  explicit TItemReaderOf(const TStateFolder& State) : State(State) {}
  TSaved Read(TLayout Layout, const TGuidBytes& DataID, bool Leaves = true) const;

 private:
  struct TWalk;
  const TStateFolder& State;
};

/// One entry of the log, with its place in it; the oldest one has number 1.
struct TEntry {
  size_t Number = 0;
  TLogRecord Record;
  TMeaning Meaning;
};
/// From the newest on, down to the newest check point, or to the beginning.
std::vector<TEntry> EntriesOf(const TRecordFile& Log, bool All, const TMachine& Machine);

/// The items that the transaction log, what was set aside of it, and the history reach. `WholeStore` is false when
/// something could not be read, so that an item that seems unreached may well be.
struct TReached {
  std::set<TGuidBytes> Items;
  bool WholeStore = true;
};
TReached ReachedItems(const TStateFolder& State, const TMachine& Machine);

/// A registry key as people write it, ANSI.
std::string KeyText(uint32_t Root, const std::string& Name);
/// What an entry is about: the file, mask, key or value, in UTF-8, and how many more of them.
std::string SubjectOf(const TSaved& Saved, const TMachine& Machine);
