#include "kit/change_items.h"

#include "base/failure.h"
#include "base/guid.h"
#include "base/text.h"
#include "kit/kit_messages.h"

#include <algorithm>
#include <limits>

namespace {

GUID SaveBytes(TServices& Services, std::string& Bytes) {
  GUID DataID{};
  if (Bytes.size() > std::numeric_limits<long>::max()) throw std::bad_alloc();
  CheckCall(Services.Backup().BackupData(Bytes.data(), static_cast<long>(Bytes.size()), &DataID));
  return DataID;
}

std::string LoadBytes(TServices& Services, const GUID& DataID) {
  TTaskMemory Memory;
  long Size = 0;
  CheckCall(Services.Backup().RestoreData(DataID, Memory.Out(), &Size));
  return Size > 0 ? std::string(static_cast<const char*>(Memory.Get()), static_cast<size_t>(Size)) : "";
}

}  // namespace

void RecordChanges(TServices& Services, const TKitChanges& Changes) {
  if (Changes.empty()) return;
  std::string Item = EncodeKitChanges(Changes);
  const GUID DataID = SaveBytes(Services, Item);
  CheckCall(Services.Transactions().Put(CLSID_KitChanges, ChangesCode, DataID));
}

TKitChanges LoadChanges(TServices& Services, const GUID& DataID) {
  std::optional<TKitChanges> Changes = DecodeKitChanges(LoadBytes(Services, DataID));
  if (!Changes) Refuse(MsgKitDamagedItem, ToWide(GuidText(DataID)));
  return std::move(*Changes);
}

void TPieceWriter::Append(const char* Bytes, size_t Size) {
  while (Size > 0) {
    const size_t Part = std::min(Size, static_cast<size_t>(PieceSize) - Gathered.size());
    Gathered.append(Bytes, Part);
    Bytes += Part;
    Size -= Part;
    if (Gathered.size() == PieceSize) Save();
  }
}

void TPieceWriter::Save() {
  Pieces.push_back({BytesOf(SaveBytes(Services, Gathered))});
  Gathered.clear();
}

void TPieceWriter::Finish(TKitChanges& Changes) {
  if (!Gathered.empty()) Save();
  Changes.insert(Changes.end(), Pieces.begin(), Pieces.end());
}

TPieceReader::TPieceReader(TServices& Services, const TKitChanges& Changes) : Services(Services) {
  for (const TKitChange& Change : Changes)
    if (const auto* const Piece = std::get_if<TPieceSaved>(&Change)) Items.push_back(GuidOf(Piece->Item));
}

const std::string& TPieceReader::Piece(size_t Number) {
  if (Loaded != Number) {
    Loaded = static_cast<size_t>(-1);
    Bytes = LoadBytes(Services, Items.at(Number));
    Loaded = Number;
  }
  return Bytes;
}

void TPieceReader::Read(uint64_t Offset, uint64_t Size,
                        const std::function<bool(const char* Bytes, size_t Count)>& Take) {
  while (Size > 0) {
    const size_t Number = static_cast<size_t>(Offset / PieceSize), At = static_cast<size_t>(Offset % PieceSize);
    const std::string& Whole = Piece(Number);
    const size_t Part = static_cast<size_t>(std::min<uint64_t>(Size, PieceSize - At));
    if (At + Part > Whole.size()) Refuse(MsgKitDamagedItem, ToWide(GuidText(Items[Number])));
    if (!Take(Whole.data() + At, Part)) return;
    Offset += Part;
    Size -= Part;
  }
}
