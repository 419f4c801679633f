// Long life: many calls on one set of objects. Handles, windows' objects and memory at the end are as they were after
// the first calls.

#include "torture.h"
#include "update.h"

#include <psapi.h>

namespace {

/// A log that keeps nothing.
class TSilentLog final : public TDouble<IUDebugLog> {
 public:
  STDMETHOD(Put)(long, BSTR, BSTR, BSTR) override { return S_OK; }
};

/// What a process uses. Wine does not count handles and window objects, but gives the lowest number that is free, or
/// the one that was freed last: the number of the next one shows what was not given back.
struct TUse {
  long Handle = 0, Gdi = 0, Window = 0, KiB = 0;

  static TUse Now() {
    constexpr ULONG_PTR Index = 0xFFFF;
    TUse Use;
    PROCESS_MEMORY_COUNTERS Memory{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &Memory, sizeof Memory);
    Use.KiB = static_cast<long>(Memory.PagefileUsage / 1024);
    const TKernelHandle Event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    Use.Handle = static_cast<long>(reinterpret_cast<ULONG_PTR>(Event.Get()));
    const HGDIOBJ Pen = CreatePen(PS_SOLID, 1, 0);
    Use.Gdi = static_cast<long>(reinterpret_cast<ULONG_PTR>(Pen) & Index);
    DeleteObject(Pen);
    const HWND Window = CreateWindowExA(0, "Static", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    Use.Window = static_cast<long>(reinterpret_cast<ULONG_PTR>(Window) & Index);
    DestroyWindow(Window);
    return Use;
  }
};

void HandleMessages() {
  MSG Message;
  while (PeekMessageA(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&Message);
}

/// A box that a request to quit closes before anybody sees it.
void ShowBox(IUDialog& Dialog) {
  TBstr Answer;
  PostQuitMessage(0);
  const HRESULT Shown =
      Dialog.ShowCustomMsgBox(Text("Text"), Text("Caption"), 32513, Text("Yes,No"), Text("No"), Answer.Out());
  Must(SUCCEEDED(Shown), "the box failed: " + ErrorText());
  HandleMessages();
}

const GUID Group = NumberedGuid(41);

/// What is called in turn; the failing one must fail.
HRESULT(*const Kinds[])
(TUpdater& U, int Number) = {
    [](TUpdater& U, int Number) { return U.Log->PutCheckPoint(NumberedGuid(Number)); },
    [](TUpdater& U, int) { return U.Registry->SetDwordValueLogged(User, KeyName("Life"), Text("Number"), 1); },
    [](TUpdater& U, int) {
      return U.File->CopyFileLogged(Text(U.Places.Package("plugin.dll")), Text(U.Places.App("life.dll")), 0);
    },
    [](TUpdater& U, int) { return U.Log->Rollback(Yes, &U.Item); },
    [](TUpdater& U, int) { return U.Macro->GetMacro(Text("none"), U.Content.Out()); },
    [](TUpdater& U, int) { return U.Macro->MacroExists(Text("none"), &U.Flag); },
    [](TUpdater& U, int) { return U.Registry->DeleteRegKeyValue(User, KeyName("Life"), Text("Number")); },
    [](TUpdater& U, int) { return U.File->DeleteFiles(Text(U.Places.App("life.*")), No, No, No); },
    [](TUpdater& U, int) { return U.Registry->SetStringValue(User, KeyName("Life"), Text("Text"), Text("value")); },
    [](TUpdater& U, int Number) { return U.History->Put(Group, Number, NumberedGuid(Number)); },
    [](TUpdater& U, int) { return U.ReadGroup(Group); },
    [](TUpdater& U, int) { return U.History->DeleteLastRecord(Group); },
    [](TUpdater& U, int) { return U.Backup->BackupString(Text("a text"), &U.Item); },
    [](TUpdater& U, int) { return U.Backup->RestoreString(U.Item, U.Content.Out()); },
    [](TUpdater& U, int) { return U.Garbage->PutFile(Text("C:\\no\\such.file")); },
    [](TUpdater& U, int) { return U.Garbage->Garbage(); },
    [](TUpdater& U, int) { return U.Com->RegTLB(Text(U.Places.App("types.TLB"))); },
    [](TUpdater& U, int) { return U.Com->UnRegTLB(Text(U.Places.App("types.TLB"))); },
    [](TUpdater& U, int) { return U.Macro->SetMacro(Text("Temporary"), Text("value"), No); },
    [](TUpdater& U, int) {
      return SUCCEEDED(U.File->CopyFile(Text("C:\\none"), Text(U.Places.App("life.dll")), 0)) ? E_FAIL : S_OK;
    }};

void Expect(TResult& Result, const std::string& What, long Before, long After, long Slack) {
  Result.Notes[What + ": before"] = static_cast<int>(Before);
  Result.Notes[What + ": after"] = static_cast<int>(After);
  Result.Count(After <= Before + Slack, What + " grew from " + std::to_string(Before) + " to " + std::to_string(After));
}

/// Under Wine every window that is shown costs GDI objects for good: 11 for windows like a box's without the library.
void ShowBoxes(TResult& Result) {
  constexpr int Boxes = 60;
  constexpr long GdiOfABox = 11;
  const auto RealDialog = Make<IUDialog>(CLSID_UDialog);
  ShowBox(*RealDialog);
  const TUse Begin = TUse::Now();
  for (int At = 0; At < Boxes; ++At) ShowBox(*RealDialog);
  const TUse End = TUse::Now();
  Expect(Result, "number of the next GDI object, boxes", Begin.Gdi, End.Gdi, Boxes * GdiOfABox);
  Expect(Result, "number of the next handle, boxes", Begin.Handle, End.Handle, 0);
  Expect(Result, "number of the next window, boxes", Begin.Window, End.Window, 0);
}

}  // namespace

TResult LongLife(const TPlan& Plan) {
  if (Plan.Shard != Plan.Shards - 1) return {.Skipped = true};
  constexpr int FirstCalls = 1000, ForgetEvery = 2000;
  // The numbers of GDI objects are not always given back in order; a leak would be one for every call.
  constexpr long MemorySlackKiB = 256, GdiSlack = 16;
  const int Calls = Plan.Full ? 100000 : 8000;
  TMachine Machine;
  TResult Result;
  Machine.LayOut();
  RegisterActive(new TSilentLog, CLSID_UDebugLog);
  const DWORD DialogEntry = RegisterActive(new TScriptedDialog, CLSID_UDialog);
  TUse First;
  {
    TUpdater Updater(Machine.Root());
    const TNoPauses NoPauses;
    for (int Number = 0; Number < Calls; ++Number) {
      const HRESULT Called = Kinds[static_cast<size_t>(Number) % std::size(Kinds)](Updater, Number);
      Must(SUCCEEDED(Called), "call " + std::to_string(Number) + " failed");
      if (Number + 1 == FirstCalls) First = TUse::Now();
      // Items are never deleted by the system; the disk is not what is measured here.
      if (Number % ForgetEvery == 0) {
        RemoveTree(Machine.Service("Backup"));
        MakeFolders(Machine.Service("Backup"));
        TellProgress(Number, Calls);
      }
    }
    const TUse Last = TUse::Now();
    Expect(Result, "number of the next handle", First.Handle, Last.Handle, 0);
    Expect(Result, "number of the next GDI object", First.Gdi, Last.Gdi, GdiSlack);
    Expect(Result, "number of the next window", First.Window, Last.Window, 0);
    Expect(Result, "memory, KiB", First.KiB, Last.KiB, MemorySlackKiB);
  }
  RevokeActive(DialogEntry);
  ShowBoxes(Result);
  Result.Notes["calls"] = Calls;
  return Result;
}
