#pragma once

#include "base/messages.h"
#include "formats/backup_items.h"
#include "retry/engine.h"
#include "retry/file_wrappers.h"
#include "server/interfaces.h"

#include <cstdint>
#include <string>
#include <vector>

/// The store's folder in the service folder holds one file an item, named by the registry form of the item's DataID.
/// Items are written once, front to back, and never changed or deleted by the system; a DataID is handed out only when
/// its item is complete.

/// The file of an item.
std::string ItemPath(const GUID& DataID);

/// An item that is being written. A failure leaves a partial file whose DataID nobody gets.
class TNewItem {
 public:
  /// Creates the file under a new DataID and writes the tag and the fields. `Name` tells the user what is saved. Fields
  /// that could not be read back fail, with 0x8004020D, before there is a file.
  template <class TFields>
  TNewItem(const TFields& Fields, const std::string& Name) : TNewItem(ReadableItem(Fields, Name)) {}
  void Append(const void* Bytes, size_t Size);
  /// Appends an open file from its current position to its end.
  void Append(const TOpenFile& Source) { RetryReadAndAppendFile(Source, File); }
  /// Closes the item and gives its DataID.
  GUID Finish();

 private:
  explicit TNewItem(const std::string& Begin);

  template <class TFields>
  static std::string ReadableItem(const TFields& Fields, const std::string& Name) {
    if (!CanBeRead(Fields)) FailureStep(ERROR_INVALID_DATA, FormatMessageText(MsgItemNotSaved, Name));
    return EncodeItem(Fields);
  }

  GUID DataID{};
  TOpenFile File;
};

/// Saves an item of which nothing follows the fields.
template <class TFields>
GUID SaveItem(const TFields& Fields, const std::string& Name) {
  return TNewItem(Fields, Name).Finish();
}

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
  /// Reads tag and fields. False when they are of another kind, do not fit the file, or cannot have been saved.
  template <class TFields>
  bool ReadFields(TFields& Fields) {
    if (!HasKind(TFields::Kind)) return false;
    TItemReader Reader(*this);
    Fields.Fields(Reader);
    return Reader.Good() && Fields.Plausible();
  }
  /// Reads the rest of the item to its end and goes back to where it was, so that what is missing or cannot be read is
  /// found before anything is changed. Gives whether `Other`, when it is open, holds the same bytes from its begin.
  bool CheckRest(HANDLE Other);
  /// Copies the rest of the item to an open file.
  void CopyRest(const TOpenFile& Dest);
  void Close() { RetryCloseHandle(File); }

 private:
  void ReadFromFile(void* Buffer, size_t Size);

  const bool Quiet;
  TOpenFile File;
  uint64_t Left;            ///< of the item, what was read ahead included
  std::vector<char> Ahead;  ///< the block that was read last
  size_t AheadTaken = 0;    ///< of the block
};

/// Reads a whole item of which nothing follows the fields. One that cannot have been written by a save is shown to the
/// user, as `Damage`, and fails.
template <class TFields>
TFields LoadItem(const GUID& DataID, IUDialog& Dialog, TMessage Damage, bool Quiet = false) {
  TFields Fields;
  TStoredItem Item(DataID, Quiet);
  if (!Item.ReadFields(Fields) || Item.Remaining() != 0) FailWithBox(Dialog, Damage);
  Item.Close();
  return Fields;
}
