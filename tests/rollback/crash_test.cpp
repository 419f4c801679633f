#include "client/commands.h"
#include "support/changing_calls.h"
#include "support/child.h"
#include "support/sandbox.h"

namespace {

struct TSweep {
  const char* Name;
  const char* Made;   ///< the changes that are in the log already
  const char* Dying;  ///< what the process is at when it dies
  const char* Event;
  int Floor;                  ///< the sweep visits at least so many points
  bool RecoveryDies = false;  ///< whether the first attempt to roll back dies as well, each time elsewhere
};

/// The module stays loaded here, so that a dead process's locks live on and its count of the semaphore stays lost.
class CrashSweep : public TSandbox, public testing::WithParamInterface<TSweep> {
 protected:
  CrashSweep() : TSandbox(NoDoubles) {
    CoGetClassObject(CLSID_UTransactionLog, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid());
    Write(App("app.dll"), "the old content", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    Write(App("new.dll"), "new content", FILE_ATTRIBUTE_READONLY);
    Write(App("tree\\top.txt"), "top", FILE_ATTRIBUTE_HIDDEN);
    Write(App("tree\\sub\\low.txt"), "", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM);
    MakeFolders(App("tree\\sub\\empty"));
  }

  DWORD Make(const std::string& Changes, const std::string& Event = "nothing", int Point = 0) {
    return TChild({"make-changes", Changes, App(), Event, std::to_string(Point)}).Wait();
  }

  TComRef<IClassFactory> Loaded;
};

TEST_P(CrashSweep, RollbackInAnotherProcessBringsTheExactTreeBack) {
  const TSweep& Sweep = GetParam();
  const TTree Original = TreeOf(App());
  ASSERT_EQ(0u, Make(Sweep.Made));
  const TTree StartOfApp = TreeOf(App()), StartOfBase = TreeOf(Base());
  int Point = 0;
  for (DWORD Status = DiedStatus; Status == DiedStatus;) {
    SCOPED_TRACE("point " + std::to_string(++Point));
    Plant(App(), StartOfApp);
    Plant(Base(), StartOfBase);
    Status = Make(Sweep.Dying, Sweep.Event, Point);
    ASSERT_TRUE(Status == 0 || Status == DiedStatus) << Status;
    constexpr int Stride = 5, LongestRecovery = 40;
    if (Sweep.RecoveryDies) Make("rollback", "after", 1 + Point * Stride % LongestRecovery);
    ASSERT_EQ(0u, Make("rollback"));
    ASSERT_EQ("", Difference(Original, TreeOf(App())));
    ASSERT_FALSE(Exists(Service("update.prt")));
  }
  std::printf("%s: died at %d points\n", Sweep.Name, Point - 1);
  EXPECT_LE(Sweep.Floor, Point - 1);
}

// Before one call is after the one that came before it: one sweep of that kind is enough.
INSTANTIATE_TEST_SUITE_P(Sweeps, CrashSweep,
                         testing::Values(TSweep{"overwrite_before", "", "overwrite", "before", 18},
                                         TSweep{"overwrite_after", "", "overwrite", "after", 18, true},
                                         TSweep{"overwrite_torn", "", "overwrite", "torn", 4},
                                         TSweep{"create_after", "", "create", "after", 17, true},
                                         TSweep{"create_torn", "put", "create", "torn", 4},
                                         TSweep{"delete_after", "", "delete", "after", 34, true},
                                         TSweep{"delete_torn", "put", "delete", "torn", 11},
                                         TSweep{"rollback_after", "overwrite create delete", "rollback", "after", 48},
                                         TSweep{"rollback_torn", "overwrite create delete", "rollback", "torn", 4}),
                         [](const auto& Info) { return std::string(Info.param.Name); });

}  // namespace
