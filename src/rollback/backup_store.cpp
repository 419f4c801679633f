#include "rollback/backup_store.h"

#include "server/environment.h"

#include <limits>

namespace {

GUID NewDataId() {
  GUID DataID;
  CheckCall(CoCreateGuid(&DataID));
  return DataID;
}

std::string ItemPath(const GUID& DataID) { return GetServiceDir() + "\\Backup\\" + GuidText(DataID); }

}  // namespace

TNewItem::TNewItem()
    : DataID(NewDataId()),
      Path(ItemPath(DataID)),
      Handle(RetryCreateFile(Path, GENERIC_WRITE, 0, CREATE_NEW, FILE_ATTRIBUTE_NORMAL)) {}

void TNewItem::Write(const void* Bytes, size_t Size) {
  if (Size > 0) RetryWriteFile(Path, Handle.Get(), Bytes, true, static_cast<DWORD>(Size));
}

void TNewItem::AppendFile(const std::string& SourceName, HANDLE Source) {
  RetryReadAndAppendFile(SourceName, Path, Source, Handle.Get());
}

GUID TNewItem::Finish() {
  RetryFlushFileBuffers(Path, Handle.Get());
  RetryCloseHandle(Path, Handle);
  return DataID;
}

TStoredItem::TStoredItem(const GUID& DataID)
    : Path(ItemPath(DataID)),
      Handle(RetryCreateFile(Path, GENERIC_READ, 0, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL)),
      Left(static_cast<uint64_t>(std::max<int64_t>(0, PlainFileSize(Handle.Get())))) {}

void TStoredItem::Read(void* Buffer, uint32_t Size) {
  // Nobody shares the open file, so what was counted is there.
  const DWORD BytesRead = RetryReadFile(Path, Handle.Get(), Buffer, true, Size);
  if (BytesRead != Size) FailureStep(ERROR_HANDLE_EOF, SystemErrorText(ERROR_HANDLE_EOF));
  Left -= Size;
}

bool TStoredItem::HasKind(TItemKind Kind) {
  uint32_t Tag = 0;
  TItemReader Reader(*this);
  Reader(Tag);
  return Reader.Good() && Tag == static_cast<uint32_t>(Kind);
}

uint32_t TStoredItem::SizeAfterTag() {
  RetryGetFileSize(Path, Handle.Get());
  if (Left > std::numeric_limits<int32_t>::max())
    FailureStep(ERROR_FILE_TOO_LARGE, SystemErrorText(ERROR_FILE_TOO_LARGE));
  return static_cast<uint32_t>(Left);
}

void TStoredItem::CopyRest(const std::string& DestName, HANDLE Dest) {
  RetryReadAndAppendFile(Path, DestName, Handle.Get(), Dest);
  Left = 0;
}
