#include "support/sandbox.h"

TSandbox::TSandbox(TLogChoice Choice)
    : RootDir("C:\\mendwork-tests\\" + std::to_string(1000000 + GetCurrentProcessId())) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  RemoveTree(RootDir);
  MakeFolders(App());
  MakeFolders(Base());
  RegSetKeyValueA(HKEY_CURRENT_USER, "Software\\Orvane\\Core", nullptr, REG_SZ, Base().c_str(),
                  static_cast<DWORD>(Base().size() + 1));
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

std::string Take(TBstr& Result) {
  const TBstr Owned = std::move(Result);
  return LossyAnsi(ViewOf(Owned.Get()));
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

static int Pauses = 0;
int TNoPauses::Count() { return Pauses; }
void WINAPI TNoPauses::SleepUnlessPause(DWORD Milliseconds) {
  Pauses += Milliseconds == 3000;
  if (Milliseconds < 200) Sleep(Milliseconds);
}

void MakeTypeLibrary(const std::string& Path, const std::string& HelpFile) {
  TComRef<ICreateTypeLib2> Library;
  TComRef<ICreateTypeInfo> Info;
  const auto Succeed = [](HRESULT Result) { Must(Result == S_OK, "no type library can be made"); };
  Succeed(CreateTypeLib2(OwnKind, ToWide(Path).c_str(), Library.Out()));
  Succeed(Library->SetGuid(Guid(MadeLibraryId)));
  Succeed(Library->SetVersion(MadeLibraryMajor, MadeLibraryMinor));
  Succeed(Library->SetLcid(0));
  Succeed(Library->SetName(Text("Sample")));
  if (!HelpFile.empty()) Succeed(Library->SetHelpFileName(Text(HelpFile)));
  Succeed(Library->CreateTypeInfo(Text("ISample"), TKIND_INTERFACE, Info.Out()));
  Succeed(Info->SetGuid(NumberedGuid(77)));
  Succeed(Info->LayOut());
  Succeed(Library->SaveAllChanges());
}
