#include "services/log_file.h"
#include "support/client_thread.h"
#include "support/sandbox.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <sstream>

namespace {

using TLines = std::vector<std::string>;

constexpr char CustomBoxClass[] = "MendworkCustomMsgBox";
constexpr char ProgressTitle[] = "Orvane Updater - Update progress";

class Dialogs : public TSandbox {
 protected:
  Dialogs() : TSandbox(LogToFile) {}
  TLines LogLines() const { return LinesOf(Updates("Log\\update.log")); }
};

/// For windows of the tests: asks their thread to quit.
constexpr UINT QuitRequest = WM_APP;

LRESULT CALLBACK ProgressProcedure(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  if (Message == QuitRequest) PostQuitMessage(static_cast<int>(Parameter));
  return DefWindowProcA(Window, Message, Parameter, Data);
}

/// The updater's progress window, or one that only resembles it. Its thread shows the boxes, as the updater's does.
class TProgressWindow {
 public:
  TProgressWindow(const std::string& Class, const std::string& Title) {
    WNDCLASSA Registration{};
    Registration.lpfnWndProc = ProgressProcedure;
    Registration.lpszClassName = Class.c_str();
    RegisterClassA(&Registration);
    Window = CreateWindowExA(0, Class.c_str(), Title.c_str(), WS_OVERLAPPEDWINDOW, 0, 0, 100, 50, nullptr, nullptr,
                             nullptr, nullptr);
  }
  ~TProgressWindow() { DestroyWindow(Window); }
  TProgressWindow(const TProgressWindow&) = delete;
  TProgressWindow& operator=(const TProgressWindow&) = delete;
  HWND Window;
};

// ---- The system's message box

struct TMsgBoxRow {
  const char* Name;
  long MsgType;
  std::vector<int> Buttons;
  int DefaultButton;
  int Answer;
};

class MsgBox : public Dialogs, public testing::WithParamInterface<TMsgBoxRow> {};

TEST_P(MsgBox, ShowsTheButtonsAndGivesTheAnswer) {
  const TMsgBoxRow& Row = GetParam();
  HRESULT Result = E_FAIL;
  long Answer = -1;
  TClientThread Client([&] {
    const auto Object = Make<IUDialog>(CLSID_UDialog);
    Result = Object->ShowMsgBox(Text("Two\r\nlines, \xFC and \x80"), Text("A caption"), Row.MsgType, &Answer);
  });
  const HWND Box = Client.Window(MessageBoxClass);
  ASSERT_NE(nullptr, Box);
  EXPECT_EQ((TMessageBoxFacts{"A caption", "Two\r\nlines, \xFC and \x80", Row.Buttons, Row.DefaultButton}),
            FactsOf(Box));
  EXPECT_EQ(nullptr, GetWindow(Box, GW_OWNER));
  Press(Box, Row.Answer);
  Client.Join();
  EXPECT_EQ(S_OK, Result);
  EXPECT_EQ(Row.Answer, Answer);
  EXPECT_EQ((TLines{"1 UDialog Begin ShowMsgBox Text=Two<#NL>lines, \xFC and \x80 Caption=A caption MsgType=" +
                        std::to_string(Row.MsgType),
                    "1 UDialog End ShowMsgBox Result=" + std::to_string(Row.Answer)}),
            LogLines());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MsgBox,
    testing::Values(TMsgBoxRow{"ok", 0x40, {1}, 1, 1}, TMsgBoxRow{"ok_cancel", 0x101, {1, 2}, 2, 2},
                    TMsgBoxRow{"abort_retry_ignore", 0x202, {3, 4, 5}, 5, 5}, TMsgBoxRow{"abort", 2, {3, 4, 5}, 3, 3},
                    TMsgBoxRow{"yes_no_cancel", 0x33, {2, 6, 7}, 6, 7}, TMsgBoxRow{"yes_no", 0x2024, {6, 7}, 6, 6},
                    TMsgBoxRow{"retry_cancel", 21, {2, 4}, 4, 4}),
    [](const auto& Info) { return std::string(Info.param.Name); });

TMemoryLog& FailingLog = *new TMemoryLog;
int BoxesShown;

int WINAPI AnswerYes(HWND, LPCSTR, LPCSTR, UINT) {
  ++BoxesShown;
  FailingLog.Result = E_ACCESSDENIED;  // the End line's
  return IDYES;
}

TEST_F(Dialogs, FailingLogLineFailsTheCall) {
  const DWORD Entry = RegisterActive(&FailingLog, CLSID_UDebugLog);
  const auto Object = Make<IUDialog>(CLSID_UDialog);
  const TImportPatch Box(Module(), "MessageBoxA", reinterpret_cast<void*>(AnswerYes));
  long Answer = -1;
  FailingLog.Result = E_ABORT;
  EXPECT_EQ(E_ABORT, Object->ShowMsgBox(Text("Text"), Text("Caption"), MB_YESNO, &Answer));
  EXPECT_EQ(0, BoxesShown) << "nothing is shown that the log does not know of";
  FailingLog.Result = S_OK;
  EXPECT_EQ(E_ACCESSDENIED, Object->ShowMsgBox(Text("Text"), Text("Caption"), MB_YESNO, &Answer));
  EXPECT_EQ(1, BoxesShown);
  EXPECT_EQ(0, Answer) << "it is lost";
  RevokeActive(Entry);
}

// ---- The custom message box

struct TCustomCall {
  std::string Text = "Text", Caption = "Caption";
  long IcoType = 0;
  std::string Buttons = "Yes,No,Cancel", DefButton = "No";
};

/// A custom box that a client's thread shows.
class TShownBox {
 public:
  explicit TShownBox(const TCustomCall& Call, const std::string& OwnerClass = "", const std::string& OwnerTitle = "")
      : Client([=, this] {
          std::optional<TProgressWindow> Progress;
          if (!OwnerClass.empty()) Owner = Progress.emplace(OwnerClass, OwnerTitle).Window;
          const auto Object = Make<IUDialog>(CLSID_UDialog);
          TBstr Res;
          Result = Object->ShowCustomMsgBox(::Text(Call.Text), ::Text(Call.Caption), Call.IcoType, ::Text(Call.Buttons),
                                            ::Text(Call.DefButton), Res.Out());
          BoxIsGone = !IsWindow(Window);
          Answer = Take(Res);
          MSG Message;
          while (PeekMessageA(&Message, nullptr, 0, 0, PM_REMOVE))
            if (Message.message == WM_QUIT) QuitStatus = static_cast<int>(Message.wParam);
        }),
        Window(Client.Window(CustomBoxClass)) {}

  HWND Button(const std::string& Caption) const {
    for (const HWND Control : ControlsOf(Window))
      if (ClassOf(Control) == "Button" && TextOf(Control) == Caption) return Control;
    ADD_FAILURE() << "no button " << Caption;
    return nullptr;
  }
  void Click(const std::string& Caption) const {
    PostMessageA(Button(Caption), WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(50, 11));
    PostMessageA(Button(Caption), WM_LBUTTONUP, 0, MAKELPARAM(50, 11));
  }
  /// A key stroke where the focus is, with the data of a real keyboard.
  void Type(WPARAM Key, LPARAM ScanCode) const {
    const HWND Target = Client.Focus();
    PostMessageA(Target, WM_KEYDOWN, Key, ScanCode << 16 | 1);
    PostMessageA(Target, WM_KEYUP, Key, static_cast<LPARAM>(0xC0000001 | ScanCode << 16));
  }
  void Tab() const {
    const HWND Before = Client.Focus();
    Type(VK_TAB, 0x0F);
    EXPECT_TRUE(Until([&] { return Client.Focus() != Before; })) << "Tab does not move the focus";
  }

  HRESULT Result = E_FAIL;
  std::string Answer = "no answer";
  std::optional<int> QuitStatus;
  HWND Owner = nullptr;
  bool BoxIsGone = false;
  TClientThread Client;
  HWND Window;
};

std::string Placed(int Left, int Top, int Width, int Height) {
  std::ostringstream Out;
  Out << Left << ',' << Top << ' ' << Width << 'x' << Height;
  return Out.str();
}

std::string Described(const std::string& Class, LONG Style, const std::string& Caption, const std::string& Place) {
  std::ostringstream Out;
  Out << Class << ' ' << std::hex << Style << " '" << Caption << "' " << Place;
  return Out.str();
}

std::string PlaceOf(HWND Window, HWND Parent) {
  RECT Place;
  GetWindowRect(Window, &Place);
  MapWindowPoints(nullptr, Parent, reinterpret_cast<POINT*>(&Place), 2);
  return Placed(Place.left, Place.top, Place.right - Place.left, Place.bottom - Place.top);
}

TLines DescriptionOf(HWND Box) {
  TLines Lines = {Described(ClassOf(Box), GetWindowLongA(Box, GWL_STYLE), TextOf(Box), PlaceOf(Box, nullptr))};
  for (const HWND Control : ControlsOf(Box))
    Lines.push_back(
        Described(ClassOf(Control), GetWindowLongA(Control, GWL_STYLE), TextOf(Control), PlaceOf(Control, Box)));
  return Lines;
}

/// Without a display no text has an extent, so the tests say how large the text is.
struct TExtent {
  int WrappedHeight, LineWidth, LineHeight;
} Extent;
std::string Measured;

int WINAPI GivenHeight(HDC, LPCSTR Text, int Size, LPRECT Place, UINT Format) {
  const bool AsAgreed = Place->left == 0 && Place->top == -1000 && Place->right == 300 && Place->bottom == 0;
  Measured = std::string(Text, Size < 0 ? std::strlen(Text) : static_cast<size_t>(Size));
  return AsAgreed && Format == DT_WORDBREAK ? Extent.WrappedHeight : 0;
}
BOOL WINAPI GivenExtent(HDC, LPCSTR, int, LPSIZE Line) {
  *Line = {Extent.LineWidth, Extent.LineHeight};
  return TRUE;
}

class TGivenExtent {
 public:
  TGivenExtent(HMODULE Module, const TExtent& Given)
      : Height(Module, "DrawTextA", reinterpret_cast<void*>(GivenHeight)),
        Line(Module, "GetTextExtentPoint32A", reinterpret_cast<void*>(GivenExtent)) {
    Extent = Given;
  }

 private:
  TImportPatch Height, Line;
};

LOGFONTA FontOf(HWND Control) {
  LOGFONTA Font{};
  GetObjectA(reinterpret_cast<HFONT>(SendMessageA(Control, WM_GETFONT, 0, 0)), sizeof Font, &Font);
  return Font;
}

/// What the box must look like, worked out from the system's own measures.
TLines ExpectedBox(const TCustomCall& Call, const TLines& Captions) {
  const int H = Extent.WrappedHeight, N = static_cast<int>(Captions.size()), B = 107 * N - 7,
            W = H > Extent.LineHeight ? 300 : Extent.LineWidth;
  const int IX = GetSystemMetrics(SM_CXICON), C = std::max(H, GetSystemMetrics(SM_CYICON));
  const int WW = std::max(B, IX + 12 + W) + 24, WH = GetSystemMetrics(SM_CYCAPTION) + 59 + C;
  const int X = GetSystemMetrics(SM_CXSCREEN) / 2 - WW / 2, Y = GetSystemMetrics(SM_CYSCREEN) / 2 - WH / 2;

  // The system adds WS_CLIPSIBLINGS to every window with a caption bar.
  TLines Lines = {
      Described(CustomBoxClass, WS_VISIBLE | WS_CAPTION | WS_CLIPSIBLINGS, Call.Caption, Placed(X, Y, WW, WH)),
      Described("Static", WS_CHILD | WS_VISIBLE, Call.Text, Placed(IX + 24, 12, W, H))};
  for (int At = 0; At < N; ++At) {
    const LONG Style = WS_CHILD | WS_VISIBLE | WS_TABSTOP | (Captions[At] == Call.DefButton ? BS_DEFPUSHBUTTON : 0);
    Lines.push_back(Described("Button", Style, Captions[At], Placed((WW - B) / 2 + 107 * At, C + 24, 100, 23)));
  }
  return Lines;
}

struct TLooksRow {
  const char* Name;
  TExtent Text;
  TCustomCall Call;
  TLines Captions;
};

class CustomBoxLooks : public Dialogs, public testing::WithParamInterface<TLooksRow> {};

TEST_P(CustomBoxLooks, AreThoseOfTheCall) {
  const TCustomCall& Call = GetParam().Call;
  const TLines& Captions = GetParam().Captions;
  const std::string Answer = Captions.empty() ? "" : Captions.back();
  {
    const auto Loaded = Make<IUDialog>(CLSID_UDialog);
    const TGivenExtent Measures(Module(), GetParam().Text);
    TShownBox Box(Call);
    ASSERT_NE(nullptr, Box.Window);
    EXPECT_EQ(Call.Text, Measured);
    EXPECT_EQ(ExpectedBox(Call, Captions), DescriptionOf(Box.Window));
    EXPECT_EQ(WS_EX_CONTROLPARENT | WS_EX_WINDOWEDGE, GetWindowLongA(Box.Window, GWL_EXSTYLE));
    EXPECT_EQ(nullptr, GetWindow(Box.Window, GW_OWNER));
    NONCLIENTMETRICSA Metrics{};
    Metrics.cbSize = 340;
    SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, Metrics.cbSize, &Metrics, 0);
    for (const HWND Control : ControlsOf(Box.Window)) {
      const LOGFONTA Font = FontOf(Control);
      EXPECT_STREQ(Metrics.lfMessageFont.lfFaceName, Font.lfFaceName);
      EXPECT_EQ(Metrics.lfMessageFont.lfHeight, Font.lfHeight);
      EXPECT_EQ(0, GetDlgCtrlID(Control));
    }
    const bool HasDefault = std::count(Captions.begin(), Captions.end(), Call.DefButton) != 0;
    const HWND Focus = Box.Client.Focus();
    EXPECT_EQ(HasDefault ? Call.DefButton : Call.Caption, TextOf(Focus ? Focus : Box.Window));

    if (Captions.empty())
      PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, 0x1C0001);
    else
      Box.Click(Answer);
    Box.Client.Join();
    EXPECT_EQ(S_OK, Box.Result);
    EXPECT_EQ(Answer, Box.Answer);
  }
  EXPECT_EQ((TLines{"1 UDialog Begin ShowCustomMsgBox Text=" + Call.Text + " Caption=" + Call.Caption + " MsgType=" +
                        std::to_string(Call.IcoType) + " Buttons=" + Call.Buttons + " DefButton=" + Call.DefButton,
                    "1 UDialog End ShowCustomMsgBox Result=" + Answer}),
            LogLines());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CustomBoxLooks,
    testing::Values(
        TLooksRow{"second_is_default", {13, 90, 13}, {"Go on?", "Question", 32514, "Yes,No", "No"}, {"Yes", "No"}},
        TLooksRow{"text_wraps", {65, 900, 13}, {"A long text", "", 32515, "OK", "OK"}, {"OK"}},
        TLooksRow{"quotes_and_blanks",
                  {26, 40, 13},
                  {"\xFC\x80", "\xC4", 32512, "\"Yes to all\" No, \"\"\"so\"\", \xFC\"", "Yes to all"},
                  {"Yes to all", "No", "\"so\", \xFC"}},
        TLooksRow{"no_buttons", {13, 100, 13}, {"Enter closes this", "b", 32516, "", ""}, {}}),
    [](const auto& Info) { return std::string(Info.param.Name); });

// Without a display there are no icons, so the test lends some.
std::vector<std::string> Drawings;

HICON WINAPI LentIcon(HINSTANCE Owner, LPCSTR Name) {
  return Owner ? nullptr : reinterpret_cast<HICON>(const_cast<LPSTR>(Name));
}
BOOL WINAPI RecordedDrawIcon(HDC, int X, int Y, HICON Icon) {
  Drawings.push_back(std::to_string(reinterpret_cast<ULONG_PTR>(Icon)) + " at " + Placed(X, Y, 0, 0));
  return TRUE;
}

TEST_F(Dialogs, CustomBoxDrawsTheSixSystemIconsAndNoOther) {
  const auto Loaded = Make<IUDialog>(CLSID_UDialog);
  const TImportPatch Load(Module(), "LoadIconA", reinterpret_cast<void*>(LentIcon));
  const TImportPatch Draw(Module(), "DrawIcon", reinterpret_cast<void*>(RecordedDrawIcon));
  for (const long IcoType : {32512, 32513, 32514, 32515, 32516, 32517, 32511, 32518, 0, 1, 0x10000 + 32513, -33023}) {
    Drawings.clear();
    TShownBox Box({"Text", "Caption", IcoType, "OK", "OK"});
    Box.Click("OK");
    Box.Client.Join();
    const bool Known = IcoType >= 32512 && IcoType <= 32517;
    EXPECT_EQ(Known, !Drawings.empty()) << IcoType;
    for (const std::string& Drawn : Drawings)
      EXPECT_EQ(std::to_string(IcoType) + " at " + Placed(12, GetSystemMetrics(SM_CYCAPTION) + 12, 0, 0), Drawn);
  }
}

struct TWayRow {
  const char* Name;
  void (*Act)(const TShownBox& Box);
  std::string Answer;
  std::optional<int> QuitStatus = {};
};

class CustomBoxCloses : public Dialogs, public testing::WithParamInterface<TWayRow> {};

TEST_P(CustomBoxCloses, WithTheAnswerOfTheWay) {
  TShownBox Box({}, "TMainForm", ProgressTitle);
  ASSERT_NE(nullptr, Box.Window);
  ASSERT_EQ(Box.Button("No"), Box.Client.Focus());
  GetParam().Act(Box);
  Box.Client.Join();
  EXPECT_EQ(S_OK, Box.Result);
  EXPECT_EQ(GetParam().Answer, Box.Answer);
  EXPECT_TRUE(Box.BoxIsGone);
  EXPECT_EQ(GetParam().QuitStatus, Box.QuitStatus) << "a request to quit is the caller's";
  EXPECT_EQ("1 UDialog End ShowCustomMsgBox Result=" + GetParam().Answer, LogLines().back());
}

constexpr LPARAM EnterScan = 0x1C, SpaceScan = 0x39, EscapeScan = 0x01;

INSTANTIATE_TEST_SUITE_P(
    Ways, CustomBoxCloses,
    testing::Values(
        TWayRow{"click", [](const TShownBox& Box) { Box.Click("Cancel"); }, "Cancel"},
        TWayRow{"space", [](const TShownBox& Box) { Box.Type(VK_SPACE, SpaceScan); }, "No"},
        TWayRow{"enter", [](const TShownBox& Box) { Box.Type(VK_RETURN, EnterScan); }, "No"},
        TWayRow{"tab_and_space",
                [](const TShownBox& Box) {
                  Box.Tab();
                  Box.Type(VK_SPACE, SpaceScan);
                },
                "Cancel"},
        TWayRow{"tabs_and_enter",
                [](const TShownBox& Box) {
                  Box.Tab();
                  Box.Tab();
                  Box.Type(VK_RETURN, EnterScan);
                },
                "Yes"},
        TWayRow{"enter_on_the_box",
                [](const TShownBox& Box) { PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, 0x1C0001); }, ""},
        TWayRow{"nothing_else",
                [](const TShownBox& Box) {
                  Box.Type(VK_ESCAPE, EscapeScan);
                  // Enter that is held down, twice, of the number block, and one that is let go.
                  for (const LPARAM Data : {0x401C0001, 0x1C0002, 0x11C0001})
                    PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, Data);
                  PostMessageA(Box.Window, WM_KEYUP, VK_RETURN, 0x1C0001);
                  for (const HWND Source : {ControlsOf(Box.Window).front(), HWND{}})
                    PostMessageA(Box.Window, WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(Source));
                  // Posted behind all of these.
                  Box.Click("Yes");
                },
                "Yes"},
        TWayRow{"closed_by_another_thread", [](const TShownBox& Box) { SendMessageA(Box.Window, WM_CLOSE, 0, 0); }, ""},
        TWayRow{"quit", [](const TShownBox& Box) { SendMessageA(Box.Owner, QuitRequest, 7, 0); }, "", 7}),
    [](const auto& Info) { return std::string(Info.param.Name); });

TEST_F(Dialogs, CustomBoxesOfTwoThreadsKeepTheirAnswersApart) {
  TShownBox One({"One", "One", 32513, "Left,Right", ""}), Two({"Two", "Two", 32514, "Up,Down", ""});
  Two.Click("Down");
  Two.Client.Join();
  EXPECT_EQ("Down", Two.Answer);
  EXPECT_TRUE(IsWindow(One.Window));
  One.Click("Left");
  One.Client.Join();
  EXPECT_EQ("Left", One.Answer);
}

TEST_F(Dialogs, BelongToTheProgressWindowAndToNoOther) {
  struct TRow {
    const char *Class, *Title;
    bool Owns;
  };
  for (const TRow& Row : {TRow{"TMainForm", ProgressTitle, true}, TRow{"TMainForm", "Orvane Updater", false},
                          TRow{"TOtherForm", ProgressTitle, false}}) {
    TShownBox Box({}, Row.Class, Row.Title);
    ASSERT_NE(nullptr, Box.Owner);
    EXPECT_EQ(Row.Owns ? Box.Owner : nullptr, GetWindow(Box.Window, GW_OWNER)) << Row.Class << Row.Title;
    EXPECT_TRUE(IsWindowEnabled(Box.Owner));
    Box.Click("Yes");
    Box.Client.Join();
    EXPECT_EQ("Yes", Box.Answer);

    TClientThread Client([&] {
      const TProgressWindow Progress(Row.Class, Row.Title);
      Box.Owner = Progress.Window;
      long Answer = 0;
      Make<IUDialog>(CLSID_UDialog)->ShowMsgBox(Text("Text"), Text("Caption"), MB_OK, &Answer);
    });
    const HWND MessageBox = Client.Window(MessageBoxClass);
    EXPECT_EQ(Row.Owns ? Box.Owner : nullptr, GetWindow(MessageBox, GW_OWNER)) << Row.Class << Row.Title;
    Press(MessageBox, IDOK);
  }
}

}  // namespace
