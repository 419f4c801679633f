#include "rollback/undo_target.h"
#include "support/child.h"

namespace {

constexpr int Code = -3;

class UpdaterEntry : public TSandbox {
 protected:
  UpdaterEntry() { EXPECT_EQ(S_OK, Log_->Put(UpdaterClass, Code, NumberedGuid(4))); }
  HRESULT Rollback() {
    GUID CheckPoint{};
    return Log_->Rollback(VARIANT_FALSE, &CheckPoint);
  }

  const GUID UpdaterClass = Guid("{E39B3518-306A-4B3F-9095-5A3226FF60C9}");
  TComRef<IUTransactionLog> Log_ = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

TEST_F(UpdaterEntry, GoesToTheProgressWindowOfAnotherProcessAndToNothingElse) {
  const TUndoTarget Updater(UpdaterClass);
  TChild Program({"progress-window", std::to_string(Code)});
  ASSERT_TRUE(Program.WaitUntilReady());
  EXPECT_EQ(S_OK, Rollback());
  PostMessageA(FindWindowA("TMainForm", nullptr), WM_CLOSE, 0, 0);
  EXPECT_EQ(0u, Program.Wait());
  EXPECT_EQ("", Updater.Calls());
  EXPECT_FALSE(Exists(Service("update.prt")));
}

TEST_F(UpdaterEntry, GoesToTheUpdatersClassWithoutTheWindow) {
  const HWND Other =
      CreateWindowA("STATIC", "Orvane Updater - Update progress", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(Other);
  EXPECT_EQ(REGDB_E_CLASSNOTREG, Rollback());
  EXPECT_EQ(36u, Read(Service("update.prt")).size());
  const TUndoTarget Updater(UpdaterClass);
  EXPECT_EQ(S_OK, Rollback());
  EXPECT_EQ("-3 4", Updater.Calls());
  DestroyWindow(Other);
}

}  // namespace
