// How the cost of one item grows with their number.

#include "bench.h"
#include "formats/log_record.h"

namespace {

std::string Number(int Value) { return std::to_string(Value); }

/// A transaction log of entries for the class whose rollback does nothing.
void WriteLog(const TBench& Bench, int Entries) {
  std::string Content;
  for (int At = 1; At <= Entries; ++At) {
    const TLogRecordBytes Bytes = EncodeRecord({BytesOf(CLSID_UCanRollback), At, BytesOf(NumberedGuid(At))});
    Content.append(Bytes.begin(), Bytes.end());
  }
  Bench.ForgetChanges();
  Write(Bench.Service("update.prt"), Content);
}

constexpr int FilesInFolder = 10;

/// A tree of small files, ten in each folder.
struct TTreeSet {
  TTreeSet(const TBench& Bench, int Files) : Folder(Bench.Work("Tree" + Number(Files))) {
    for (int At = 0; At < Files; ++At)
      Write(Folder + "\\Folder" + Number(At / FilesInFolder) + "\\File" + Number(At) + ".dat", std::string(1000, 'm'));
  }
  ~TTreeSet() { RemoveTree(Folder); }
  GUID Backup(IUBackup& Store) const {
    GUID DataID{};
    Require(Store.BackupFiles(Text(Folder + "\\*.*"), VARIANT_TRUE, VARIANT_TRUE, VARIANT_TRUE, &DataID),
            "BackupFiles");
    return DataID;
  }
  std::string Folder;
};

/// Times backups, or restores of one backup each, for trees of all sizes.
TResult TreeCase(const TBench& Bench, bool Restore) {
  const std::vector<int> Sizes = Bench.Quick ? std::vector<int>{20, 40} : std::vector<int>{200, 1000, 2000};
  const TComRef<IUBackup> Store = Make<IUBackup>(CLSID_UBackup);
  std::vector<std::unique_ptr<TTreeSet>> Trees;
  std::vector<TVariant> Variants;
  for (const int Size : Sizes) {
    Trees.push_back(std::make_unique<TTreeSet>(Bench, Size));
    const TTreeSet& Tree = *Trees.back();
    if (Restore)
      Variants.push_back(
          {[] {}, [&, DataID = Tree.Backup(*Store)] { Require(Store->RestoreFiles(DataID), "RestoreFiles"); }});
    else
      Variants.push_back({[&] { Bench.ForgetChanges(); }, [&] { Tree.Backup(*Store); }});
  }
  const std::vector<TSamples> Times = Interleave(0, Bench.Quick ? 1 : 3, Variants);
  Bench.ForgetChanges();
  return Growth(Times, Sizes, Sizes);
}

}  // namespace

TResult LogPut(const TBench& Bench) {
  constexpr int Puts = 5;
  const std::vector<int> Sizes{10, 1000, 10000};
  const TComRef<IUTransactionLog> Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  std::vector<TVariant> Variants;
  for (const int Size : Sizes) {
    const auto Run = [&] {
      for (int At = 0; At < Puts; ++At) Require(Log->Put(CLSID_UCanRollback, 1, NumberedGuid(1)), "Put");
    };
    Variants.push_back({[&Bench, Size] { WriteLog(Bench, Size); }, Run});
  }
  const std::vector<TSamples> Times = Interleave(1, Bench.Quick ? 1 : 25, Variants);
  Bench.ForgetChanges();
  return Growth(Times, Sizes, std::vector<int>(Sizes.size(), Puts));
}

TResult LogRollback(const TBench& Bench) {
  const std::vector<int> Sizes = Bench.Quick ? std::vector<int>{10, 20} : std::vector<int>{100, 1000};
  const TComRef<IUTransactionLog> Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  std::vector<TVariant> Variants;
  for (const int Size : Sizes) {
    const auto Run = [&] {
      GUID CheckPoint{};
      Require(Log->Rollback(VARIANT_FALSE, &CheckPoint), "Rollback");
      if (Exists(Bench.Service("update.prt"))) throw EBench("the rollback left a log");
    };
    Variants.push_back({[&Bench, Size] { WriteLog(Bench, Size); }, Run});
  }
  const std::vector<TSamples> Times = Interleave(0, Bench.Quick ? 1 : 3, Variants);
  Bench.ForgetChanges();
  return Growth(Times, Sizes, Sizes);
}

TResult TreeBackup(const TBench& Bench) { return TreeCase(Bench, false); }
TResult TreeRestore(const TBench& Bench) { return TreeCase(Bench, true); }
