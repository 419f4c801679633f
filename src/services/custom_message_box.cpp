#include "services/custom_message_box.h"

#include "base/failure.h"
#include "base/handles.h"
#include "base/module_instance.h"
#include "base/text.h"
#include "formats/message_box_layout.h"

#include <cstddef>
#include <list>
#include <mutex>

namespace {

// The box's windows are Unicode ones: in 32 bits Wine takes the texts of others for UTF-8, whatever the ANSI code page
// is.
constexpr wchar_t BoxClassName[] = L"MendworkCustomMsgBox";

/// One open box.
struct TMyWindowVar {
  HWND Window = nullptr;
  bool Alive = false;  ///< until the window is destroyed
  HICON Icon = nullptr;
  std::string Answer;  ///< caption of the button that closed the box
};

/// The boxes that are open, of all threads. Records are changed only inside the list's lock.
class TOpenBoxes {
 public:
  void Add(TMyWindowVar& Box) {
    const std::lock_guard Guard(Lock);
    List.push_back(&Box);
  }
  void Remove(TMyWindowVar& Box) {
    const std::lock_guard Guard(Lock);
    List.remove(&Box);
  }
  template <class TAction>
  void With(HWND Window, TAction Action) {
    const std::lock_guard Guard(Lock);
    for (TMyWindowVar* Box : List)
      if (Box->Window == Window) Action(*Box);
  }

 private:
  std::mutex Lock;
  std::list<TMyWindowVar*> List;
};

TOpenBoxes OpenBoxes;

// ---- The window procedure

void DrawBoxIcon(HWND Window) {
  HICON Icon = nullptr;
  OpenBoxes.With(Window, [&](TMyWindowVar& Box) { Icon = Box.Icon; });
  if (!Icon) return;
  // The device context of the whole window: its origin is the frame's corner.
  const HDC Context = GetWindowDC(Window);
  DrawIcon(Context, BoxMargin, GetSystemMetrics(SM_CYCAPTION) + BoxMargin, Icon);
  ReleaseDC(Window, Context);
}

void TakeAnswer(HWND Window, HWND Control) {
  constexpr int LongestCaption = 1024;
  char Class[16] = "";
  wchar_t Caption[LongestCaption + 1] = L"";
  if (!Control || !GetClassNameA(Control, Class, sizeof Class) || lstrcmpiA(Class, "Button") != 0) return;
  GetWindowTextW(Control, Caption, LongestCaption + 1);
  OpenBoxes.With(Window, [&](TMyWindowVar& Box) { Box.Answer = LossyAnsi(Caption); });
  PostMessageA(Window, WM_CLOSE, 0, 0);
}

/// Key data of the Enter key's first press: scan code 0x1C, repeat count 1.
constexpr LPARAM EnterPressed = 0x1C0001;

void HandleBoxMessage(HWND Window, UINT Message, LPARAM Data) {
  switch (Message) {
    case WM_DESTROY:
      OpenBoxes.With(Window, [](TMyWindowVar& Box) { Box.Alive = false; });
      break;
    case WM_PAINT:
      DrawBoxIcon(Window);
      break;
    case WM_KEYDOWN:
      if (Data == EnterPressed) PostMessageA(Window, WM_CLOSE, 0, 0);
      break;
    case WM_COMMAND:
      TakeAnswer(Window, reinterpret_cast<HWND>(Data));
      break;
    default:
      break;
  }
}

LRESULT CALLBACK BoxProcedure(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  const LRESULT Result = DefWindowProcW(Window, Message, Parameter, Data);
  try {
    HandleBoxMessage(Window, Message, Data);
  } catch (...) {
    // Only memory can have run out. The user can press again; nothing may leave a window procedure.
  }
  return Result;
}

// ---- Measuring and building

TFont MakeBoxFont() {
  // The structure's size before the padded border width was added, which every version of the system accepts.
  constexpr UINT MetricsSize = offsetof(NONCLIENTMETRICSA, iPaddedBorderWidth);
  static_assert(MetricsSize == 340);
  NONCLIENTMETRICSA Metrics{};
  Metrics.cbSize = MetricsSize;
  if (SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, MetricsSize, &Metrics, 0))
    return TFont(CreateFontIndirectA(&Metrics.lfMessageFont));
  constexpr int FallbackHeight = -11;
  return TFont(CreateFontA(FallbackHeight, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, 0, 0, "MS Sans Serif"));
}

/// The system has more icons of this kind, and newer ones have more still; a box shows these.
HICON BoxIcon(long IcoType) {
  constexpr long First = 32512, Last = 32517;
  return IcoType >= First && IcoType <= Last ? LoadIconA(nullptr, MAKEINTRESOURCEA(IcoType)) : nullptr;
}

TBoxLayout MeasureBox(const TCustomBox& Box) {
  const int Length = static_cast<int>(Box.Text.size());
  const HDC Screen = GetDC(nullptr);
  RECT Wrapped = {0, -1000, WrapWidth, 0};
  SIZE Line{};
  const int Height = DrawTextA(Screen, Box.Text.c_str(), Length, &Wrapped, DT_WORDBREAK);
  GetTextExtentPoint32A(Screen, Box.Text.c_str(), Length, &Line);
  ReleaseDC(nullptr, Screen);
  return LayOutMessageBox({static_cast<int>(Box.Buttons.size()), Height, static_cast<int>(Line.cx),
                           static_cast<int>(Line.cy), GetSystemMetrics(SM_CXICON), GetSystemMetrics(SM_CYICON),
                           GetSystemMetrics(SM_CYCAPTION), GetSystemMetrics(SM_CXSCREEN),
                           GetSystemMetrics(SM_CYSCREEN)});
}

HWND MakeWindow(DWORD ExtendedStyle, const wchar_t* Class, const std::string& Text, DWORD Style,
                const TBoxRectangle& At, HWND Parent, HFONT Font) {
  const HWND Window = CreateWindowExW(ExtendedStyle, Class, ToWide(Text).c_str(), Style, At.Left, At.Top, At.Width,
                                      At.Height, Parent, nullptr, ModuleInstance(), nullptr);
  if (!Window) RaiseLastError();
  SendMessageA(Window, WM_SETFONT, reinterpret_cast<WPARAM>(Font), 0);
  return Window;
}

/// Destroys the box on every way out; a window that is gone already is no harm.
struct TBoxWindow {
  HWND Window;
  ~TBoxWindow() {
    if (IsWindow(Window)) DestroyWindow(Window);
  }
};

void MakeControls(const TCustomBox& Box, const TBoxLayout& Layout, HWND Window, HFONT Font) {
  MakeWindow(0, L"Static", Box.Text, WS_CHILD | WS_VISIBLE, Layout.Text, Window, Font);
  TBoxRectangle At = Layout.FirstButton;
  for (const std::string& Caption : Box.Buttons) {
    const bool Default = Caption == Box.DefButton;
    const DWORD Style = WS_CHILD | WS_VISIBLE | WS_TABSTOP | (Default ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON);
    const HWND Button = MakeWindow(0, L"Button", Caption, Style, At, Window, Font);
    if (Default) SetFocus(Button);
    At.Left += Layout.ButtonStep;
  }
}

// ---- The message loop

/// Enter on the box itself is the box's own key and must reach its window procedure; everything else that dialogs know
/// (Tab, arrows, Enter on a button) is the dialog manager's.
void HandleMessage(HWND Window, MSG& Message) {
  const bool OwnEnter = Message.hwnd == Window && Message.message == WM_KEYDOWN && Message.wParam == VK_RETURN;
  if (!OwnEnter && IsDialogMessageA(Window, &Message)) return;
  TranslateMessage(&Message);
  DispatchMessageA(&Message);
}

bool StillAlive(TMyWindowVar& Box) {
  bool Alive = false;
  OpenBoxes.With(Box.Window, [&](TMyWindowVar& Found) { Alive = Found.Alive; });
  return Alive;
}

/// Until the window is gone. Peeks rather than gets: a box that another thread destroys by a sent message would leave
/// GetMessage waiting on a window that is no more.
std::string WaitForAnswer(TMyWindowVar& Box) {
  MSG Message;
  while (StillAlive(Box)) {
    if (!PeekMessageA(&Message, Box.Window, 0, 0, PM_REMOVE)) {
      if (StillAlive(Box)) MsgWaitForMultipleObjects(0, nullptr, FALSE, INFINITE, QS_ALLINPUT);
      continue;
    }
    if (Message.message == WM_QUIT) {
      PostQuitMessage(static_cast<int>(Message.wParam));
      return "";
    }
    HandleMessage(Box.Window, Message);
  }
  return Box.Answer;
}

}  // namespace

std::string ShowCustomBox(const TCustomBox& Box) {
  const TFont Font = MakeBoxFont();
  const TBoxLayout Layout = MeasureBox(Box);
  const HWND Window = MakeWindow(WS_EX_CONTROLPARENT | WS_EX_WINDOWEDGE, BoxClassName, Box.Caption,
                                 WS_VISIBLE | WS_CAPTION, Layout.Window, Box.Owner, Font.Get());
  const TBoxWindow Destroyer{Window};
  MakeControls(Box, Layout, Window, Font.Get());
  UpdateWindow(Window);
  PostMessageA(Window, WM_PAINT, 0, 0);

  TMyWindowVar Record;
  Record.Window = Window;
  Record.Alive = true;
  Record.Icon = BoxIcon(Box.IcoType);
  struct TListed {
    TMyWindowVar& Record;
    ~TListed() { OpenBoxes.Remove(Record); }
  };
  OpenBoxes.Add(Record);
  if (!IsWindow(Window)) Record.Alive = false;  // destroyed before it was listed
  const TListed Listed{Record};
  return WaitForAnswer(Record);
}

void RegisterBoxClass() {
  WNDCLASSW Class{};
  Class.style = CS_CLASSDC | CS_PARENTDC;
  Class.lpfnWndProc = BoxProcedure;
  Class.hInstance = ModuleInstance();
  Class.hCursor = LoadCursorA(nullptr, IDC_ARROW);
  Class.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_BTNFACE + 1));
  Class.lpszClassName = BoxClassName;
  RegisterClassW(&Class);
}

void UnregisterBoxClass() { UnregisterClassW(BoxClassName, ModuleInstance()); }
