#pragma once

#include "formats/kit_changes.h"
#include "kit/services.h"

#include <functional>
#include <string>

/// The code of the kit's entries, which tells how their items are read.
inline constexpr long ChangesCode = 1;

/// Records what is about to be made: an item of the backup store, and an entry of KitChanges in the transaction log.
/// Nothing is recorded when there is nothing. Raises the failures of both.
void RecordChanges(TServices& Services, const TKitChanges& Changes);

/// What an entry recorded. Fails with E_INVALIDARG when the item is damaged.
TKitChanges LoadChanges(TServices& Services, const GUID& DataID);

/// Saves the content of files one after the other, in pieces of PieceSize, each of which is an item.
class TPieceWriter {
 public:
  explicit TPieceWriter(TServices& Services) : Services(Services) {}

  void Append(const char* Bytes, size_t Size);
  /// Saves what is left, and adds all pieces to the changes.
  void Finish(TKitChanges& Changes);

 private:
  void Save();

  TServices& Services;
  std::string Gathered;
  std::vector<TPieceSaved> Pieces;
};

/// Reads them back, any part of them; what lies side by side is read once.
class TPieceReader {
 public:
  /// The pieces of these changes.
  TPieceReader(TServices& Services, const TKitChanges& Changes);

  /// Calls `Take` with the bytes from `Offset` on, in as many parts as it takes, until it says no. Fails with
  /// E_INVALIDARG when a piece is shorter than it must be.
  void Read(uint64_t Offset, uint64_t Size, const std::function<bool(const char* Bytes, size_t Count)>& Take);

 private:
  const std::string& Piece(size_t Number);

  TServices& Services;
  std::vector<GUID> Items;
  size_t Loaded = static_cast<size_t>(-1);
  std::string Bytes;
};
