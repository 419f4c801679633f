#include "base/waiting.h"

namespace {

void DeliverSentMessages() {
  MSG Unused;
  PeekMessageA(&Unused, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
}

}  // namespace

DWORD WaitAnsweringMessages(HANDLE Object) {
  DWORD Status = WaitForSingleObject(Object, 0);
  if (Status != WAIT_TIMEOUT) return Status;
  constexpr DWORD ObjectAndMessages = 1;
  while ((Status = MsgWaitForMultipleObjects(ObjectAndMessages, &Object, FALSE, INFINITE, QS_SENDMESSAGE)) ==
         WAIT_OBJECT_0 + ObjectAndMessages)
    DeliverSentMessages();
  return Status;
}

void PauseAnsweringMessages(DWORD Milliseconds) {
  if (MsgWaitForMultipleObjects(0, nullptr, FALSE, Milliseconds, QS_SENDMESSAGE) == WAIT_OBJECT_0)
    DeliverSentMessages();
}
