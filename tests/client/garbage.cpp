#include "client/commands.h"
#include "support/child.h"
#include "support/sandbox.h"

#include <cstdio>

int PutGarbage(const std::vector<std::string>& Arguments) {
  const auto Garbage = Make<IUGarbage>(CLSID_UGarbage);
  const int Count = std::stoi(Arguments.at(1));
  TellReady();
  WaitForContinue();
  for (int At = 0; At < Count; ++At) {
    const std::string Path = Arguments.at(0) + std::to_string(At);
    Write(Path, "garbage");
    const HRESULT Result = Garbage->PutFile(Text(Path));
    if (FAILED(Result)) {
      std::printf("PutFile %s: 0x%lx %s\n", Path.c_str(), static_cast<unsigned long>(Result), ErrorText().c_str());
      return 1;
    }
  }
  return 0;
}
