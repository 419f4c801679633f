#include "rollback/backup_items.h"
#include "support/sandbox.h"

namespace {

constexpr HRESULT WrongItem = static_cast<HRESULT>(0x800403FF);
constexpr uint32_t ReadOnlyHidden = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;

std::string Tag(uint32_t Kind) {
  TItemWriter Writer;
  Writer(Kind);
  return Writer.Bytes;
}
std::string Bytes(const void* Data, size_t Size) { return std::string(static_cast<const char*>(Data), Size); }

class BackupStore : public TSandbox {
 protected:
  std::string ItemPath(const GUID& DataID) const { return Service("Backup\\" + GuidText(DataID)); }
  std::string Item(const GUID& DataID) const { return Read(ItemPath(DataID)); }
  /// An item with these bytes, as if it had been saved.
  GUID Stored(const std::string& Content) {
    const GUID DataID = NumberedGuid(++Items);
    Write(ItemPath(DataID), Content);
    return DataID;
  }
  GUID SaveString(const std::wstring& Str) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupString(Text(Str), &DataID));
    return DataID;
  }
  GUID SaveData(std::string Data) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupData(Data.data(), static_cast<long>(Data.size()), &DataID));
    return DataID;
  }
  HRESULT RestoreString(const GUID& DataID) {
    TBstr Str;
    const HRESULT Result = Backup->RestoreString(DataID, Str.Out());
    Restored = Take(Str);
    return Result;
  }
  HRESULT RestoreData(const GUID& DataID) {
    void* Buffer = &Buffer;
    long Size = 0;
    const HRESULT Result = Backup->RestoreData(DataID, &Buffer, &Size);
    EXPECT_EQ(SUCCEEDED(Result), Buffer != nullptr);
    const TTaskMemory Memory(Buffer);
    Restored = Buffer ? Bytes(Buffer, static_cast<size_t>(Size)) : "";
    return Result;
  }

  /// The call showed this message once, in a box without a choice, and failed with it.
  void ExpectRefusal(HRESULT Result, const std::string& Message) {
    EXPECT_EQ(WrongItem, Result);
    EXPECT_EQ(Message, ErrorText());
    EXPECT_EQ((std::vector{TScriptedDialog::TBox{Message, "Error", 16}}), Dialog().Boxes);
    EXPECT_EQ("Exception -2147220993 " + Message, Log().Texts("Common").back());
    Dialog().Boxes.clear();
  }

  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
  std::string Restored;
  int Items = 0;
};

TEST_F(BackupStore, KeepsStringsInTheCodePage) {
  const struct {
    std::wstring Str;
    std::string Ansi;
  } Rows[] = {{L"", ""},
              {L"C:\\App", "C:\\App"},
              {L"\u00E4\u20AC", "\xE4\x80"},
              {L"a\u4E2Db", "a?b"},
              {{L"a\0b", 3}, {"a\0b", 3}}};
  for (const auto& [Str, Ansi] : Rows) {
    const GUID DataID = SaveString(Str);
    EXPECT_EQ(std::string("\1\0\0\0", 4) + Ansi, Item(DataID));
    for (int Time = 0; Time < 2; ++Time) {
      EXPECT_EQ(S_OK, RestoreString(DataID));
      EXPECT_EQ(Ansi, Restored);
    }
  }
}

TEST_F(BackupStore, KeepsRawData) {
  for (const std::string& Data : {std::string(), std::string("\0\xFF\r\n", 4), std::string(100000, 'x')}) {
    const GUID DataID = SaveData(Data);
    EXPECT_EQ(std::string("\3\0\0\0", 4) + Data, Item(DataID));
    for (int Time = 0; Time < 2; ++Time) {
      EXPECT_EQ(S_OK, RestoreData(DataID));
      EXPECT_EQ(Data, Restored);
    }
  }
  EXPECT_EQ(S_OK, RestoreData(Stored(Tag(SingleFileKind) + "a path and so on"))) << "the tag does not tell them apart";
  EXPECT_EQ("a path and so on", Restored);

  GUID DataID = NumberedGuid(77);
  char Byte = 0;
  EXPECT_EQ(E_INVALIDARG, Backup->BackupData(&Byte, -1, &DataID));
  EXPECT_EQ(E_INVALIDARG, Backup->BackupData(nullptr, 1, &DataID));
  EXPECT_EQ(GuidText(NumberedGuid(77)), GuidText(DataID));
}

TEST_F(BackupStore, WritesTheseLines) {
  const std::string Str = GuidText(SaveString(L"some text")), Data = GuidText(SaveData("123"));
  EXPECT_EQ(S_OK, RestoreString(Guid(Str.c_str())));
  EXPECT_EQ(S_OK, RestoreData(Guid(Data.c_str())));
  for (const long Code : {1, 5, -4}) EXPECT_EQ(S_OK, Backup->Rollback(Code, NumberedGuid(1)));
  const std::string One = GuidText(NumberedGuid(1));
  EXPECT_EQ((std::vector<std::string>{"Begin BackupString some text", "End BackupString " + Str, "Begin BackupData 3",
                                      "End BackupData " + Data, "Begin RestoreString " + Str,
                                      "End RestoreString some text", "Begin RestoreData " + Data, "End RestoreData",
                                      "Begin Rollback 1 " + One, "End Rollback", "Begin Rollback 5 " + One,
                                      "End Rollback", "Begin Rollback -4 " + One, "End Rollback"}),
            Log().Texts("UBackup"));
}

TEST_F(BackupStore, AMissingItemIsTheRetryLayersFailure) {
  const TNoPauses NoPauses;
  EXPECT_EQ(static_cast<HRESULT>(0x80040202), RestoreString(NumberedGuid(5)));
  const std::string Reason = SystemText(ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Reason, ErrorText());
  ASSERT_EQ(1u, Dialog().Boxes.size());
  EXPECT_EQ("Cannot open '" + ItemPath(NumberedGuid(5)) + "'.\r\n\r\nError: '" + Reason + "' (Error code: 2).",
            Dialog().Boxes[0].Text);
}

TEST_F(BackupStore, ItemsOfAnotherKindAreRefused) {
  const GUID Str = SaveString(L"C:\\x"), Data = SaveData("data");
  ExpectRefusal(RestoreString(Data), "Internal error #1.");
  ExpectRefusal(RestoreString(Stored(std::string("\1\0\0", 3))), "Internal error #1.");
  ExpectRefusal(RestoreData(Str), "Internal error #2.");
  ExpectRefusal(RestoreData(Stored("")), "Internal error #2.");
  ExpectRefusal(Backup->RestoreFiles(Data), "Internal error #6.");
  constexpr long Files = 4;
  ExpectRefusal(Backup->Rollback(Files, Str), "Internal error #6.");
  ExpectRefusal(Backup->RestoreFiles(Stored(EncodeItem(TFileSetItem{{BytesOf(Str)}, {}, {}}))), "Internal error #4.");
  ExpectRefusal(Backup->RestoreFiles(Stored(EncodeItem(TFileSetItem{{}, {BytesOf(Data)}, {}}))), "Internal error #1.");
  ExpectRefusal(Backup->RestoreFiles(Stored(EncodeItem(TFileSetItem{{}, {}, {BytesOf(Str)}}))), "Internal error #6.");
  // A refused item is closed again.
  EXPECT_TRUE(DeleteFileA(ItemPath(Data).c_str()));
}

class DamagedItem : public BackupStore {
 protected:
  DamagedItem() {
    Write(App("app.dll"), "precious", ReadOnlyHidden);
    Before = TreeOf(App());
  }
  ~DamagedItem() override { EXPECT_EQ("", Difference(Before, TreeOf(App()))); }

  TSingleFileItem File() const { return {App("app.dll"), FILE_ATTRIBUTE_NORMAL, 1, 2, 3}; }
  HRESULT RestoreOneFile(const std::string& FileItem) {
    return Backup->RestoreFiles(Stored(EncodeItem(TFileSetItem{{BytesOf(Stored(FileItem))}, {}, {}})));
  }

  TTree Before;
};

TEST_F(DamagedItem, OfOneFileIsRefusedAtEveryLength) {
  const std::string Whole = EncodeItem(File());
  for (size_t Size = 0; Size < Whole.size(); ++Size) {
    SCOPED_TRACE(Size);
    ExpectRefusal(RestoreOneFile(Whole.substr(0, Size)), "Internal error #4.");
  }
}

TEST_F(DamagedItem, OfFilesIsRefusedAtEveryLengthButItsOwn) {
  const TGuidBytes Part = BytesOf(Stored(EncodeItem(File()) + "other content"));
  const std::string Whole = EncodeItem(TFileSetItem{{Part}, {Part}, {Part}});
  for (size_t Size = 0; Size < Whole.size(); ++Size) {
    SCOPED_TRACE(Size);
    ExpectRefusal(Backup->RestoreFiles(Stored(Whole.substr(0, Size))), "Internal error #6.");
  }
  ExpectRefusal(Backup->RestoreFiles(Stored(Whole + '\0')), "Internal error #6.");
}

TEST_F(DamagedItem, WithALieIsRefused) {
  const std::string Good = EncodeItem(File());
  for (const uint32_t Length : {0u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFCu}) {
    std::string Lie = Good;
    std::memcpy(&Lie[ItemTagSize], &Length, sizeof Length);
    ExpectRefusal(RestoreOneFile(Lie), "Internal error #4.");
    std::string List = EncodeItem(TFileSetItem{});
    if (Length == 0) continue;  // that is what it says already
    for (size_t At = ItemTagSize; At < List.size(); At += sizeof Length) {
      std::string Counts = List;
      std::memcpy(&Counts[At], &Length, sizeof Length);
      ExpectRefusal(Backup->RestoreFiles(Stored(Counts)), "Internal error #6.");
    }
  }
  for (const uint32_t Flags :
       {FILE_FLAG_DELETE_ON_CLOSE, FILE_FLAG_OVERLAPPED, FILE_FLAG_NO_BUFFERING, FILE_ATTRIBUTE_DIRECTORY | 0x20}) {
    TSingleFileItem Lie = File();
    Lie.Attributes = Flags;
    ExpectRefusal(RestoreOneFile(EncodeItem(Lie)), "Internal error #4.");
  }
  TSingleFileItem Lie = File();
  Lie.Path += std::string("\0.bak", 5);
  ExpectRefusal(RestoreOneFile(EncodeItem(Lie)), "Internal error #4.");
}

TEST_F(DamagedItem, ThatContainsItselfEnds) {
  const GUID Inner = NumberedGuid(1001), Outer = NumberedGuid(1002);
  Write(ItemPath(Inner), EncodeItem(TFileSetItem{{}, {}, {BytesOf(Outer)}}));
  Write(ItemPath(Outer), EncodeItem(TFileSetItem{{}, {}, {BytesOf(Inner)}}));
  ExpectRefusal(Backup->RestoreFiles(Outer), "Internal error #6.");
  // The same set twice, one beside the other, is no circle.
  const TGuidBytes Empty = BytesOf(Stored(EncodeItem(TFileSetItem{})));
  EXPECT_EQ(S_OK, Backup->RestoreFiles(Stored(EncodeItem(TFileSetItem{{}, {}, {Empty, Empty}}))));
}

}  // namespace
