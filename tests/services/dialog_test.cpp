#include "support/client_thread.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <functional>
#include <optional>

namespace {

constexpr char CustomBoxClass[] = "MendworkCustomMsgBox";
constexpr char ProgressTitle[] = "Orvane Updater - Update progress";
/// Data of the Enter key's first press on a real keyboard.
constexpr LPARAM EnterPressed = 0x1C0001;
/// For windows of the tests: asks their thread to quit.
constexpr UINT QuitRequest = WM_APP;

LRESULT CALLBACK OwnerProcedure(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  if (Message == QuitRequest) PostQuitMessage(static_cast<int>(Parameter));
  return DefWindowProcA(Window, Message, Parameter, Data);
}

/// The updater's progress window, or one that only resembles it. Its thread shows the boxes, as the updater's does.
HWND MakeOwner(const char* Class, const char* Title) {
  WNDCLASSA Registration{};
  Registration.lpfnWndProc = OwnerProcedure;
  Registration.lpszClassName = Class;
  RegisterClassA(&Registration);
  return CreateWindowExA(0, Class, Title, WS_OVERLAPPEDWINDOW, 0, 0, 100, 50, nullptr, nullptr, nullptr, nullptr);
}

class MessageBoxes : public TSandboxTest {};

std::tuple<HWND, std::string, std::string, UINT> Shown;
TMemoryLog* LogOfBox = nullptr;

int WINAPI AnswerNo(HWND Owner, LPCSTR Text, LPCSTR Caption, UINT Style) {
  Shown = {Owner, Text, Caption, Style};
  LogOfBox->LinesLeft = Style == MB_YESNO ? 0 : -1;  // the End line's
  return IDNO;
}

TEST_F(MessageBoxes, AreShownOverTheProgressWindowOnlyAndFailWithTheirLogLines) {
  LogOfBox = &Log();
  const TComRef<IUDialog> Object = Make<IUDialog>(CLSID_UDialog);
  const TImportPatch Box("MessageBoxA", AnswerNo);
  const std::string Words = "Two\r\nlines, \xFC and \x80";
  for (const auto& [MsgType, OwnerClass, OwnerTitle] : {std::tuple{0x101, "TMainForm", ProgressTitle},
                                                        {0x2024, "TMainForm", "Orvane Updater"},
                                                        {MB_YESNO, "TOtherForm", ProgressTitle}}) {
    const HWND Owner = MakeOwner(OwnerClass, OwnerTitle);
    long Answer = -1;
    const HRESULT Result = Object->ShowMsgBox(Text(Words), Text("A caption"), MsgType, &Answer);
    EXPECT_EQ(MsgType == MB_YESNO ? E_ACCESSDENIED : S_OK, Result);
    EXPECT_EQ(MsgType == MB_YESNO ? 0 : IDNO, Answer);
    EXPECT_EQ(std::tuple(MsgType == 0x101 ? Owner : nullptr, Words, "A caption", static_cast<UINT>(MsgType)), Shown);
    DestroyWindow(Owner);
  }
  // Nothing is shown that the log does not know of.
  EXPECT_EQ(E_ACCESSDENIED, Object->ShowCustomMsgBox(Text("Text"), Text(""), 1, Text("Yes"), Text(""), TBstr().Out()));
  EXPECT_EQ("Begin ShowMsgBox Text=" + Words + " Caption=A caption MsgType=257", Log().Texts("UDialog")[0]);
  EXPECT_EQ("End ShowMsgBox Result=7", Log().Texts("UDialog")[1]);
}

class CustomBoxes : public TSandboxTest {
 protected:
  CustomBoxes() : TSandboxTest(LogToFile) {}
};

struct TCustomCall {
  std::string Text = "Text", Caption = "Caption";
  long IcoType = 0;
  std::string Buttons = "Yes,No,Cancel", DefButton = "No";
};

/// A custom box that a client's thread shows, beside a window of that thread that may be the updater's.
class TShownBox {
 public:
  explicit TShownBox(const TCustomCall& Call, const char* OwnerClass = "TMainForm")
      : Client([=, this] {
          Owner = MakeOwner(OwnerClass, ProgressTitle);
          TBstr Res;
          Result = Make<IUDialog>(CLSID_UDialog)
                       ->ShowCustomMsgBox(::Text(Call.Text), ::Text(Call.Caption), Call.IcoType, ::Text(Call.Buttons),
                                          ::Text(Call.DefButton), Res.Out());
          BoxIsGone = !IsWindow(Window);
          Answer = Take(Res);
          MSG Message;
          while (PeekMessageA(&Message, nullptr, 0, 0, PM_REMOVE))
            if (Message.message == WM_QUIT) QuitStatus = static_cast<int>(Message.wParam);
          DestroyWindow(Owner);
        }),
        Window(Client.Window(CustomBoxClass)) {
    Must(Window, "no box is shown");
  }

  void Click(const std::string& Caption) const {
    for (const HWND Control : ControlsOf(Window))
      if (ClassOf(Control) == "Button" && TextOf(Control) == Caption)
        for (const UINT Event : {WM_LBUTTONDOWN, WM_LBUTTONUP})
          PostMessageA(Control, Event, MK_LBUTTON, MAKELPARAM(50, 11));
  }
  /// A key stroke where the focus is, with the data of a real keyboard.
  void Type(WPARAM Key, LPARAM ScanCode) const {
    const HWND Target = Client.Focus();
    PostMessageA(Target, WM_KEYDOWN, Key, ScanCode << 16 | 1);
    PostMessageA(Target, WM_KEYUP, Key, static_cast<LPARAM>(0xC0000001 | ScanCode << 16));
    EXPECT_TRUE(Key != VK_TAB || Until([&] { return Client.Focus() != Target; })) << "Tab does not move the focus";
  }
  void ExpectAnswer(const std::string& Expected) {
    Client.Join();
    EXPECT_EQ(S_OK, Result);
    EXPECT_EQ(Expected, Answer);
    EXPECT_TRUE(BoxIsGone);
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

// Without a display there are no icons, so the test lends some.
HICON Drawn;

HICON WINAPI LentIcon(HINSTANCE Owner, LPCSTR Name) {
  return Owner ? nullptr : reinterpret_cast<HICON>(const_cast<LPSTR>(Name));
}
BOOL WINAPI RecordedDrawIcon(HDC, int, int, HICON Icon) {
  Drawn = Icon;
  return TRUE;
}

TEST_F(CustomBoxes, ShowWhatTheCallAsksFor) {
  const std::pair<TCustomCall, TWords> Rows[] = {
      {{"Go on?", "Question", 32514, "Yes,No", "No"}, {"Go on?", "Yes", "No"}},
      {{"\xFC\x80", "\xC4", 32512, "\"Yes to all\" No, \"\"\"so\"\", \xFC\"", "Yes to all"},
       {"\xFC\x80", "Yes to all", "No", "\"so\", \xFC"}},
      {{"Enter closes this", "b", 32516, "", ""}, {"Enter closes this"}},
      {{"above", "", 32518, "OK", ""}, {"above", "OK"}},
      {{"the last", "", 32517, "OK", ""}, {"the last", "OK"}},
      {{"below", "", 32511, "OK", ""}, {"below", "OK"}}};
  const auto Loaded = Make<IUDialog>(CLSID_UDialog);
  const TImportPatch Load("LoadIconA", LentIcon), Draw("DrawIcon", RecordedDrawIcon);
  for (const auto& [Call, Captions] : Rows) {
    SCOPED_TRACE(Call.Text);
    Drawn = nullptr;
    const bool IsFirst = &Call == &Rows[0].first;
    TShownBox Box(Call, IsFirst ? "TMainForm" : "TOtherForm");
    EXPECT_EQ(Call.Caption, TextOf(Box.Window));
    EXPECT_EQ(IsFirst ? Box.Owner : nullptr, GetWindow(Box.Window, GW_OWNER));
    EXPECT_TRUE(IsWindowEnabled(Box.Owner));
    TWords Shown;
    RECT Frame = PlaceOf(Box.Window), Before{}, Common;
    for (const HWND Control : ControlsOf(Box.Window)) {
      const RECT Place = PlaceOf(Control);
      Shown.push_back(TextOf(Control));
      UnionRect(&Common, &Frame, &Place);
      EXPECT_TRUE(EqualRect(&Common, &Frame)) << Shown.back() << " lies outside";
      EXPECT_FALSE(IntersectRect(&Common, &Before, &Place)) << Shown.back() << " covers its neighbour";
      Before = Place;
      EXPECT_TRUE(IsWindowVisible(Control)) << Shown.back();
      if (ClassOf(Control) != "Button") continue;
      const bool IsDefault = Shown.back() == Call.DefButton;
      EXPECT_EQ(IsDefault, (GetWindowLongA(Control, GWL_STYLE) & BS_DEFPUSHBUTTON) != 0) << Shown.back();
      EXPECT_EQ(IsDefault, Control == Box.Client.Focus()) << Shown.back();
    }
    EXPECT_EQ(Captions, Shown);
    if (Captions.size() == 1) PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, EnterPressed);
    Box.Click(Captions.back());
    Box.ExpectAnswer(Captions.size() == 1 ? "" : Captions.back());
    const bool Known = Call.IcoType >= 32512 && Call.IcoType <= 32517;
    EXPECT_EQ(Known ? Call.IcoType : 0, static_cast<long>(reinterpret_cast<INT_PTR>(Drawn)));
  }
}

TEST_F(CustomBoxes, CloseWithTheAnswerOfTheWay) {
  constexpr LPARAM EnterScan = 0x1C, SpaceScan = 0x39, EscapeScan = 0x01, TabScan = 0x0F;
  const struct {
    std::function<void(const TShownBox& Box)> Act;
    std::string Answer;
    std::optional<int> QuitStatus = {};
  } Ways[] = {{[](const TShownBox& Box) { Box.Type(VK_SPACE, SpaceScan); }, "No"},
              {[](const TShownBox& Box) {
                 for (int Tab = 0; Tab < 2; ++Tab) Box.Type(VK_TAB, TabScan);
                 Box.Type(VK_RETURN, EnterScan);
               },
               "Yes"},
              {[](const TShownBox& Box) { PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, EnterPressed); }, ""},
              {[](const TShownBox& Box) {
                 Box.Type(VK_ESCAPE, EscapeScan);
                 // Enter that is held down, twice, of the number block, and one that is let go.
                 for (const LPARAM Data : {0x401C0001, 0x1C0002, 0x11C0001})
                   PostMessageA(Box.Window, WM_KEYDOWN, VK_RETURN, Data);
                 PostMessageA(Box.Window, WM_KEYUP, VK_RETURN, EnterPressed);
                 for (const HWND Source : {ControlsOf(Box.Window).front(), HWND{}})
                   PostMessageA(Box.Window, WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(Source));
                 Box.Click("Yes");  // posted behind all of these
               },
               "Yes"},
              {[](const TShownBox& Box) { SendMessageA(Box.Window, WM_CLOSE, 0, 0); }, ""},  // by another thread
              // A request to quit is the caller's.
              {[](const TShownBox& Box) { SendMessageA(Box.Owner, QuitRequest, 7, 0); }, "", 7}};
  // Another thread's box keeps its answer.
  TShownBox Other({"Other", "Other", 32513, "Left,Right", ""}, "TOtherForm");
  for (const auto& Way : Ways) {
    SCOPED_TRACE(&Way - Ways);
    TShownBox Box({});
    Way.Act(Box);
    Box.ExpectAnswer(Way.Answer);
    EXPECT_EQ(Way.QuitStatus, Box.QuitStatus);
  }
  EXPECT_TRUE(IsWindow(Other.Window));
  Other.Click("Left");
  Other.ExpectAnswer("Left");
  CoFreeUnusedLibrariesEx(0, 0);  // the module keeps its log to itself
  const std::string Lines = Read(Updates("Log\\update.log"));
  EXPECT_NE(std::string::npos, Lines.find(" Begin ShowCustomMsgBox Text=Other Caption=Other MsgType=32513 "
                                          "Buttons=Left,Right DefButton=\r\n"));
  EXPECT_TRUE(Lines.ends_with(" UDialog End ShowCustomMsgBox Result=Left\r\n"));
}

}  // namespace
