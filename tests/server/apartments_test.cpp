// Calls that cross apartments and processes.

#include "support/process.h"
#include "support/sandbox_test.h"

#include <thread>

namespace {

constexpr char Ready[] = "mendwork-tests.ready", Stop[] = "mendwork-tests.stop";

/// log-server: lets other processes use this one's debug log until it is told to stop.
const TRole LogServer("log-server", [](const TWords&, TScriptedDialog&) {
  const TKernelHandle Stopped(OpenEventA(SYNCHRONIZE, FALSE, Stop));
  SetEvent(TKernelHandle(OpenEventA(EVENT_MODIFY_STATE, FALSE, Ready)).Get());
  const HANDLE Event = Stopped.Get();
  while (MsgWaitForMultipleObjects(1, &Event, FALSE, INFINITE, QS_ALLINPUT) == WAIT_OBJECT_0 + 1) {
    MSG Message;
    while (PeekMessageA(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&Message);
  }
  return 0;
});

/// free-threaded: calls from a multithreaded apartment, where the objects do not live.
const TRole FreeThreaded(
    "free-threaded",
    [](const TWords&, TScriptedDialog&) {
      HRESULT Result = E_FAIL, Refused = S_OK;  // Wine carries no error information along
      std::thread([&] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        {
          const auto Registry = Make<IURegistry>(CLSID_URegistry);
          const Text Key(TSandboxTest::Key()), Value("Value");
          Result = Registry->SetStringValueLogged(TSandboxTest::User, Key, Value, Text("from a free thread"));
          Refused = Registry->SetStringValue(1, Key, Value, Value);
        }
        CoUninitialize();
      }).join();
      return int{Result != S_OK || Refused != E_INVALIDARG};
    },
    TRole::WithoutDoubles);

class Apartments : public TSandboxTest {
 protected:
  Apartments() : TSandboxTest(NoDoubles) {}
};

TEST_F(Apartments, OfOtherThreadsReachTheObjects) {
  EXPECT_EQ(0u, TChild({"free-threaded"}).Wait());
  EXPECT_EQ(WideBytes(std::wstring_view(L"from a free thread", 19)), Value(L"", L"Value").Data);
}

TEST_F(Apartments, OfOtherProcessesTakeTheLines) {
  const TKernelHandle Started(CreateEventA(nullptr, TRUE, FALSE, Ready)), End(CreateEventA(nullptr, TRUE, FALSE, Stop));
  TChild Server({"log-server"});
  ASSERT_EQ(0u, WaitForSingleObject(Started.Get(), 30000));
  EXPECT_EQ(S_OK, Make<IURegistry>(CLSID_URegistry)->SetDwordValueLogged(User, Text(Key()), Text("Value"), 5));
  EXPECT_FALSE(Exists(Updates("Log\\update.log")));
  SetEvent(End.Get());
  EXPECT_EQ(0u, Server.Wait());
}

}  // namespace
