#include "kit/kit.h"

#include "base/failure.h"
#include "base/text.h"
#include "kit/creations.h"
#include "kit/file_in_use.h"
#include "kit/kit_messages.h"
#include "kit/names.h"
#include "kit/tree_copy.h"
#include "kit/update.h"
#include "kit/value_data.h"
#include "server/arguments.h"

/// Puts a new dialog in place of the one that stands in, when there is anything to stand in for.
void TKit::StandIn() {
  Services = {};
  Dialog.reset();
  if (Policy || NamesHolders) Dialog.emplace(CLSID_UDialog, Server(), Heard, Policy);
}

HRESULT TKit::FileInUse(VARIANT_BOOL On) {
  return SafeCall([&] {
    NamesHolders = On != VARIANT_FALSE;
    StandIn();
  });
}

HRESULT TKit::Rollback(VARIANT_BOOL OnlyToCheckPoint, GUID* CheckPointID) {
  if (!CheckPointID) return RefuseNullPointer();
  return SafeCall([&] {
    const TRollbackRuns Runs;
    CheckCall(Services.Transactions().Rollback(OnlyToCheckPoint, CheckPointID));
  });
}

HRESULT TKit::Update(BSTR ManifestFileName, long* Result) {
  if (!Result) return RefuseNullPointer();
  *Result = static_cast<long>(TUpdateResult::NotRolledBack);
  return Change("Update", {ManifestFileName}, [&] {
    const TUpdateOutcome Outcome = RunUpdate(Services, FullNameArgument(ManifestFileName));
    if (!Outcome.Text.empty()) Heard->Add(Outcome.Text);
    *Result = static_cast<long>(Outcome.Result);
  });
}

HRESULT TKit::Silent(BSTR Words) {
  return SafeCall([&] {
    const std::wstring Text(ViewOf(Words));
    const auto Read = ParseSilencePolicy(LossyAnsi(Text));
    if (!Read && !Text.empty()) Refuse(MsgKitBadPolicy, Text);
    Policy = Read;
    StandIn();
  });
}

HRESULT TKit::get_LastMessage(BSTR* Text) {
  return Give(Text, [&] { return Heard->Last(); });
}

HRESULT TKit::get_Messages(BSTR* Texts) {
  return Give(Texts, [&] { return Heard->All(); });
}

HRESULT TKit::ClearMessages() {
  return SafeCall([&] { Heard->Clear(); });
}

HRESULT TKit::Progress(long Total, long Window) {
  return SafeCall([&] {
    const HWND Listener = reinterpret_cast<HWND>(static_cast<LONG_PTR>(Window));
    if (Total < 0) Refuse(MsgKitBadTotal);
    if (Listener && !IsWindow(Listener)) Refuse(MsgKitNoWindow, std::to_wstring(Window));
    Shown.reset();
    if (Total > 0) Shown.emplace(Total, Listener);
  });
}

HRESULT TKit::Step(BSTR Text) {
  return SafeCall([&] {
    if (Shown) Shown->Step(std::wstring(ViewOf(Text)));
  });
}

HRESULT TKit::Log(BSTR Folder, long Limit) {
  return SafeCall([&] {
    const std::wstring Name = ViewOf(Folder).empty() ? L"" : FullNameArgument(Folder);
    if (Limit < 0 || (Limit > 0 && Limit < TLogFile::LeastLimit))
      Refuse(MsgKitBadLimit, std::to_wstring(TLogFile::LeastLimit));
    Services = {};
    DebugLog.reset();
    if (Name.empty()) return;
    DebugLog.emplace(CLSID_UDebugLog, Server(), Name, Limit);
  });
}

// ---- Recorded changes

HRESULT TKit::CreateKeyLogged(unsigned long RootKey, BSTR KeyName) {
  return Change("CreateKeyLogged", {RootKey, KeyName},
                [&] { CreateKeyRecorded(Services, KeyArgument(RootKey, KeyName)); });
}

HRESULT TKit::CreateValueLogged(unsigned long RootKey, BSTR KeyName, BSTR ValueName, long Type, BSTR Value) {
  return Change("CreateValueLogged", {RootKey, KeyName, ValueName, Type}, [&] {
    CreateValueRecorded(Services, ValueArgument(RootKey, KeyName, ValueName), static_cast<DWORD>(Type),
                        ValueDataArgument(Type, Value));
  });
}

HRESULT TKit::CreateFolderLogged(BSTR FolderName) {
  return Change("CreateFolderLogged", {FolderName},
                [&] { CreateFolderRecorded(Services, FullNameArgument(FolderName)); });
}

HRESULT TKit::CopyFileLogged(BSTR SourceFileName, BSTR DestFileName, long CopyMode) {
  return Change("CopyFileLogged", {SourceFileName, DestFileName, CopyMode},
                [&] { CopyFileRecorded(Services, SourceFileName, DestFileName, CopyMode); });
}

HRESULT TKit::CopyTreeLogged(BSTR SourceFolder, BSTR DestFolder, BSTR FileMask, long CopyMode, BSTR* Files) {
  if (!Files) return RefuseNullPointer();
  *Files = nullptr;
  return Change("CopyTreeLogged", {SourceFolder, DestFolder, FileMask, CopyMode}, [&] {
    const std::wstring Mask = ToWide(MaskArgument(FileMask));
    if (Mask.find_first_of(L"\\:") != Mask.npos) Refuse(MsgKitBadMask, Mask);
    const TTreeCopy Copy{FullNameArgument(SourceFolder), FullNameArgument(DestFolder), Mask, CopyMode};
    *Files = MakeBstr(CopyTreeRecorded(Services, Copy)).Detach();
  });
}

COCLASS(Kit, TKit, nullptr, RegisterProgressClass, UnregisterProgressClass);
