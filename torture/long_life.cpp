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

/// A box that a request to quit closes before anybody sees it.
void ShowBox(IUDialog& Dialog) {
  TBstr Answer;
  PostQuitMessage(0);
  const HRESULT Shown =
      Dialog.ShowCustomMsgBox(Text("Text"), Text("Caption"), 32513, Text("Yes,No"), Text("No"), Answer.Out());
  Must(SUCCEEDED(Shown), "the box failed: " + ErrorText());
  MSG Message;
  while (PeekMessageA(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&Message);
}

LRESULT CALLBACK BareProcedure(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  const LRESULT Result = DefWindowProcA(Window, Message, Parameter, Data);
  if (Message == WM_PAINT) {
    const HDC Context = GetWindowDC(Window);
    DrawIcon(Context, 0, 0, LoadIconA(nullptr, IDI_HAND));
    ReleaseDC(Window, Context);
  }
  return Result;
}

/// The same windows as the box's, without the library.
void ShowBareBox() {
  constexpr char Class[] = "MendworkTortureBox";
  static const ATOM Registered = [] {
    WNDCLASSA Registration{};
    Registration.style = CS_CLASSDC | CS_PARENTDC;
    Registration.lpfnWndProc = BareProcedure;
    Registration.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    Registration.lpszClassName = Class;
    return RegisterClassA(&Registration);
  }();
  Must(Registered, "no window class");
  const HFONT Font = CreateFontA(-11, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, 0, 0, "MS Sans Serif");
  const HWND Window = CreateWindowExA(WS_EX_CONTROLPARENT, Class, "Caption", WS_VISIBLE | WS_CAPTION, 0, 0, 300, 100,
                                      nullptr, nullptr, nullptr, nullptr);
  for (const char* Control : {"Static", "Button", "Button"}) {
    const HWND Child =
        CreateWindowExA(0, Control, "Text", WS_CHILD | WS_VISIBLE, 9, 9, 50, 20, Window, nullptr, nullptr, nullptr);
    SendMessageA(Child, WM_SETFONT, reinterpret_cast<WPARAM>(Font), 0);
    SetFocus(Child);
  }
  MSG Message;
  while (PeekMessageA(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&Message);
  DestroyWindow(Window);
  DeleteObject(Font);
}

class TLife {
 public:
  explicit TLife(bool Full) : Calls(Full ? 100000 : 8000) {}
  TResult Run();

 private:
  HRESULT Call(TUpdater& U, int Number);
  void ShowBoxes();
  void Expect(const char* What, long Before, long After, long Slack);

  TMachine Machine;
  const int Calls;
  GUID Item{};  ///< the last text that was saved
  TResult Result;
};

/// One of twenty calls in turn; the failing one among them must fail.
HRESULT TLife::Call(TUpdater& U, int Number) {
  constexpr unsigned long User = 0x80000001;
  const Text Key("Software\\MendworkTorture\\Life");
  const GUID Group = NumberedGuid(41);
  GUID CheckPoint{}, DataID{};
  long Code = 0;
  VARIANT_BOOL NoMore = 0, IsCheckPoint = 0;
  TBstr Value;
  VARIANT_BOOL Known = VARIANT_FALSE;
  constexpr int Kinds = 20;
  switch (Number % Kinds) {
    case 0:
      return U.Log->PutCheckPoint(NumberedGuid(Number));
    case 1:
      return U.Registry->SetDwordValueLogged(User, Key, Text("Number"), static_cast<unsigned long>(Number));
    case 2:
      return U.File->CopyFileLogged(Text(U.Places.Package("plugin.dll")), Text(U.Places.App("life.dll")), 0);
    case 3:
      return U.Log->Rollback(VARIANT_TRUE, &CheckPoint);
    case 4:
      return U.Macro->GetMacro(Text("none"), Value.Out());
    case 5:
      return U.Macro->MacroExists(Text("none"), &Known);
    case 6:
      return U.Registry->DeleteRegKeyValue(User, Key, Text("Number"));
    case 7:
      return U.File->DeleteFiles(Text(U.Places.App("life.*")), VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE);
    case 8:
      return U.Registry->SetStringValue(User, Key, Text("Text"), Text("value"));
    case 9:
      return U.History->Put(Group, Number, NumberedGuid(Number));
    case 10:
      return U.History->Get(Group, &Code, &DataID, &NoMore, &IsCheckPoint);
    case 11:
      return U.History->DeleteLastRecord(Group);
    case 12:
      return U.Backup->BackupString(Text("a text"), &Item);
    case 13:
      return U.Backup->RestoreString(Item, Value.Out());
    case 14:
      return U.Garbage->PutFile(Text("C:\\no\\such.file"));
    case 15:
      return U.Garbage->Garbage();
    case 16:
      return U.Com->RegTLB(Text(U.Places.App("types.TLB")));
    case 17:
      return U.Com->UnRegTLB(Text(U.Places.App("types.TLB")));
    case 18:
      return U.Macro->SetMacro(Text("Temporary"), Text("value"), VARIANT_FALSE);
    default:
      return SUCCEEDED(U.File->CopyFile(Text("C:\\no\\such.file"), Text(U.Places.App("life.dll")), 0)) ? E_FAIL : S_OK;
  }
}

void TLife::Expect(const char* What, long Before, long After, long Slack) {
  ++Result.Cases;
  Result.Notes[std::string(What) + ": before"] = static_cast<int>(Before);
  Result.Notes[std::string(What) + ": after"] = static_cast<int>(After);
  if (After <= Before + Slack)
    ++Result.Good;
  else
    Result.Bad.push_back(std::string(What) + " grew from " + std::to_string(Before) + " to " + std::to_string(After));
}

/// Under Wine every window that is shown costs GDI objects for good, so the box may cost what the same windows cost.
void TLife::ShowBoxes() {
  constexpr int Boxes = 60;
  constexpr long Slack = Boxes;  // less than one object a box
  const auto RealDialog = Make<IUDialog>(CLSID_UDialog);
  ShowBareBox(), ShowBox(*RealDialog);
  const TUse Begin = TUse::Now();
  for (int At = 0; At < Boxes; ++At) ShowBareBox();
  const TUse Between = TUse::Now();
  for (int At = 0; At < Boxes; ++At) ShowBox(*RealDialog);
  const TUse End = TUse::Now();
  Expect("GDI objects of sixty boxes, bare and the library's", Between.Gdi - Begin.Gdi, End.Gdi - Between.Gdi, Slack);
  Expect("number of the next handle, boxes", Between.Handle, End.Handle, 0);
  Expect("number of the next window, boxes", Between.Window, End.Window, 0);
}

TResult TLife::Run() {
  constexpr int FirstCalls = 1000, ForgetEvery = 1000, ProgressEvery = 2000;
  // The numbers of GDI objects are not always given back in order; a leak would be one for every call.
  constexpr long MemorySlackKiB = 256, GdiSlack = 16;
  Machine.LayOut();
  RegisterActive(new TSilentLog, CLSID_UDebugLog);
  const DWORD DialogEntry = RegisterActive(new TScriptedDialog, CLSID_UDialog);
  TUse First;
  {
    TUpdater Updater(Machine.Root());
    const TNoPauses NoPauses;
    for (int Number = 0; Number < Calls; ++Number) {
      const HRESULT Called = Call(Updater, Number);
      Must(SUCCEEDED(Called), "call " + std::to_string(Number) + " failed");
      if (Number + 1 == FirstCalls) First = TUse::Now();
      // Items are never deleted by the system; the disk is not what is measured here.
      if (Number % ForgetEvery == 0) {
        RemoveTree(Machine.Service("Backup"));
        MakeFolders(Machine.Service("Backup"));
        if (Number % ProgressEvery == 0) TellProgress("long", Number, Calls);
      }
    }
    const TUse Last = TUse::Now();
    Expect("number of the next handle", First.Handle, Last.Handle, 0);
    Expect("number of the next GDI object", First.Gdi, Last.Gdi, GdiSlack);
    Expect("number of the next window", First.Window, Last.Window, 0);
    Expect("memory, KiB", First.KiB, Last.KiB, MemorySlackKiB);
  }
  RevokeActive(DialogEntry);
  ShowBoxes();
  Result.Notes["calls"] = Calls;
  return Result;
}

}  // namespace

TResult LongLife(const TPlan& Plan) {
  if (Plan.Shard != Plan.Shards - 1) return {.Skipped = true};
  return TLife(Plan.Full).Run();
}
