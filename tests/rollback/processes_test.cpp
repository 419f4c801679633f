// More than one process: they record side by side, and they die at any call of a change and of its rollback.

#include "stories/story.h"
#include "support/module_calls.h"
#include "support/process.h"

namespace {

/// change WHAT FOLDER EVENT N: makes a logged change, or rolls back; the event happens at the N-th changing call.
const TRole Change("change", [](const TWords& Words, TScriptedDialog&) {
  const auto File = Make<IUFile>(CLSID_UFile);
  const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  const auto App = [&](const char* Name) { return Text(Words[1] + Name); };
  PlanEvent(Words.at(2), std::stoi(Words.at(3)));
  const HRESULT Result = Words[0] == "put"    ? Log->Put(CLSID_UCanRollback, 5, NumberedGuid(5))
                         : Words[0] == "copy" ? File->CopyFileLogged(App("\\new.dll"), App("\\app.dll"), 0)
                         : Words[0] == "delete"
                             ? File->DeleteFilesLogged(App("\\tree\\*.*"), VARIANT_TRUE, VARIANT_TRUE, VARIANT_TRUE)
                             : RollBack();
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
    SCOPED_TRACE("point " + std::to_string(++Point));
    Write(Service("update.prt"), Entry(1) + Entry(2));
    TChild Holder({"change", "put", App(), "stop", std::to_string(Point)});
    Ended = !Holder.WaitUntilReady();
    TookSemaphore += SemaphoreCount() == 0;
    TChild Next({"change", "put", App(), "nothing", "0"});  // may be waiting already when the holder dies
    if (Ended) {
      ASSERT_EQ(0u, Holder.Wait());
    }
    Holder.Kill();
    ASSERT_EQ(0u, Next.Wait());
    EXPECT_EQ(Entry(1) + Entry(2) + (Ended ? Entry(5) : "") + Entry(5), Read(Service("update.prt")));
    EXPECT_FALSE(Exists(Service("update.prt.bkp")));
    EXPECT_EQ(1, SemaphoreCount());
  }
  EXPECT_LT(TookSemaphore, Point);
  EXPECT_LE(4, TookSemaphore) << "the holder was killed inside the lock too seldom";
}

/// The torture does this to an update of everything; here it is shown on two changes, whose recovery dies as well.
TEST_F(Processes, ThatDieAtAnyCallLeaveWhatARollbackBringsBack) {
  Write(App("app.dll"), "the old content", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  Write(App("new.dll"), "new content", FILE_ATTRIBUTE_READONLY);
  Write(App("tree\\sub\\low.txt"), "", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM);
  MakeFolders(App("tree\\sub\\empty"));
  const TTree Original = TreeOf(App());
  const auto Run = [&](const std::string& What, const std::string& Event, int Point) {
    return TChild({"change", What, App(), Event, std::to_string(Point)}).Wait();
  };
  for (const auto& [What, Event, Least] :
       {std::tuple{"copy", "after", 17}, {"copy", "torn", 4}, {"delete", "after", 25}}) {
    int Point = 0;
    for (DWORD Status = DiedStatus; Status == DiedStatus;) {
      SCOPED_TRACE(std::string(What) + " " + Event + " " + std::to_string(++Point));
      Status = Run(What, Event, Point);
      ASSERT_TRUE(Status == 0 || Status == DiedStatus) << Status;
      Run("rollback", "after", 1 + Point * 5 % 40);
      ASSERT_EQ(0u, Run("rollback", "nothing", 0));
      ASSERT_EQ("", Difference(Original, TreeOf(App())));
      ASSERT_FALSE(Exists(Service("update.prt")));
    }
    EXPECT_LE(Least, Point - 1) << What;
  }
}

}  // namespace
