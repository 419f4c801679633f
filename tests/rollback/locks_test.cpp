// The locks of the shared files: calls that come in on the same thread, threads and processes that wait, and objects
// that cannot be had.

#include "stories/story.h"
#include "support/process.h"

#include <sddl.h>

#include <cstring>
#include <thread>

namespace {

const GUID Undone = Guid("{6E1C0B5A-92D4-4F0B-8C57-3B1D0A9E7F42}");
const GUID Updater = Guid("{E39B3518-306A-4B3F-9095-5A3226FF60C9}");
constexpr char Asked[] = "mendwork-tests.asked";

class Locks : public TStory {};

// While a line is written, which an object of another process may do, calls of the same thread come in.
TEST_F(Locks, LetNoCallOfTheSameThreadIntoAnotherOne) {
  const auto PutAnEntry = [&] { return Transactions->Put(Undone, 1, GUID{}); };
  const auto PutARecord = [&] { return History->Put(Undone, 1, GUID{}); };
  const auto SizeOf = [&](const std::string& Name) { return Exists(Service(Name)) ? Read(Service(Name)).size() : 0; };
  for (const auto& [Put, Name] : {std::pair{std::function(PutAnEntry), std::string("update.prt")},
                                  {std::function(PutARecord), "History\\" + GuidText(Undone)}}) {
    size_t Acknowledged = 0, Refused = 0;
    for (int Line = 0; Line < 30; ++Line) {
      int Left = Line;
      Log().OnLine = [&] {
        if (Left-- == 0) Put() == S_OK ? ++Acknowledged : ++Refused;
      };
      EXPECT_EQ(S_OK, Put()) << Name << ErrorText();
      EXPECT_EQ(36 * ++Acknowledged, SizeOf(Name)) << "line " << Line;
    }
    EXPECT_GT(Refused, 5u) << Name;
    Log().OnLine = nullptr;
  }
  const TFault Fault("ReadFile", {0, 1, ERROR_CRC});  // what cannot be read for a moment is not taken for zeros
  EXPECT_EQ(S_OK, PutAnEntry());
  EXPECT_FALSE(Exists(Service("update.prt.damaged1")));
}

// ---- A rollback whose message goes to a window of a thread that waits for the same lock

constexpr char WindowClass[] = "TMainForm";

const TRole WaitingUpdater("waiting-updater", [](const TWords&, TScriptedDialog&) {
  const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  const WNDCLASSA Class{0, DefWindowProcA, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, WindowClass};
  RegisterClassA(&Class);
  CreateWindowA(WindowClass, "Orvane Updater - Update progress", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  SetEvent(TKernelHandle(OpenEventA(EVENT_MODIFY_STATE, FALSE, Asked)).Get());
  return Log->Put(Updater, 2, GUID{}) == S_OK ? 0 : 1;
});

struct TSlowTarget final : TDouble<IUCanRollback> {
  STDMETHOD(Rollback)(long, GUID) override {
    WaitForSingleObject(Event.Get(), INFINITE);
    Sleep(300);  // by now the other one waits for the lock
    return S_OK;
  }
  const TKernelHandle Event{CreateEventA(nullptr, TRUE, FALSE, Asked)};
};

TEST_F(Locks, LetMessagesInWhileTheyAreWaitedFor) {
  auto* const Target = new TSlowTarget;
  const DWORD Entry = RegisterActive(Target, Undone);
  EXPECT_EQ(S_OK, Transactions->Put(Updater, 1, GUID{}));
  EXPECT_EQ(S_OK, Transactions->Put(Undone, 1, GUID{}));
  TChild Other({"waiting-updater"});
  EXPECT_EQ(S_OK, RollBack());
  EXPECT_EQ(0u, Other.Wait());
  EXPECT_EQ(RecordOf(Updater, 2, GUID{}), Read(Service("update.prt")));
  RevokeActive(Entry);
}

class LockObjects : public TSandboxTest {};

TEST_F(LockObjects, AreOpenToEveryoneAndGiveBackTheCountOfADeadHolder) {
  const auto TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
  const std::string Name = GuidText(CLSID_UTransactionLog), HolderName = "Mendwork.Holder." + Name;
  const TKernelHandle Holder(OpenMutexA(SYNCHRONIZE | READ_CONTROL, FALSE, HolderName.c_str()));
  const TKernelHandle Semaphore(OpenSemaphoreA(SYNCHRONIZE, FALSE, Name.c_str()));
  std::thread([&] { WaitForSingleObject(Holder.Get(), 0), WaitForSingleObject(Semaphore.Get(), 0); }).join();
  EXPECT_EQ(S_OK, TransactionLog->Put(Undone, 1, GUID{})) << "its holder is dead";
  char Rights[512] = "";
  DWORD Size = 0;
  ASSERT_TRUE(GetKernelObjectSecurity(Holder.Get(), DACL_SECURITY_INFORMATION, Rights, sizeof Rights, &Size));
  char* Words = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorA(Rights, SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                                   &Words, nullptr));
  EXPECT_NE(nullptr, strstr(Words, ";;;WD)")) << Words;
  LocalFree(Words);
}

TEST_F(LockObjects, LeaveNoTextOfAnEarlierCallBehind) {
  TStory::TellError("earlier");
  EXPECT_EQ(S_OK, Make<IUTransactionLog>(CLSID_UTransactionLog)->Put(Undone, 1, GUID{}));
  EXPECT_EQ("", ErrorText());
}

TEST_F(LockObjects, ThatCannotBeHadFailTheOperation) {
  const std::string Owner = "Global\\Mendwork.Owner." + GuidText(CLSID_UTransactionLog);
  const TKernelHandle Taken(CreateSemaphoreA(nullptr, 1, 1, Owner.c_str()));  // one name space with mutexes
  EXPECT_EQ(E_ACCESSDENIED, Make<IUTransactionLog>(CLSID_UTransactionLog)->Put(Undone, 1, GUID{}));
  EXPECT_NE(std::string::npos, ErrorText().find("cannot be had"));
  EXPECT_FALSE(Exists(Service("update.prt")));
}

}  // namespace
