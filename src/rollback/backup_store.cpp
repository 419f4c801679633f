#include "rollback/backup_store.h"

#include "base/data_folders.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "base/guid.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

GUID NewDataId() {
  GUID DataID;
  CheckCall(CoCreateGuid(&DataID));
  return DataID;
}

void MoveTo(HANDLE File, int64_t Place, DWORD Method = FILE_BEGIN, LARGE_INTEGER* Now = nullptr) {
  LARGE_INTEGER Distance;
  Distance.QuadPart = Place;
  if (!SetFilePointerEx(File, Distance, Now, Method)) FailureStep(static_cast<long>(GetLastError()));
}

}  // namespace

std::string ItemPath(const GUID& DataID) { return GetServiceDir() + "\\Backup\\" + GuidText(DataID); }

TNewItem::TNewItem(const std::string& Begin)
    : DataID(NewDataId()), File(RetryCreateFile(ItemPath(DataID), GENERIC_WRITE, 0, CREATE_NEW)) {
  Append(Begin.data(), Begin.size());
}

void TNewItem::Append(const void* Bytes, size_t Size) {
  if (Size > 0) RetryWriteFile(File, Bytes, true, static_cast<DWORD>(Size));
}

GUID TNewItem::Finish() {
  RetryFlushFileBuffers(File);
  FlushToDisk(File);
  RetryCloseHandle(File);
  return DataID;
}

TStoredItem::TStoredItem(const GUID& DataID, bool Quiet)
    : Quiet(Quiet),
      File(RetryCreateFile(ItemPath(DataID), GENERIC_READ, 0, OPEN_EXISTING)),
      Left(static_cast<uint64_t>(std::max<int64_t>(0, PlainFileSize(File.Get())))) {}

void TStoredItem::ReadFromFile(void* Buffer, size_t Size) {
  // Nobody shares the open file, so what was counted is there.
  if (RetryReadFile(File, Buffer, !Quiet, static_cast<DWORD>(Size)) != Size) FailureStep(ERROR_HANDLE_EOF);
}

void TStoredItem::Read(void* Buffer, uint32_t Size) {
  constexpr size_t BlockSize = 4096;
  char* To = static_cast<char*>(Buffer);
  for (size_t Wanted = Size, Part = 0; Wanted > 0; Wanted -= Part, To += Part, Left -= Part) {
    if (AheadTaken == Ahead.size() && Wanted >= BlockSize) {
      ReadFromFile(To, Part = Wanted);
      continue;
    }
    if (AheadTaken == Ahead.size()) {
      Ahead.resize(static_cast<size_t>(std::min<uint64_t>(Left, BlockSize)));
      AheadTaken = 0;
      ReadFromFile(Ahead.data(), Ahead.size());
    }
    Part = std::min(Wanted, Ahead.size() - AheadTaken);
    std::memcpy(To, Ahead.data() + AheadTaken, Part);
    AheadTaken += Part;
  }
}

bool TStoredItem::HasKind(TItemKind Kind) {
  if (Left < ItemTagSize) return false;
  std::string Tag(ItemTagSize, '\0');
  ReadFromFile(Tag.data(), Tag.size());
  Left -= ItemTagSize;
  TItemWriter Expected;
  Expected(static_cast<uint32_t>(Kind));
  return Tag == Expected.Bytes;
}

uint32_t TStoredItem::SizeAfterTag() {
  RetryGetFileSize(File);
  if (Left > std::numeric_limits<int32_t>::max()) FailureStep(ERROR_FILE_TOO_LARGE);
  return static_cast<uint32_t>(Left);
}

bool TStoredItem::CheckRest(HANDLE Other) {
  constexpr DWORD BlockSize = 32768;
  std::vector<char> Own(BlockSize), Others(BlockSize);
  LARGE_INTEGER Now;
  MoveTo(File.Get(), 0, FILE_CURRENT, &Now);
  MoveTo(File.Get(), Now.QuadPart - static_cast<int64_t>(Ahead.size() - AheadTaken));
  bool Same = Other != INVALID_HANDLE_VALUE && PlainFileSize(Other) == static_cast<int64_t>(Left);
  for (uint64_t ToRead = Left; ToRead > 0;) {
    const DWORD Size = static_cast<DWORD>(std::min<uint64_t>(ToRead, BlockSize));
    DWORD BytesRead = 0;
    TRetryCall(Unnumbered)
        .Until([&] { return ByLastError(ReadFile(File.Get(), Own.data(), Size, &BytesRead, nullptr)); }, MsgCannotRead,
               File.Name);
    if (BytesRead != Size) FailureStep(ERROR_HANDLE_EOF);
    Same = Same && ReadFile(Other, Others.data(), Size, &BytesRead, nullptr) && BytesRead == Size &&
           std::memcmp(Own.data(), Others.data(), Size) == 0;
    ToRead -= Size;
  }
  MoveTo(File.Get(), Now.QuadPart);
  return Same;
}

void TStoredItem::CopyRest(const TOpenFile& Dest) {
  const size_t Untaken = Ahead.size() - AheadTaken;
  if (Untaken > 0) RetrySetFilePointer(File, -static_cast<LONG>(Untaken), FILE_CURRENT);
  RetryReadAndAppendFile(File, Dest);
  Left = 0;
}
