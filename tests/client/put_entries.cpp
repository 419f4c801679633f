#include "client/commands.h"
#include "support/child.h"
#include "support/sandbox.h"

#include <cstdio>

int PutEntries(const std::vector<std::string>& Arguments) {
  const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  const int First = std::stoi(Arguments.at(0)), Count = std::stoi(Arguments.at(1));
  TellReady();
  WaitForContinue();
  for (int At = 0; At < Count; ++At) {
    const HRESULT Result = Log->Put(CLSID_UCanRollback, First + At, NumberedGuid(First + At));
    if (FAILED(Result)) {
      std::printf("Put %d: 0x%lx %s\n", First + At, static_cast<unsigned long>(Result), ErrorText().c_str());
      return 1;
    }
  }
  return 0;
}
