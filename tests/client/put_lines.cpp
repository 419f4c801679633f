#include "client/commands.h"
#include "support/child.h"
#include "support/sandbox.h"

#include <cstdio>

int PutLines(const std::vector<std::string>& Arguments) {
  constexpr auto GivenUp = static_cast<HRESULT>(0x800401FF);
  const auto Log = Make<IUDebugLog>(CLSID_UDebugLog);
  const int Count = std::stoi(Arguments.at(1));
  TellReady();
  WaitForContinue();
  for (int At = 1; At <= Count; ++At) {
    HRESULT Result = GivenUp;
    while (Result == GivenUp) Result = Log->Put(At, Text(Arguments.at(0)), Text("Line"), Text(std::to_string(At)));
    if (FAILED(Result)) {
      std::printf("Put %d: 0x%lx %s\n", At, static_cast<unsigned long>(Result), ErrorText().c_str());
      return 1;
    }
  }
  return 0;
}
