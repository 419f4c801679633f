#include "rollback/undo_target.h"
#include "support/process.h"

namespace {

constexpr int Code = -3;

constexpr UINT RollbackMessage = 0x7EB;
std::vector<std::pair<WPARAM, LPARAM>> Messages;
LRESULT CALLBACK NoteMessage(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) {
  if (Message == RollbackMessage) Messages.emplace_back(WParam, LParam);
  return DefWindowProcA(Window, Message, WParam, LParam);
}

class UpdaterEntry : public TSandboxTest {
 protected:
  UpdaterEntry() { EXPECT_EQ(S_OK, Log_->Put(UpdaterClass, Code, NumberedGuid(4))); }
  HRESULT Rollback() {
    GUID CheckPoint{};
    return Log_->Rollback(VARIANT_FALSE, &CheckPoint);
  }

  const GUID UpdaterClass = Guid("{E39B3518-306A-4B3F-9095-5A3226FF60C9}");
  TComRef<IUTransactionLog> Log_ = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

TEST_F(UpdaterEntry, GoesToTheProgressWindowAndToNothingElse) {
  const TUndoTarget Updater(UpdaterClass);
  WNDCLASSA Class{};
  Class.lpfnWndProc = NoteMessage;
  Class.lpszClassName = "TMainForm";
  RegisterClassA(&Class);
  const HWND Window =
      CreateWindowA("TMainForm", "Orvane Updater - Update progress", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(S_OK, Rollback());
  DestroyWindow(Window);
  // A negative code arrives as the signed number that it is, whatever the width of a message parameter.
  EXPECT_EQ((std::vector{std::pair{static_cast<WPARAM>(Code), LPARAM{0}}}), Messages);
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
