#include "support/client_thread.h"
#include "support/sandbox_test.h"

#include <optional>

namespace {

using TLines = std::vector<std::string>;

/// The data of key strokes on a real keyboard.
constexpr LPARAM EnterScan = 0x1C, SpaceScan = 0x39, EscapeScan = 0x01, EnterPressed = 0x1C0001;

constexpr char CustomBoxClass[] = "MendworkCustomMsgBox";
constexpr char ProgressTitle[] = "Orvane Updater - Update progress";

class Dialogs : public TSandboxTest {
 protected:
  Dialogs() : TSandboxTest(LogToFile) {}
};

/// For windows of the tests: asks their thread to quit.
constexpr UINT QuitRequest = WM_APP;

LRESULT CALLBACK OwnerProcedure(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  if (Message == QuitRequest) PostQuitMessage(static_cast<int>(Parameter));
  return DefWindowProcA(Window, Message, Parameter, Data);
}

/// The updater's progress window, or one that only resembles it. Its thread shows the boxes, as the updater's does.
HWND MakeOwner(const std::string& Class, const std::string& Title) {
  WNDCLASSA Registration{};
  Registration.lpfnWndProc = OwnerProcedure;
  Registration.lpszClassName = Class.c_str();
  RegisterClassA(&Registration);
  return CreateWindowExA(0, Class.c_str(), Title.c_str(), WS_OVERLAPPEDWINDOW, 0, 0, 100, 50, nullptr, nullptr, nullptr,
                         nullptr);
}

// ---- The system's message box

TEST_F(Dialogs, MsgBoxShowsTheButtonsAndGivesTheAnswer) {
  struct TRow {
    long MsgType;
    std::vector<int> Buttons;
    int DefaultButton;
  };
  for (const TRow& Row : {TRow{0x101, {IDOK, IDCANCEL}, IDCANCEL}, TRow{0x202, {IDABORT, IDRETRY, IDIGNORE}, IDIGNORE},
                          TRow{0x2024, {IDYES, IDNO}, IDYES}}) {
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
    Press(Box, Row.DefaultButton);
    Client.Join();
    EXPECT_EQ(S_OK, Result);
    EXPECT_EQ(Row.DefaultButton, Answer);
  }
}

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
  const TImportPatch Box("MessageBoxA", AnswerYes);
  long Answer = -1;
  FailingLog.Result = E_ABORT;
  EXPECT_EQ(E_ABORT, Object->ShowMsgBox(Text("Text"), Text("Caption"), MB_YESNO, &Answer));
  EXPECT_EQ(0, BoxesShown) << "nothing is shown that the log does not know of";
  FailingLog.Result = S_OK;
  FailingLog.Lines.clear();
  EXPECT_EQ(E_ACCESSDENIED, Object->ShowMsgBox(Text("Text"), Text("Caption"), MB_YESNO, &Answer));
  EXPECT_EQ(1, BoxesShown);
  EXPECT_EQ(0, Answer) << "it is lost";
  EXPECT_EQ((TLines{"Begin ShowMsgBox Text=Text Caption=Caption MsgType=4", "End ShowMsgBox Result=6"}),
            FailingLog.Texts("UDialog"));
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
          if (!OwnerClass.empty()) Owner = MakeOwner(OwnerClass, OwnerTitle);
          const auto Object = Make<IUDialog>(CLSID_UDialog);
          TBstr Res;
          Result = Object->ShowCustomMsgBox(::Text(Call.Text), ::Text(Call.Caption), Call.IcoType, ::Text(Call.Buttons),
                                            ::Text(Call.DefButton), Res.Out());
          BoxIsGone = !IsWindow(Window);
          Answer = Take(Res);
          MSG Message;
          while (PeekMessageA(&Message, nullptr, 0, 0, PM_REMOVE))
            if (Message.message == WM_QUIT) QuitStatus = static_cast<int>(Message.wParam);
          DestroyWindow(Owner);
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
  void ClickAndExpectAnswer(const std::string& Caption) {
    Click(Caption);
    Client.Join();
    EXPECT_EQ(S_OK, Result);
    EXPECT_EQ(Caption, Answer);
  }

  HRESULT Result = E_FAIL;
  std::string Answer = "no answer";
  std::optional<int> QuitStatus;
  HWND Owner = nullptr;
  bool BoxIsGone = false;
  TClientThread Client;
  HWND Window;
};

RECT PlaceOf(HWND Window) {
  RECT Place;
  GetWindowRect(Window, &Place);
  return Place;
}

TEST_F(Dialogs, CustomBoxShowsWhatTheCallAsksFor) {
  struct TRow {
    TCustomCall Call;
    TLines Captions;
  };
  for (const auto& [Call, Captions] :
       {TRow{{"Go on?", "Question", 32514, "Yes,No", "No"}, {"Yes", "No"}},
        TRow{{"\xFC\x80", "\xC4", 32512, "\"Yes to all\" No, \"\"\"so\"\", \xFC\"", "Yes to all"},
             {"Yes to all", "No", "\"so\", \xFC"}},
        TRow{{"Enter closes this", "b", 32516, "", ""}, {}}}) {
    SCOPED_TRACE(Call.Text);
    TShownBox Box(Call);
    ASSERT_NE(nullptr, Box.Window);
    EXPECT_EQ(Call.Caption, TextOf(Box.Window));
    EXPECT_EQ(nullptr, GetWindow(Box.Window, GW_OWNER));
    TLines Shown;
    RECT Frame = PlaceOf(Box.Window), Before{}, Common;
    for (const HWND Control : ControlsOf(Box.Window)) {
      const RECT Place = PlaceOf(Control);
      Shown.push_back(TextOf(Control));
      UnionRect(&Common, &Frame, &Place);
      EXPECT_TRUE(EqualRect(&Common, &Frame)) << Shown.back() << " lies outside";
      EXPECT_FALSE(IntersectRect(&Common, &Before, &Place)) << Shown.back() << " covers its neighbour";
      Before = Place;
      EXPECT_TRUE(IsWindowVisible(Control)) << Shown.back();
      const LONG Style = GetWindowLongA(Control, GWL_STYLE);
      if (ClassOf(Control) != "Button") continue;
      EXPECT_EQ(Shown.back() == Call.DefButton, (Style & BS_DEFPUSHBUTTON) != 0) << Shown.back();
      EXPECT_EQ(Shown.back() == Call.DefButton, Control == Box.Client.Focus()) << Shown.back();
    }
    TLines Expected = Captions;
    Expected.insert(Expected.begin(), Call.Text);
    EXPECT_EQ(Expected, Shown);
    if (!Captions.empty()) {
      Box.ClickAndExpectAnswer(Captions.back());
      continue;
    }
    PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, EnterPressed);
    Box.Client.Join();
    EXPECT_EQ("", Box.Answer);
  }
}

// Without a display there are no icons, so the test lends some.
HICON Drawn;

HICON WINAPI LentIcon(HINSTANCE Owner, LPCSTR Name) {
  return Owner ? nullptr : reinterpret_cast<HICON>(const_cast<LPSTR>(Name));
}
BOOL WINAPI RecordedDrawIcon(HDC, int, int, HICON Icon) {
  Drawn = Icon;
  return TRUE;
}

TEST_F(Dialogs, CustomBoxDrawsTheSixSystemIconsAndNoOther) {
  const auto Loaded = Make<IUDialog>(CLSID_UDialog);
  const TImportPatch Load("LoadIconA", LentIcon);
  const TImportPatch Draw("DrawIcon", RecordedDrawIcon);
  for (const long IcoType : {32512, 32513, 32514, 32515, 32516, 32517, 32511, 32518, 0, 0x10000 + 32513, -33023}) {
    Drawn = nullptr;
    TShownBox Box({"Text", "Caption", IcoType, "OK", "OK"});
    Box.ClickAndExpectAnswer("OK");
    const bool Known = IcoType >= 32512 && IcoType <= 32517;
    EXPECT_EQ(Known ? reinterpret_cast<HICON>(static_cast<INT_PTR>(IcoType)) : nullptr, Drawn) << IcoType;
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
}

INSTANTIATE_TEST_SUITE_P(
    Ways, CustomBoxCloses,
    testing::Values(
        TWayRow{"space", [](const TShownBox& Box) { Box.Type(VK_SPACE, SpaceScan); }, "No"},
        TWayRow{"tabs_and_enter",
                [](const TShownBox& Box) {
                  Box.Tab();
                  Box.Tab();
                  Box.Type(VK_RETURN, EnterScan);
                },
                "Yes"},
        TWayRow{"enter_on_the_box",
                [](const TShownBox& Box) { PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, EnterPressed); }, ""},
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
  Two.ClickAndExpectAnswer("Down");
  EXPECT_TRUE(IsWindow(One.Window));
  One.ClickAndExpectAnswer("Left");
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
    Box.ClickAndExpectAnswer("Yes");

    HWND Owner = nullptr;
    TClientThread Client([&] {
      Owner = MakeOwner(Row.Class, Row.Title);
      long Answer = 0;
      Make<IUDialog>(CLSID_UDialog)->ShowMsgBox(Text("Text"), Text("Caption"), MB_OK, &Answer);
      DestroyWindow(Owner);
    });
    const HWND MessageBox = Client.Window(MessageBoxClass);
    EXPECT_EQ(Row.Owns ? Owner : nullptr, GetWindow(MessageBox, GW_OWNER)) << Row.Class << Row.Title;
    Press(MessageBox, IDOK);
  }
}

}  // namespace
