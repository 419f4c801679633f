// Many small logged copies: beside the bare calls, with and without what is flushed, and with a backup store that holds
// many items already.

#include "bench.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr size_t SmallSize = 4096;

/// Small files that are copied over others, logged.
struct TSmallFiles {
  TSmallFiles(const TBench& Bench, int Count, size_t Size = SmallSize) : Bench(Bench), Count(Count) {
    Write(Source, std::string(Size, 'm'));
  }
  ~TSmallFiles() {
    for (int At = 0; At < Count; ++At) DeleteFileA(Dest(At).c_str());
    DeleteFileA(Source.c_str());
    Bench.ForgetChanges();
  }
  std::string Dest(int At) const { return Bench.Work("dest" + std::to_string(At)); }
  void Prepare() const {
    Bench.ForgetChanges();
    for (int At = 0; At < Count; ++At) Write(Dest(At), Read(Source));
  }
  void Copy() const {
    for (int At = 0; At < Count; ++At) Require(File->CopyFileLogged(Text(Source), Text(Dest(At)), 0), "CopyFileLogged");
  }
  TVariant Module() const {
    return {[this] { Prepare(); }, [this] { Copy(); }};
  }
  /// Both files are looked for. One is saved in an item, and a set of one in another; that is recorded; then it is
  /// deleted and copied.
  void CopyBarely() const {
    for (int At = 0; At < Count; ++At) {
      const std::string Item = Bench.Service("Backup\\" + GuidText(NumberedGuid(At)));
      BareLook(Source), BareLook(Dest(At)), BareLook(Dest(At));
      BareCopy(Dest(At), Item, std::string(36, 'h') + Dest(At));
      BareItem(Item + "set", std::string(36, 's'));
      BareEntry(Bench.Service("update.prt"));
      BareDelete(Dest(At));
      BareCopy(Source, Dest(At));
    }
  }

  const TBench& Bench;
  const int Count;
  const std::string Source = Bench.Work("small.bin");
  const TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
};

BOOL WINAPI FlushNothing(HANDLE) { return TRUE; }

/// The name under which Wine takes a file of this name without a look at the other names in its folder; on Windows, the
/// name itself. Only so can a folder be filled with very many files.
std::wstring DirectName(const std::string& FolderName, const std::string& Name) {
  using TUnixFileName = char*(CDECL*)(const WCHAR* Name);
  const std::wstring Folder = ToWide(FolderName);
  const auto UnixFileName = reinterpret_cast<TUnixFileName>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32"), "wine_get_unix_file_name")));
  char* const Found = UnixFileName ? UnixFileName(Folder.c_str()) : nullptr;
  if (!Found) return Folder + L"\\" + ToWide(Name);
  std::wstring Direct = L"\\\\?\\unix" + ToWide(std::string(Found) + "/" + Name);
  HeapFree(GetProcessHeap(), 0, Found);
  std::ranges::replace(Direct, L'/', L'\\');
  return Direct;
}

void MakeItem(const std::wstring& Name) {
  const TFileHandle File(CreateFileW(Name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD Written = 0;
  if (!File || !WriteFile(File.Get(), "item", 4, &Written, nullptr)) throw std::runtime_error("no item could be made");
}

}  // namespace

TResult SmallCopies(const TBench& Bench) {
  const TSmallFiles Files(Bench, Bench.Quick ? 20 : 1000);
  return Bench.Compare(Files.Module(), {[&] { Files.Prepare(); }, [&] { Files.CopyBarely(); }}, 0, Bench.Quick ? 1 : 3,
                       Files.Count);
}

TResult Flushes(const TBench& Bench) {
  constexpr size_t BigSize = 64 << 20;
  TResult Result{0, 0, {}};
  const struct {
    const char* Name;
    int Count;
    size_t Size;
  } Kinds[] = {{"4 KiB", 1, SmallSize}, {"64 MiB", 1, BigSize}, {"1,000 of 4 KiB", Bench.Quick ? 20 : 1000, SmallSize}};
  for (const auto& [Name, Count, Size] : Kinds) {
    const TSmallFiles Files(Bench, Count, Size);
    const TVariant Without{[&] { Files.Prepare(); },
                           [&] {
                             const TImportPatch Patch("FlushFileBuffers", FlushNothing);
                             Files.Copy();
                           }};
    const std::vector<TSamples> Times = Interleave(1, Bench.Quick ? 1 : Count == 1 ? 15 : 3, {Files.Module(), Without});
    Result.Value = Times[0].Over(Times[1]).Median();
    Result.Samples = Times[0].Count();
    Result.Figures.push_back({std::string(Name) + ", ratio", Result.Value, ""});
    Result.Figures.push_back({std::string(Name) + ", flushed", Times[0].Median() / 1e3, "ms"});
    Result.Figures.push_back({std::string(Name) + ", not flushed", Times[1].Median() / 1e3, "ms"});
  }
  return Result;
}

TResult LargeStore(const TBench& Bench) {
  constexpr int Copies = 20;
  const TSmallFiles Files(Bench, Copies);
  const std::vector<int> Sizes = Bench.Quick ? std::vector<int>{0, 100} : std::vector<int>{0, 5000, 20000, 80000};
  std::vector<TSamples> Times;
  int Items = 0;
  Files.Prepare();
  for (const int Size : Sizes) {
    for (; Items < Size; ++Items) MakeItem(DirectName(Bench.Service("Backup"), GuidText(NumberedGuid(Items))));
    Times.push_back(Interleave(1, Bench.Quick ? 1 : 5, {{[] {}, [&] { Files.Copy(); }}}).front());
  }
  return Growth(Times, Sizes, std::vector<int>(Sizes.size(), Copies));
}
