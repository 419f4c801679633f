// The kit: a folder tree that replaces another, file by file and in one call, beside a loop without any of its care.

#include "bench.h"
#include "kit/interfaces.h"

namespace {

/// Small files in some folders, which are copied over others of the same names.
class TSmallTree {
 public:
  explicit TSmallTree(const TBench& Bench) : Bench(Bench) {
    MakeFiles(Source, 'n');
    Require(Kit->Log(Text(Bench.Work("kit-log")), 0), "Log");
  }
  ~TSmallTree() {
    for (const std::string& Folder : {Source, Dest, Saved}) RemoveTree(Folder);
    Kit->Log(nullptr, 0);
    RemoveTree(Bench.Work("kit-log"));
    Bench.ForgetChanges();
  }
  TSmallTree(const TSmallTree&) = delete;
  TSmallTree& operator=(const TSmallTree&) = delete;

  void CopyEach() const {
    for (const std::string& Name : Names)
      Require(Kit->CopyFileLogged(Text(Source + Name), Text(Dest + Name), 0), "CopyFileLogged");
  }
  void CopyAtOnce() const {
    TBstr Told;
    Require(Kit->CopyTreeLogged(Text(Source), Text(Dest), nullptr, 0, Told.Out()), "CopyTreeLogged");
  }
  /// The kit against the bare loop that flushes each copy; the loop without is there for the record.
  TResult Compare(void (TSmallTree::*Copy)() const) const {
    const auto Prepare = [&] {
      Bench.ForgetChanges();
      RemoveTree(Saved);
      for (const std::string& Name : Names) MakeFolders(Saved + Name.substr(0, Name.rfind('\\')));
      MakeFiles(Dest, 'o');
    };
    const std::vector<TSamples> Times = Interleave(1, Bench.Quick ? 1 : 5,
                                                   {{Prepare, [&] { (this->*Copy)(); }},
                                                    {Prepare, [&] { CopyBarely(TFlush::EachCopy); }},
                                                    {Prepare, [&] { CopyBarely(TFlush::Nothing); }}});
    const auto Each = [&](size_t At) { return Times[At].Median() / static_cast<double>(Names.size()); };
    return {Times[0].Over(Times[1]).Median(),
            Times[0].Count(),
            {{"ratio of the least", Times[0].Least() / Times[1].Least(), ""},
             {"ratio to not flushed", Times[0].Over(Times[2]).Median(), ""},
             {"a file, kit", Each(0), "us"},
             {"flushed", Each(1), "us"},
             {"not flushed", Each(2), "us"}}};
  }

 private:
  /// Each file is copied away, into as many folders as it came from, deleted, and copied.
  void CopyBarely(TFlush Flush) const {
    for (const std::string& Name : Names) {
      BareCopy(Dest + Name, Saved + Name, "", Flush);
      Require(DeleteFileA((Dest + Name).c_str()) != FALSE, "DeleteFile");
      BareCopy(Source + Name, Dest + Name, "", Flush);
    }
  }
  void MakeFiles(const std::string& Folder, char Byte) const {
    constexpr size_t Size = 4096;
    for (const std::string& Name : Names) Write(Folder + Name, std::string(Size, Byte));
  }
  static std::vector<std::string> NamesBelow(int Folders, int FilesOfEach) {
    std::vector<std::string> Result;
    for (int Folder = 0; Folder < Folders; ++Folder)
      for (int File = 0; File < FilesOfEach; ++File)
        Result.push_back("\\folder" + std::to_string(Folder) + "\\file" + std::to_string(File));
    return Result;
  }

  const TBench& Bench;
  const std::vector<std::string> Names = Bench.Quick ? NamesBelow(4, 5) : NamesBelow(40, 25);
  const std::string Source = Bench.Work("kit-source"), Dest = Bench.Work("kit-dest"), Saved = Bench.Work("kit-saved");
  const TComRef<IKit> Kit = Make<IKit>(CLSID_Kit);
};

}  // namespace

TResult KitCopies(const TBench& Bench) { return TSmallTree(Bench).Compare(&TSmallTree::CopyEach); }
TResult KitTree(const TBench& Bench) { return TSmallTree(Bench).Compare(&TSmallTree::CopyAtOnce); }
