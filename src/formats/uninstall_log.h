#pragma once

#include "formats/abstract_file.h"
#include "formats/uninstall_log_error.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// One record. Its data lies behind it in the same piece of memory, which belongs to the log.
class TUninstallRecord {
 public:
  TUninstallRecord(const TUninstallRecord&) = delete;
  TUninstallRecord& operator=(const TUninstallRecord&) = delete;

  std::span<const uint8_t> Data() const { return {reinterpret_cast<const uint8_t*>(this + 1), DataSize}; }

  TUninstallRecord* Previous = nullptr;
  TUninstallRecord* Next = nullptr;
  const int32_t ExtraValue;
  const uint32_t DataSize;
  const uint16_t RecordType;

 private:
  friend class TUninstallLog;
  TUninstallRecord(uint16_t RecordType, uint32_t DataSize, int32_t ExtraValue)
      : ExtraValue(ExtraValue), DataSize(DataSize), RecordType(RecordType) {}
  uint8_t* WritableData() { return reinterpret_cast<uint8_t*>(this + 1); }
};

/// The installer's uninstall log in memory: records in file order, and the fields of the header. docs/formats has the
/// file's layout. Not for several threads at once.
class TUninstallLog {
 public:
  /// The latest version of the format that is read, and the one that records with strings need.
  static constexpr int32_t HighestVersion = 45;

  TUninstallLog() = default;
  TUninstallLog(const TUninstallLog&) = delete;
  TUninstallLog& operator=(const TUninstallLog&) = delete;

  /// Deletes every record and empties ApplicationId, ApplicationName and Flags.
  void Clear();
  /// Deletes one record and gives the one before it, or null. Its memory is free again with the log's.
  TUninstallRecord* DeleteRecord(TUninstallRecord* Rec);
  void AddRecord(uint16_t RecordType, std::span<const uint8_t> Data, int32_t ExtraValue);
  /// Adds a record whose data is a string list, and raises Version to 45 if it is lower.
  void AddStringRecord(uint16_t RecordType, const std::vector<std::string>& Strings, int32_t ExtraValue);

  /// Empties `Strings` and fills it with the strings in a record's data, as many as it has room for. Gives how many
  /// there were. Total: at a string that does not end within the data, and at the end of data without an end mark, the
  /// list ends.
  static size_t ExtractRecordStrings(const TUninstallRecord& Rec, std::span<std::string> Strings);

  /// Reads a log from an open file into this object, which should be new; Version stays as it is.
  /// Raises EUninstallLogError for a damaged log and for one of a version above 45. The records read so far stay. No
  /// more memory is taken than the file has bytes, whatever its fields claim.
  void Load(TCustomFile& File);

  /// Writes the records to a file: as a new log, or behind the records of the log that is there, whose fields stay
  /// except for ApplicationId, the text that tells 32 from 64 bits, the counts and the checksum, what Version and Flags
  /// gain from this object, and ApplicationName if told so. The header is written last, when everything else is on the
  /// disk: a save that is interrupted leaves the old log.
  ///
  /// Raises EUninstallLogError when the count or the file's size do not fit their fields, and, before anything is
  /// changed, when the file to append to does not reach to the end that its header names: cutting it there would make
  /// it longer, or cut into the header.
  void Save(const TFileOpener& Open, const std::string& FileName, bool Append, bool UpdateApplicationName) const;

  TUninstallRecord* First() const { return FirstRecord; }
  TUninstallRecord* Last() const { return LastRecord; }
  int32_t Count() const { return RecordCount; }
  /// Whether the loaded log held nothing behind its last record, up to its end. Another log can be read, but records
  /// that are appended to it would be read as the rest of what is there.
  bool EndsWithLastRecord() const { return NothingBehind; }

  /// The bytes of the loaded log's header.
  std::string LoadedHeader;
  bool Is64Bit = false;
  std::string ApplicationId, ApplicationName;
  uint8_t Flags = 0;  ///< the low byte of the header's
  int32_t Version = 0;

 private:
  /// A record whose data is still to be filled in. It is not in the list yet. When memory must be taken for it, it is
  /// no more than `MostUseful`, or than the record needs.
  TUninstallRecord& MakeRecord(uint16_t RecordType, size_t DataSize, int32_t ExtraValue, uint64_t MostUseful);
  void Link(TUninstallRecord& Rec);

  /// The records lie side by side in a few pieces of memory: one piece for each would take longer than all else.
  std::vector<std::unique_ptr<std::byte[]>> Slabs;
  std::byte* SlabAt = nullptr;  ///< what is left of the last one
  size_t SlabLeft = 0;
  TUninstallRecord* FirstRecord = nullptr;
  TUninstallRecord* LastRecord = nullptr;
  int32_t RecordCount = 0;
  bool NothingBehind = true;
};
