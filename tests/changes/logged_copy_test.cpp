#include "support/sandbox.h"

namespace {

class LoggedCopy : public TSandbox {
 protected:
  void RollbackToStart() {
    GUID CheckPoint{};
    ASSERT_EQ(S_OK, TransactionLog->Rollback(VARIANT_FALSE, &CheckPoint)) << ErrorText();
  }
  HRESULT Copy(const std::string& Source, const std::string& Dest, long CopyMode) {
    return File->CopyFileLogged(Text(App(Source)), Text(App(Dest)), CopyMode);
  }

  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IUTransactionLog> TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

TEST_F(LoggedCopy, RollbackBringsTheOverwrittenFileBack) {
  Write(App("app.dll"), "old", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  Write(App("new.dll"), "new");
  const TTree Before = TreeOf(App());
  ASSERT_EQ(S_OK, Copy("new.dll", "app.dll", 0)) << ErrorText();
  EXPECT_EQ("new", Read(App("app.dll")));
  RollbackToStart();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  EXPECT_FALSE(Exists(Service("update.prt")));
}

}  // namespace
