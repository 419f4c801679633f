#include "kit/kit_fixture.h"
#include "support/client_thread.h"

#include <commctrl.h>

namespace {

class KitProgress : public TKitTest {
 protected:
  static HWND OwnWindow() { return FindWindowA("MendworkKitProgress", nullptr); }
  /// What the window shows: its words, the position and the total.
  static std::string Shown() {
    const std::vector<HWND> Controls = ControlsOf(OwnWindow());
    if (Controls.size() != 2) return "no window";
    const auto Ask = [&](UINT Message) { return std::to_string(SendMessageW(Controls[1], Message, 0, 0)); };
    return TextOf(Controls[0]) + " " + Ask(PBM_GETPOS) + " " + Ask(PBM_GETRANGE);
  }
};

std::string Told;

LRESULT CALLBACK Listen(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  if (Message == RegisterWindowMessageA("MendworkKit.Progress"))
    Told += std::to_string(Parameter) + "/" + std::to_string(Data) + " ";
  return DefWindowProcW(Window, Message, Parameter, Data);
}

TEST_F(KitProgress, ShowsTheStepsInAWindowOfItsOwn) {
  EXPECT_EQ(S_OK, Kit->Step(Text("without one")));
  EXPECT_EQ(S_OK, Kit->Progress(3, 0));
  EXPECT_EQ(" 0 3", Shown());
  for (const char* Words : {"Copying & so on", "two", "three", "four"})
    EXPECT_EQ(S_OK, Kit->Step(Text(std::string(Words))));
  EXPECT_EQ("four 3 3", Shown());
  EXPECT_EQ(0, SendMessageW(OwnWindow(), WM_CLOSE, 0, 0));
  EXPECT_EQ(E_INVALIDARG, Kit->Progress(-1, 0));
  EXPECT_EQ(E_INVALIDARG, Kit->Progress(3, 12345677));
  EXPECT_EQ("12345677 is the number of no window.", ErrorText());
  EXPECT_EQ("four 3 3", Shown()) << "what is refused changes nothing";
  EXPECT_EQ(S_OK, Kit->Progress(1000000, 0));
  EXPECT_EQ(S_OK, Kit->Step(nullptr));
  EXPECT_EQ(" 1 1000000", Shown());
  EXPECT_EQ(S_OK, Kit->Progress(0, 0));
  EXPECT_EQ(nullptr, OwnWindow());
  EXPECT_EQ(S_OK, Kit->Progress(1, 0));
  Kit = {};
  EXPECT_EQ(nullptr, OwnWindow());
}

TEST_F(KitProgress, TellsTheCallersWindow) {
  const HWND Window = CreateWindowW(L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  SetWindowLongPtrW(Window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Listen));
  const long Number = static_cast<long>(reinterpret_cast<LONG_PTR>(Window));
  EXPECT_EQ(S_OK, Kit->Progress(2, Number));
  for (int At = 0; At < 3; ++At) EXPECT_EQ(S_OK, Kit->Step(Text("a")));
  EXPECT_EQ("0/2 1/2 2/2 2/2 ", Told);
  EXPECT_EQ(nullptr, OwnWindow());
  DestroyWindow(Window);
  EXPECT_EQ(S_OK, Kit->Step(Text("it is gone")));
}

}  // namespace
