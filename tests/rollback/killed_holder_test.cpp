#include "client/commands.h"
#include "rollback/log_record.h"
#include "support/child.h"
#include "support/sandbox.h"

namespace {

class KilledHolder : public TSandbox {
 protected:
  KilledHolder() : TSandbox(NoDoubles) {
    // The module is loaded here for the whole test: the lock's names must not go with the process that is killed.
    CoGetClassObject(CLSID_UTransactionLog, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid());
  }

  static std::string Entry(int Code, int Number) {
    const TLogRecordBytes Bytes = EncodeRecord({BytesOf(CLSID_UCanRollback), Code, BytesOf(NumberedGuid(Number))});
    return std::string(Bytes.begin(), Bytes.end());
  }

  /// How often the lock's semaphore can be taken without waiting.
  static int SemaphoreCount() {
    const TKernelHandle Semaphore(
        OpenSemaphoreA(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GuidText(CLSID_UTransactionLog).c_str()));
    int Count = 0;
    while (Count < 3 && WaitForSingleObject(Semaphore.Get(), 0) == WAIT_OBJECT_0) ++Count;
    if (Count > 0) ReleaseSemaphore(Semaphore.Get(), Count, nullptr);
    return Count;
  }

  TComRef<IClassFactory> Loaded;
};

TEST_F(KilledHolder, BlocksNobodyAndCostsNoEntryWhereverItStood) {
  const std::string Old = Entry(1, 1) + Entry(2, 2);
  int Point = 0, TookSemaphore = 0;
  for (bool Ended = false; !Ended;) {
    SCOPED_TRACE("point " + std::to_string(++Point));
    Write(Service("update.prt"), Old);
    TChild Holder({"make-changes", "put", App(), "stop", std::to_string(Point)});
    Ended = !Holder.WaitUntilReady();
    TookSemaphore += SemaphoreCount() == 0;
    TChild Next({"put-entries", "9", "1"});  // may be waiting already when the holder dies
    ASSERT_TRUE(Next.WaitUntilReady());
    Next.Continue();
    if (Ended) {
      ASSERT_EQ(0u, Holder.Wait());
    }
    Holder.Kill();
    ASSERT_EQ(0u, Next.Wait());
    EXPECT_EQ(Old + (Ended ? Entry(PutChangeCode, 1) : "") + Entry(9, 9), Read(Service("update.prt")));
    EXPECT_FALSE(Exists(Service("update.prt.bkp")));
    EXPECT_EQ(1, SemaphoreCount());
  }
  EXPECT_LT(TookSemaphore, Point);
  EXPECT_LE(4, TookSemaphore) << "the holder was killed inside the lock too seldom";
}

}  // namespace
