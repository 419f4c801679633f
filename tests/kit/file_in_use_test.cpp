#include "kit/kit_fixture.h"
#include "support/client_thread.h"

#include <restartmanager.h>

#include <cstring>

namespace {

constexpr char KitModule[] = "MendworkKit.dll";
DWORD HolderId = 0;
std::wstring Asked;

// A Restart Manager that knows one holder of whatever it is asked for.
DWORD WINAPI Start(DWORD* Session, DWORD, WCHAR*) { return *Session = 7, ERROR_SUCCESS; }
DWORD WINAPI Register(DWORD, UINT, LPCWSTR Files[], UINT, RM_UNIQUE_PROCESS*, UINT, LPCWSTR*) {
  return Asked += Files[0], ERROR_SUCCESS;
}
DWORD WINAPI List(DWORD, UINT* Needed, UINT* Count, RM_PROCESS_INFO* Found, DWORD*) {
  const bool Room = *Count > 0;
  *Needed = HolderId ? 1 : 0;
  *Count = HolderId && Room ? 1 : 0;
  if (HolderId && !Room) return ERROR_MORE_DATA;
  if (!HolderId) return ERROR_SUCCESS;
  Found[0] = {};
  Found[0].Process.dwProcessId = HolderId;
  std::wmemcpy(Found[0].strAppName, L"Word Count", 11);
  return ERROR_SUCCESS;
}
DWORD WINAPI Shutdown(DWORD, ULONG Flags, RM_WRITE_STATUS_CALLBACK) {
  return Asked += L" shutdown " + std::to_wstring(Flags), ERROR_SUCCESS;
}
DWORD WINAPI End(DWORD Session) { return Asked += L" end " + std::to_wstring(Session), ERROR_SUCCESS; }
HMODULE WINAPI LoadOwn(LPCWSTR Name, HANDLE, DWORD) {
  return std::wstring_view(Name) == L"rstrtmgr.dll" ? LoadLibraryA("kernel32.dll") : nullptr;
}
FARPROC WINAPI FindOwn(HMODULE, LPCSTR Name) {
  const std::pair<const char*, void*> Functions[] = {{"RmStartSession", reinterpret_cast<void*>(&Start)},
                                                     {"RmRegisterResources", reinterpret_cast<void*>(&Register)},
                                                     {"RmGetList", reinterpret_cast<void*>(&List)},
                                                     {"RmShutdown", reinterpret_cast<void*>(&Shutdown)},
                                                     {"RmEndSession", reinterpret_cast<void*>(&End)}};
  for (const auto& [Own, Function] : Functions)
    if (std::strcmp(Own, Name) == 0) return reinterpret_cast<FARPROC>(Function);
  return nullptr;
}

std::string Boxes;
int WINAPI AnswerCancel(HWND, LPCSTR Text, LPCSTR Caption, UINT Style) {
  Boxes += std::string(Caption) + ": " + Text + " " + std::to_string(Style) + "\n";
  return IDCANCEL;
}

class KitFileInUse : public TKitTest {
 protected:
  std::string Question(const char* Code, const std::string& What) const {
    return What + "\r\n\r\nError: 'Sharing violation.\r\n' (Error code: " + Code + ").";
  }
  /// Asks in a thread of its own, presses a button of the box, and gives what the box showed and what came of it.
  std::string Press(const std::string& Question, const std::string& Button) const {
    long Answer = 0;
    std::string Shown;
    TClientThread Client([&] {
      const auto OfThread = Make<IKit>(CLSID_Kit);
      OfThread->FileInUse(VARIANT_TRUE);
      Active<IUDialog>(CLSID_UDialog)
          ->ShowMsgBox(Text(Question), Text("Error"), MB_RETRYCANCEL | MB_ICONERROR, &Answer);
    });
    const HWND Box = Client.Window("MendworkCustomMsgBox");
    HWND Pressed = nullptr;
    for (const HWND Control : ControlsOf(Box)) {
      Shown += TextOf(Control) + "|";
      if (TextOf(Control) == Button) Pressed = Control;
    }
    PostMessageA(Box, WM_COMMAND, 0, reinterpret_cast<LPARAM>(Pressed));
    Client.Join();
    return Shown + std::to_string(Answer);
  }
};

TEST_F(KitFileInUse, NamesTheHoldersAndAsksThemToEnd) {
  const TImportPatch Load("LoadLibraryExW", LoadOwn, KitModule), Find("GetProcAddress", FindOwn, KitModule);
  const std::string File = App("it's.dll");
  Write(File, "a");
  const std::string Words = Question("20", "Cannot delete '" + File + "'.");
  HolderId = 42;
  const std::string Shown = Press(Words, "Close it");
  for (const char* Part : {"In use by:", "Word Count (process 42)", "Close it|", "Try again|", "Undo the update|"})
    EXPECT_NE(Shown.npos, Shown.find(Part)) << Shown;
  EXPECT_TRUE(Shown.ends_with("|4")) << Shown;
  EXPECT_EQ(ToWide(File) + L" shutdown 0 end 7", Asked);
  Asked.clear();
  EXPECT_TRUE(
      Press(Question("5", "Cannot move file '" + App("none") + "' to '" + File + "'."), "Try again").ends_with("|4"));
  EXPECT_EQ(ToWide(File) + L" end 7", Asked);
  HolderId = GetCurrentProcessId();
  const std::string Own = Press(Words, "Undo the update");
  EXPECT_TRUE(Own.ends_with("|2") && Own.find("Close it") == Own.npos) << Own;
}

TEST_F(KitFileInUse, SaysWhatCancelLeavesAndElseShowsTheBoxAsItIs) {
  const auto Keeps = Make<IUDialog>(CLSID_UDialog);  // the module loaded
  const TImportPatch Box("MessageBoxA", AnswerCancel);
  const std::string File = App("made\\a.txt");
  ASSERT_EQ(S_OK, Kit->FileInUse(VARIANT_TRUE));
  const auto Dialog = Active<IUDialog>(CLSID_UDialog);
  ASSERT_TRUE(Dialog);
  Write(App("new\\a.txt"), "a");
  long Answer = 0;
  std::string Expected;
  for (const auto& [Text_, Style] :
       {std::pair{Question("20", "Cannot delete '" + App("new\\a.txt") + "'."), MB_RETRYCANCEL},
        {Question("2", "Cannot open 'a'."), MB_RETRYCANCEL},
        {std::string("Overwrite?"), MB_YESNO}}) {
    EXPECT_EQ(S_OK, Dialog->ShowMsgBox(Text(Text_), Text("Error"), Style, &Answer));
    EXPECT_EQ(IDCANCEL, Answer);
    Expected += "Error: " + Text_ + " " + std::to_string(Style) + "\n";
    EXPECT_EQ(Text_, LastMessage());
  }
  EXPECT_EQ(Expected, Boxes) << "the platform knows no holders";
  TBstr Files;
  ASSERT_EQ(S_OK, Kit->CopyTreeLogged(Text(App("new")), Text(App("made")), nullptr, 0, Files.Out()));
  GUID Reached{};
  Boxes.clear();
  {
    const TFileHandle Held(
        CreateFileA(File.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(static_cast<HRESULT>(0x80040220), Kit->Rollback(VARIANT_FALSE, &Reached));
  }
  EXPECT_TRUE(Boxes.starts_with("Error: Cannot delete '" + File + "'.")) << Boxes;
  EXPECT_NE(Boxes.npos, Boxes.find("\r\n\r\nThe update is being undone. Cancel leaves this file")) << Boxes;
  EXPECT_EQ(S_OK, Kit->Rollback(VARIANT_FALSE, &Reached));
  EXPECT_FALSE(Exists(App("made")));
  EXPECT_EQ(S_OK, Kit->FileInUse(VARIANT_FALSE));
  EXPECT_FALSE(Active<IUDialog>(CLSID_UDialog));
}

}  // namespace
