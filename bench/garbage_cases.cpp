// The removal of what the garbage lists hold.

#include "base/folder_content.h"
#include "base/text.h"
#include "bench.h"
#include "retry/folder_walk.h"

namespace {

constexpr int FilesInFolder = 10;

/// Files of one byte, ten in each folder, below a folder of their own.
void MakeFiles(const std::string& Folder, int Files) {
  for (int At = 0; At < Files; ++At) {
    const std::string Sub = Folder + "\\Folder" + std::to_string(At / FilesInFolder);
    if (At % FilesInFolder == 0) MakeFolders(Sub);
    const TFileHandle File(CreateFileA((Sub + "\\File" + std::to_string(At) + ".dat").c_str(), GENERIC_WRITE, 0,
                                       nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    Require(static_cast<bool>(File), "CreateFile");
  }
}

std::string List(const TBench& Bench, const char* Name) { return Bench.Service("Garbage\\" + std::string(Name)); }

std::string ContentOf(const std::string& ListName) {
  const std::string Content = Read(ListName);
  Require(DeleteFileA(ListName.c_str()) != FALSE, "DeleteFile of a list");
  return Content;
}

/// The calls that the removal of a tree cannot do without, in their order.
void RemoveBare(const std::string& Folder) {
  WIN32_FIND_DATAA Entry;
  Require(GetFileAttributesA(Folder.c_str()) != INVALID_FILE_ATTRIBUTES, "GetFileAttributes");
  {
    const TFileHandle Held(HoldFolder(ToWide(Folder)));
    BY_HANDLE_FILE_INFORMATION Facts;
    GetFileInformationByHandle(Held.Get(), &Facts);
    const TFindHandle Search(FindFirstFileA((Folder + "\\*.*").c_str(), &Entry));
    do {
      if (Entry.cFileName[0] == '.') continue;
      const std::string Path = Folder + "\\" + Entry.cFileName;
      if (IsFolder(Entry))
        RemoveBare(Path);
      else
        DeleteFileA(Path.c_str());
    } while (FindNextFileA(Search.Get(), &Entry));
  }
  RemoveDirectoryA(Folder.c_str());
}

/// The lines of a list of files, each removed where it is read.
void RemoveBareList(const std::string& Lines) {
  for (size_t At = 0; At < Lines.size();) {
    const size_t End = Lines.find("\r\n", At);
    DeleteFileA(Lines.substr(At, End - At).c_str());
    At = End + 2;
  }
}

}  // namespace

TResult GarbageRemoval(const TBench& Bench) {
  const int Files = Bench.Quick ? 40 : 2000;
  const std::string Tree = Bench.Work("Tree"), Loose = Bench.Work("Loose");
  const TComRef<IUGarbage> Garbage = Make<IUGarbage>(CLSID_UGarbage);
  std::string Lines;
  // Half of the files by their names, half with the folder that holds them; the emptied folders go in the same way.
  const auto Fill = [&] {
    MakeFiles(Loose, Files / 2);
    MakeFiles(Tree, Files / 2);
  };
  for (int At = 0; At < Files / 2; ++At)
    Lines += Loose + "\\Folder" + std::to_string(At / FilesInFolder) + "\\File" + std::to_string(At) + ".dat\r\n";
  const auto PrepareOurs = [&] {
    Fill();
    Write(List(Bench, "Files.grb"), Lines);
    Write(List(Bench, "Dirs.grb"), Tree + "\r\n" + Loose + "\r\n");
  };
  const auto PrepareBare = [&] {
    Fill();
    Write(List(Bench, "Files.grb"), Lines);
  };
  const auto RunBare = [&] {
    RemoveBareList(ContentOf(List(Bench, "Files.grb")));
    RemoveBare(Tree);
    RemoveBare(Loose);
  };
  const std::vector<TSamples> Times = Interleave(
      1, Bench.Quick ? 1 : 9, {{PrepareOurs, [&] { Require(Garbage->Garbage(), "Garbage"); }}, {PrepareBare, RunBare}});
  if (Exists(Tree) || Exists(Loose)) throw EBench("the removal left something");
  const double PerFile = 1.0 / Files;
  return {Times[0].Over(Times[1]).Median(),
          Times[0].Count(),
          {{"Garbage, a file", Times[0].Median() * PerFile, "us"},
           {"bare calls, a file", Times[1].Median() * PerFile, "us"},
           {"of the least", Times[0].Least() / Times[1].Least(), ""}}};
}

TResult GarbageGrowth(const TBench& Bench) {
  const std::vector<int> Sizes = Bench.Quick ? std::vector<int>{10, 100} : std::vector<int>{100, 1000, 10000};
  const TComRef<IUGarbage> Garbage = Make<IUGarbage>(CLSID_UGarbage);
  std::vector<TVariant> Variants;
  for (const int Size : Sizes) {
    std::string Lines;
    for (int At = 0; At < Size; ++At) Lines += Bench.Work("No file of this name " + std::to_string(At)) + "\r\n";
    Variants.push_back(
        {[&Bench, Lines] { Write(List(Bench, "Files.grb"), Lines); }, [&] { Require(Garbage->Garbage(), "Garbage"); }});
  }
  const std::vector<TSamples> Times = Interleave(1, Bench.Quick ? 1 : 9, Variants);
  return Growth(Times, Sizes, Sizes);
}
