#include "rollback/saved_files.h"

#include "base/failure.h"
#include "base/file_content.h"
#include "base/guid.h"
#include "base/handles.h"
#include "formats/backup_items.h"
#include "retry/engine.h"
#include "retry/file_wrappers.h"
#include "rollback/backup_store.h"
#include "server/interfaces.h"

namespace {

/// An item that is read without lines.
class TQuietItem final : public TByteSource {
 public:
  explicit TQuietItem(const GUID& DataID) : File{ItemPath(DataID)} {
    TRetryCall(Unnumbered)
        .Until(
            [&] {
              File.Handle.Reset(CreateFileA(File.Name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
              return ByLastError(File && (Left = PlainFileSize(File.Get())) >= 0);
            },
            MsgCannotOpen, File.Name);
  }
  uint64_t Remaining() const override { return static_cast<uint64_t>(Left); }
  void Read(void* Buffer, uint32_t Size) override {
    DWORD BytesRead = 0;
    TRetryCall(Unnumbered)
        .Until([&] { return ByLastError(ReadFile(File.Get(), Buffer, Size, &BytesRead, nullptr)); }, MsgCannotRead,
               File.Name);
    if (BytesRead != Size) FailureStep(ERROR_HANDLE_EOF);
    Left -= Size;
  }

 private:
  TOpenFile File;
  int64_t Left = 0;
};

template <class TFields>
TFields FieldsOf(TQuietItem& Item) {
  TFields Fields;
  TItemReader Reader(Item);
  uint32_t Kind = 0;
  Reader(Kind);
  Fields.Fields(Reader);
  if (!Reader.Good() || Kind != TFields::Kind) throw EFailure(E_UNEXPECTED, LoadWideMessage(MsgInternalError6));
  return Fields;
}

/// A backup object that somebody has registered as the active one need not use the store. An item of our own that is
/// not there any more (a virus scanner takes such files) is a failure.
bool IsKeptElsewhere(const GUID& DataID) {
  TComRef<IUnknown> Active;
  return IsMissing(ItemPath(DataID)) && SUCCEEDED(GetActiveObject(CLSID_UBackup, nullptr, Active.Out()));
}

void Collect(const GUID& DataID, std::set<std::string>& Names) {
  TQuietItem SetItem(DataID);
  const auto Set = FieldsOf<TFileSetItem>(SetItem);
  for (const TGuidBytes& File : Set.Files) {
    TQuietItem Item(GuidOf(File));
    Names.insert(FieldsOf<TSingleFileItem>(Item).Path);
  }
  for (const TGuidBytes& Folder : Set.Folders) {
    TQuietItem Item(GuidOf(Folder));
    FieldsOf<TStringItem>(Item);
    std::string Name(static_cast<size_t>(Item.Remaining()), '\0');
    Item.Read(Name.data(), static_cast<uint32_t>(Name.size()));
    Names.insert(std::move(Name));
  }
  for (const TGuidBytes& Subset : Set.Subsets) Collect(GuidOf(Subset), Names);
}

}  // namespace

std::optional<std::set<std::string>> SavedNames(const GUID& DataID) {
  if (IsKeptElsewhere(DataID)) return std::nullopt;
  std::set<std::string> Names;
  Collect(DataID, Names);
  return Names;
}

bool HasSavedFile(const GUID& DataID) {
  if (IsKeptElsewhere(DataID)) return true;
  TQuietItem Item(DataID);
  return !FieldsOf<TFileSetItem>(Item).Files.empty();
}
