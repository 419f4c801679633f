#include "base/messages.h"

#include "base/module_instance.h"
#include "base/text.h"

std::string LoadMessage(TMessage Message) {
  char Text[512];
  const int Size = LoadStringA(ModuleInstance(), Message, Text, sizeof Text);
  return std::string(Text, static_cast<size_t>(Size));
}

std::wstring LoadWideMessage(TMessage Message) { return ToWide(LoadMessage(Message)); }
