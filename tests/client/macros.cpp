#include "client/commands.h"
#include "support/sandbox.h"

#include <cstdio>

int MatchMacro(const std::vector<std::string>& Arguments) {
  const auto Macro = Make<IUMacro>(CLSID_UMacro);
  const Text Name(Arguments.at(0));
  TBstr Result;
  VARIANT_BOOL Known = VARIANT_FALSE;
  if (FAILED(Macro->GetMacro(Name, Result.Out())) || FAILED(Macro->MacroExists(Name, &Known))) return NoMatch;
  const std::string Value = Take(Result);
  if (Value.empty() == (Known == VARIANT_TRUE)) return NoMatch;
  for (size_t At = 1; At < Arguments.size(); ++At)
    if (HexText(Value) == Arguments[At]) return static_cast<int>(At - 1);
  std::printf("%s is %s\n", Arguments[0].c_str(), testing::PrintToString(Value).c_str());
  return NoMatch;
}
