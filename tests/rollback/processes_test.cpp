// A process dies at each call of an append: the next one finds the log as it was or with the entry, and the lock free.

#include "stories/story.h"
#include "support/module_calls.h"
#include "support/process.h"

namespace {

/// put EVENT N: an entry of the transaction log; the event happens at the N-th changing call.
const TRole PutEntry("put", [](const TWords& Words, TScriptedDialog&) {
  const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  PlanEvent(Words.at(0), std::stoi(Words.at(1)));
  const HRESULT Result = Log->Put(CLSID_UCanRollback, 5, NumberedGuid(5));
  PlanEvent("nothing", 0);
  return FAILED(Result) ? 1 : 0;
});

/// The module stays loaded here, so that a dead process's locks live on and its count of the semaphore stays lost.
class Processes : public TSandboxTest {
 protected:
  Processes() : TSandboxTest(NoDoubles) {}
  const TComRef<IUTransactionLog> Loaded = Make<IUTransactionLog>(CLSID_UTransactionLog);
};

/// How often the transaction log's semaphore can be taken without waiting.
int SemaphoreCount() {
  const TKernelHandle Semaphore(
      OpenSemaphoreA(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GuidText(CLSID_UTransactionLog).c_str()));
  int Count = 0;
  while (Count < 3 && WaitForSingleObject(Semaphore.Get(), 0) == WAIT_OBJECT_0) ++Count;
  if (Count > 0) ReleaseSemaphore(Semaphore.Get(), Count, nullptr);
  return Count;
}

TEST_F(Processes, ADeadOneBlocksNobodyAndCostsNoEntryWhereverItHeldTheLock) {
  const auto Entry = [](int Code) { return TStory::RecordOf(CLSID_UCanRollback, Code, NumberedGuid(Code)); };
  int Point = 0, TookSemaphore = 0;
  for (bool Ended = false; !Ended;) {
    SCOPED_TRACE(++Point);
    Write(Service("update.prt"), Entry(1) + Entry(2));
    TChild Holder({"put", "stop", std::to_string(Point)});
    Ended = !Holder.WaitUntilReady();
    TookSemaphore += SemaphoreCount() == 0;
    TChild Next({"put", "nothing", "0"});  // may be waiting already when the holder dies
    EXPECT_TRUE(!Ended || Holder.Wait() == 0);
    Holder.Kill();
    ASSERT_EQ(0u, Next.Wait());
    EXPECT_EQ(Entry(1) + Entry(2) + (Ended ? Entry(5) : "") + Entry(5), Read(Service("update.prt")));
    EXPECT_FALSE(Exists(Service("update.prt.bkp")));
    EXPECT_EQ(1, SemaphoreCount());
  }
  EXPECT_LT(TookSemaphore, Point);
  EXPECT_LE(4, TookSemaphore) << "the holder was killed inside the lock too seldom";
}

}  // namespace
