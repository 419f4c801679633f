#include "base/system_error.h"

#include "base/messages.h"

std::string SystemMessage(DWORD Code) {
  char* Text = nullptr;
  const DWORD Size =
      FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, Code, 0, reinterpret_cast<char*>(&Text), 0, nullptr);
  std::string Result(Text ? Text : "", Size);
  LocalFree(Text);
  return Result;
}

std::string SystemErrorText(DWORD Code) {
  std::string Text = SystemMessage(Code);
  return Text.empty() ? LoadMessage(MsgUnknownError) : Text;
}

void GetLastErrorInfo(DWORD& Code, std::string& Text) {
  Code = GetLastError();
  Text = SystemErrorText(Code);
}
