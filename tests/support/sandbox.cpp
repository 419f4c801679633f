#include "support/sandbox.h"

#include "base/text.h"

namespace {

constexpr char BaseKey[] = "Software\\Orvane\\Core";

void SetBaseFolder(const std::string& Path) {
  RegSetKeyValueA(HKEY_CURRENT_USER, BaseKey, nullptr, REG_SZ, Path.c_str(), static_cast<DWORD>(Path.size() + 1));
}

}  // namespace

TSandbox::TSandbox(TLogChoice Choice)
    : RootDir("C:\\mendwork-tests\\" + std::to_string(1000000 + GetCurrentProcessId())) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  RemoveTree(RootDir);
  MakeFolders(App());
  MakeFolders(Base());
  SetBaseFolder(Base());
  if (Choice == NoDoubles) return;
  DialogDouble = TComRef<TScriptedDialog>(new TScriptedDialog);
  DialogEntry = RegisterActive(DialogDouble.Get(), CLSID_UDialog);
  if (Choice == LogInMemory) {
    LogDouble = TComRef<TMemoryLog>(new TMemoryLog);
    LogEntry = RegisterActive(LogDouble.Get(), CLSID_UDebugLog);
  }
}

TSandbox::~TSandbox() {
  if (DialogEntry) RevokeActive(DialogEntry);
  if (LogEntry) RevokeActive(LogEntry);
  CoFreeUnusedLibrariesEx(0, 0);  // closes update.log, so that its folder can go
  RemoveTree(RootDir);
  CoUninitialize();
}

Text::Text(const std::string& Ansi) : Value(MakeBstr(ToWide(Ansi))) {}
Text::Text(const std::wstring& Wide) : Value(MakeBstr(Wide)) {}

std::string Take(TBstr& Result) {
  const std::string Ansi = ToAnsi(ViewOf(Result.Get()));
  Result.Reset();
  return Ansi;
}

std::string ErrorText() {
  TComRef<IErrorInfo> Info;
  TBstr Description;
  if (GetErrorInfo(0, Info.Out()) == S_OK && Info) Info->GetDescription(Description.Out());
  return Take(Description);
}

std::string SystemText(DWORD Code) {
  char Buffer[512] = "";
  FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, Code, 0, Buffer, sizeof Buffer,
                 nullptr);
  return Buffer;
}

GUID Guid(const char* Text) {
  const auto Bytes = ParseGuid(Text);
  Must(Bytes.has_value(), Text);
  return GuidOf(*Bytes);
}

GUID NumberedGuid(int Number) {
  GUID Result{};
  for (int Digit = 0; Digit < 4; ++Digit) Result.Data4[7 - Digit] = static_cast<BYTE>(Number >> 8 * Digit);
  return Result;
}

HRESULT RollBack(VARIANT_BOOL OnlyToCheckPoint, GUID* Reached) {
  GUID Unused{};
  return Make<IUTransactionLog>(CLSID_UTransactionLog)->Rollback(OnlyToCheckPoint, Reached ? Reached : &Unused);
}

namespace {

int Pauses = 0;

void WINAPI SleepUnlessPause(DWORD Milliseconds) {
  constexpr DWORD Pause = 3000;
  if (Milliseconds == Pause)
    ++Pauses;
  else
    Sleep(Milliseconds);
}

}  // namespace

TNoPauses::TNoPauses() : Patch("Sleep", SleepUnlessPause) {}

int TNoPauses::Count() { return Pauses; }
