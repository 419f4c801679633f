#pragma once

#include "base/guid.h"
#include "formats/backup_items.h"
#include "retry/file_wrappers.h"

#include <string>

/// The store's folder in the service folder holds one file an item, named by the registry form of the item's DataID.
/// Items are written once, front to back, and never changed or deleted by the system; a DataID is handed out only when
/// its item is complete.

/// An item that is being written. A failure leaves a partial file whose DataID nobody gets.
class TNewItem {
 public:
  /// Creates the file under a new DataID.
  TNewItem();
  void Write(const void* Bytes, size_t Size);
  void Write(const std::string& Bytes) { Write(Bytes.data(), Bytes.size()); }
  /// Copies an open file from its current position to its end.
  void AppendFile(const std::string& SourceName, HANDLE Source);
  /// Closes the item and gives its DataID.
  GUID Finish();

 private:
  GUID DataID;
  std::string Path;
  TFileHandle Handle;
};

/// An item that is being read: its tag by itself, the fields in blocks, since every logged read costs two lines.
class TStoredItem final : public TByteSource {
 public:
  /// A quiet item writes no lines for its reads.
  explicit TStoredItem(const GUID& DataID, bool Quiet = false);

  uint64_t Remaining() const override { return Left; }
  void Read(void* Buffer, uint32_t Size) override;
  /// Whether the item begins with this kind's tag. To be asked first.
  bool HasKind(TItemKind Kind);
  /// The size of what follows the tag, asked through the retry layer. Below 0 never; an item beyond 2 GiB fails.
  uint32_t SizeAfterTag();
  /// Reads the fields of an item behind the tag. False when they do not fit the file.
  template <class TItem>
  bool ReadFields(TItem& Item) {
    TItemReader Reader(*this);
    Item.Fields(Reader);
    return Reader.Good();
  }
  /// Copies the rest of the item to an open file.
  void CopyRest(const std::string& DestName, HANDLE Dest);
  void Close() { RetryCloseHandle(Path, Handle); }

 private:
  void ReadFromFile(void* Buffer, size_t Size);

  std::string Path;
  const bool Quiet;
  TFileHandle Handle;
  uint64_t Left;            ///< of the item, what was read ahead included
  std::vector<char> Ahead;  ///< the block that was read last
  size_t AheadTaken = 0;    ///< of the block
};
