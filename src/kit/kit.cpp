#include "kit/kit.h"

#include "base/failure.h"
#include "base/paths.h"
#include "base/text.h"
#include "kit/kit_messages.h"
#include "server/arguments.h"

HRESULT TKit::Silent(BSTR Policy) {
  return SafeCall([&] {
    const std::wstring Text(ViewOf(Policy));
    const auto Read = ParseSilencePolicy(LossyAnsi(Text));
    if (!Read && !Text.empty()) Refuse(MsgKitBadPolicy, Text);
    Dialog.reset();
    if (Read) Dialog.emplace(CLSID_UDialog, Server(), Heard, *Read);
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
    const std::string Name = FileNameArgument(Folder);
    if (!Name.empty()) RequireRoot(Name);
    if (Limit < 0 || (Limit > 0 && Limit < TLogFile::LeastLimit))
      Refuse(MsgKitBadLimit, std::to_wstring(TLogFile::LeastLimit));
    DebugLog.reset();
    if (Name.empty()) return;
    DebugLog.emplace(CLSID_UDebugLog, Server(), ToWide(Name), Limit);
  });
}

COCLASS(Kit, TKit, nullptr, RegisterProgressClass, UnregisterProgressClass);
