#include "base/failure.h"

#include "base/handles.h"
#include "base/messages.h"
#include "base/text.h"

std::string SystemMessage(DWORD Code) {
  char* Text = nullptr;
  const DWORD Size =
      FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, Code, 0, reinterpret_cast<char*>(&Text), 0, nullptr);
  std::string Result(Text ? Text : "", Size);
  LocalFree(Text);
  return Result;
}

void CheckCall(HRESULT Result) {
  if (SUCCEEDED(Result)) return;
  TComRef<IErrorInfo> Info;
  TBstr Description;
  if (GetErrorInfo(0, Info.Out()) == S_OK && Info) Info->GetDescription(Description.Out());
  std::wstring Message(ViewOf(Description.Get()));
  if (Message.empty()) Message = ToWide(SystemMessage(static_cast<DWORD>(Result)));
  if (Message.empty()) Message = ToWide(LoadMessage(MsgUnknownError));
  throw EFailure(Result, std::move(Message));
}
