// mendctl: what an update did, for whoever must find out.

#include "mendctl/console.h"
#include "mendctl/machine.h"

#include <iostream>

#ifdef _WIN32
#include "base/windows_api.h"

#include <shellapi.h>

namespace {

/// The words of the command line, which main's are a poor image of.
std::vector<std::string> Words() {
  int Count = 0;
  wchar_t** const Wide = CommandLineToArgvW(GetCommandLineW(), &Count);
  std::vector<std::string> Result;
  for (int At = 1; At < Count; ++At) Result.push_back(NameOf(Wide[At]));
  LocalFree(Wide);
  return Result;
}

}  // namespace

int main() {
  TMachine::UseUtf8Output();
  return RunConsole(Words(), std::cin, std::cout, std::cerr);
}
#else
int main(int Count, char** Arguments) {
  return RunConsole({Arguments + 1, Arguments + Count}, std::cin, std::cout, std::cerr);
}
#endif
