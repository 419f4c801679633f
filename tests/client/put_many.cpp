// Commands that put one thing after the other, beside other processes that do the same.

#include "client/commands.h"
#include "support/child.h"
#include "support/sandbox.h"

#include <cstdio>

namespace {

/// Tells that it is ready, waits to be let go, and puts FIRST, FIRST + 1, ... until one fails.
template <class TPut>
int PutWhenLetGo(int First, int Count, TPut Put) {
  TellReady();
  WaitForContinue();
  for (int At = First; At < First + Count; ++At) {
    const HRESULT Result = Put(At);
    if (FAILED(Result)) {
      std::printf("Put %d: 0x%lx %s\n", At, static_cast<unsigned long>(Result), ErrorText().c_str());
      return 1;
    }
  }
  return 0;
}

}  // namespace

int PutEntries(const std::vector<std::string>& Arguments) {
  const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  return PutWhenLetGo(std::stoi(Arguments.at(0)), std::stoi(Arguments.at(1)),
                      [&](int Code) { return Log->Put(CLSID_UCanRollback, Code, NumberedGuid(Code)); });
}

int PutRecords(const std::vector<std::string>& Arguments) {
  const auto History = Make<IUHistory>(CLSID_UHistory);
  const GUID Group = Guid(Arguments.at(0).c_str());
  return PutWhenLetGo(std::stoi(Arguments.at(1)), std::stoi(Arguments.at(2)),
                      [&](int Code) { return History->Put(Group, Code, NumberedGuid(Code)); });
}

int PutLines(const std::vector<std::string>& Arguments) {
  const auto Log = Make<IUDebugLog>(CLSID_UDebugLog);
  return PutWhenLetGo(1, std::stoi(Arguments.at(1)), [&](int At) {
    return Log->Put(At, Text(Arguments.at(0)), Text("Line"), Text(std::to_string(At)));
  });
}

int PutGarbage(const std::vector<std::string>& Arguments) {
  const auto Garbage = Make<IUGarbage>(CLSID_UGarbage);
  return PutWhenLetGo(0, std::stoi(Arguments.at(1)), [&](int At) {
    const std::string Path = Arguments.at(0) + std::to_string(At);
    Write(Path, "garbage");
    return Garbage->PutFile(Text(Path));
  });
}
