// mendctl collect

#include "mendctl/commands.h"
#include "mendctl/zip_writer.h"

namespace fs = std::filesystem;

namespace {

class TCollector {
 public:
  TCollector(const TContext& Context, const fs::path& File, bool Contents, uint64_t DebugLogBytes)
      : Context(Context), Zip(File), Contents(Contents), DebugLogBytes(DebugLogBytes) {}

  TReport Run() {
    const TContext Plain{Context.Machine, Context.State, TPaint(false)};
    Told("status", [&] { return Status(Plain); });
    Told("show", [&] { return Show(Plain, true); });
    Told("plan", [&] { return Plan(Plain, false); });
    Told("verify", [&] { return Verify(Plain); });
    Told("uninstall-log", [&] { return UninstallLog(Plain); });
    for (const fs::path& Path : FilesOf(Context.State.Service)) Whole(Path);
    for (const fs::path& Folder : {Context.State.History, Context.State.Garbage})
      for (const fs::path& Path : FilesOf(Folder)) Whole(Path);
    Whole(Context.State.UninstallLog);
    DebugLog();
    for (const TStoredFile& File : Context.State.StoredFiles()) Item(File);
    Notes += LeftOut ? Counted(LeftOut, "item") + " left out: there is no room for more entries\n" : "";
    Zip.Add("report/notes.txt", Notes);
    Zip.Finish();
    TReport Report;
    Report.Data = {{"entries", Zip.Count()}, {"contents", Contents}, {"notes", Notes}};
    Report.Text = Counted(Zip.Count(), "file") + " collected.\n" + Notes;
    return Report;
  }

 private:
  /// Files that hold no content of the application, and are not written endlessly.
  static constexpr uint64_t LargestFile = 64 << 20;

  void Told(const std::string& Name, const std::function<TReport()>& Command) {
    try {
      const TReport Report = Command();
      Zip.Add("report/" + Name + ".txt", Report.Text);
      Zip.Add("report/" + Name + ".json", Report.Data.dump(2, ' ', false, TJson::error_handler_t::replace) + "\n");
    } catch (const ECannotRead& Failure) {
      Notes += Name + ": " + Failure.File + ": " + Failure.Why + "\n";
    }
  }

  /// The name below the base folder, so that the collected folder can be read as one.
  std::string NameIn(const fs::path& Path) const {
    const std::u8string Name = Path.lexically_relative(Context.State.Base).generic_u8string();
    return {reinterpret_cast<const char*>(Name.data()), Name.size()};
  }

  void Piece(const fs::path& Path, uint64_t From, uint64_t Most) {
    try {
      Zip.Add(NameIn(Path), TReadableFile(Path).Text(From, Most));
    } catch (const ECannotRead& Failure) {
      Notes += NameIn(Path) + ": " + Failure.Why + "\n";
    }
  }

  void Whole(const fs::path& Path) {
    const std::optional<TFileNow> Now = TMachine::LookAt(Path);
    if (!Now || Now->IsFolder) return;
    if (Now->Size > LargestFile) Notes += NameIn(Path) + ": only the first " + SizeText(LargestFile) + "\n";
    Piece(Path, 0, LargestFile);
  }

  void DebugLog() {
    const std::optional<TFileNow> Now = TMachine::LookAt(Context.State.DebugLog);
    if (!Now) return;
    const uint64_t From = Now->Size > DebugLogBytes ? Now->Size - DebugLogBytes : 0;
    if (From) Notes += "update.log: only the last " + SizeText(DebugLogBytes) + "\n";
    Piece(Context.State.DebugLog, From, DebugLogBytes);
  }

  /// Of an item of kind 3 that is neither a saved file nor a registry key only the kind: it is a caller's own data.
  void Item(const TStoredFile& File) {
    constexpr uint64_t RoomForReports = 64;
    if (Zip.Count() + RoomForReports >= TZipWriter::MostEntries) {
      ++LeftOut;
      return;
    }
    const auto Id = ParseGuid(File.Name);
    if (!Id) return;
    const fs::path Path = Context.State.Backup / PathFrom(File.Name);
    uint8_t Tag[ItemTagSize] = {};
    try {
      TReadableFile(Path).ReadAt(0, Tag, sizeof Tag);
    } catch (const ECannotRead& Failure) {
      Notes += NameIn(Path) + ": " + Failure.Why + "\n";
      return;
    }
    uint64_t Most = LargestFile;
    if (Tag[0] == SingleFileKind && !Contents) Most = SizeWithoutContent(*Id);
    if (Most < File.Size)
      Notes += NameIn(Path) + ": the first " + std::to_string(Most) + " of " + Counted(File.Size, "byte") + "\n";
    Piece(Path, 0, Most);
  }

  uint64_t SizeWithoutContent(const TGuidBytes& DataID) const {
    const TItemReaderOf Reader(Context.State);
    const TSaved File = Reader.Read(TLayout::File, DataID);
    if (!File.Files.empty()) return File.Files.front().ContentAt;
    return Reader.Read(TLayout::Key, DataID, false).Keys.empty() ? uint64_t{ItemTagSize} : LargestFile;
  }

  const TContext& Context;
  TZipWriter Zip;
  const bool Contents;
  const uint64_t DebugLogBytes;
  std::string Notes;
  size_t LeftOut = 0;
};

}  // namespace

TReport Collect(const TContext& Context, const fs::path& File, bool Contents, uint64_t DebugLogBytes) {
  return TCollector(Context, File, Contents, DebugLogBytes).Run();
}
