#pragma once

#include "support/fault.h"
#include "support/sandbox.h"

#include <cstring>

/// A file object with the transaction log that its logged forms write.
class TFileTest : public TSandbox {
 protected:
  HRESULT Copy(bool Logged, const std::string& Source, const std::string& Dest, long CopyMode = 0) {
    return Logged ? File->CopyFileLogged(Text(App(Source)), Text(App(Dest)), CopyMode)
                  : File->CopyFile(Text(App(Source)), Text(App(Dest)), CopyMode);
  }
  void RollbackToStart() {
    GUID CheckPoint{};
    ASSERT_EQ(S_OK, TransactionLog->Rollback(VARIANT_FALSE, &CheckPoint)) << ErrorText();
    EXPECT_FALSE(Exists(Service("update.prt")));
  }
  /// "code {item}" of every entry that the file class has in the transaction log; another class's shows as "foreign".
  std::vector<std::string> Entries() {
    std::vector<std::string> Result;
    const std::string Content = Exists(Service("update.prt")) ? Read(Service("update.prt")) : "";
    for (size_t At = 0; At + 36 <= Content.size(); At += 36) {
      GUID Id, DataID;
      int Code = 0;
      std::memcpy(&Id, Content.data() + At, 16);
      std::memcpy(&Code, Content.data() + At + 16, 4);
      std::memcpy(&DataID, Content.data() + At + 20, 16);
      Result.push_back(Id == CLSID_UFile ? std::to_string(Code) + " " + GuidText(DataID) : "foreign");
    }
    return Result;
  }
  /// What follows the routine's name in its last End line.
  std::string EndOf(const std::string& Routine) {
    const std::string Beginning = "End " + Routine + " ";
    std::string Result = "<none>";
    for (const std::string& Line : Log().Texts("UFile"))
      if (Line.rfind(Beginning, 0) == 0) Result = Line.substr(Beginning.size());
    return Result;
  }
  /// The names of all that is in the application, joined with blanks.
  std::string Names() {
    std::string Result;
    for (const auto& [Name, Entry] : TreeOf(App())) Result += (Result.empty() ? "" : " ") + Name;
    return Result;
  }

  static constexpr char NoItem[] = "{00000000-0000-0000-0000-000000000000}";
  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IUTransactionLog> TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
};
