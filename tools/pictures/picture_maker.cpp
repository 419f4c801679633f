// Takes the pictures of the documentation: shows each kind of box as a user gets to see it, and writes what is on the
// screen into the folder that the command line names, as bitmaps.
//
// Needs a display and a Wine prefix that may be thrown away afterwards: it sets the application's base folder.

#include "support/client_thread.h"
#include "support/sandbox.h"

#include <cstdio>
#include <fstream>

namespace {

constexpr char Application[] = "C:\\Program Files\\Orvane\\";

/// Without a window manager nobody but Wine itself can draw the frames; read when the first window is made.
void LetWineDrawFrames() {
  RegSetKeyValueA(HKEY_CURRENT_USER, "Software\\Wine\\X11 Driver", "Managed", REG_SZ, "N", 2);
}

void SetBaseFolder() {
  const std::string Base = "C:\\ProgramData\\Orvane";
  MakeFolders(Base);
  RegSetKeyValueA(HKEY_CURRENT_USER, "Software\\Orvane\\Core", nullptr, REG_SZ, Base.c_str(),
                  static_cast<DWORD>(Base.size() + 1));
}

bool SavePicture(HWND Window, const std::string& File) {
  RECT Place;
  GetWindowRect(Window, &Place);
  BITMAPINFOHEADER Info{};
  Info.biSize = sizeof Info;
  Info.biWidth = Place.right - Place.left;
  Info.biHeight = Place.bottom - Place.top;
  Info.biPlanes = 1;
  Info.biBitCount = 24;
  Info.biSizeImage = static_cast<DWORD>((Info.biWidth * 3 + 3) / 4 * 4 * Info.biHeight);

  void* Pixels = nullptr;
  const HDC Source = GetWindowDC(Window), Memory = CreateCompatibleDC(Source);
  const HBITMAP Bitmap =
      CreateDIBSection(Memory, reinterpret_cast<BITMAPINFO*>(&Info), DIB_RGB_COLORS, &Pixels, nullptr, 0);
  SelectObject(Memory, Bitmap);
  const bool Copied = BitBlt(Memory, 0, 0, Info.biWidth, Info.biHeight, Source, 0, 0, SRCCOPY);
  GdiFlush();
  BITMAPFILEHEADER Header{};
  Header.bfType = 0x4D42;  // "BM"
  Header.bfOffBits = sizeof Header + sizeof Info;
  Header.bfSize = Header.bfOffBits + Info.biSizeImage;
  std::ofstream Out(File, std::ios::binary);
  Out.write(reinterpret_cast<const char*>(&Header), sizeof Header);
  Out.write(reinterpret_cast<const char*>(&Info), sizeof Info);
  Out.write(static_cast<const char*>(Pixels), static_cast<std::streamsize>(Info.biSizeImage));
  DeleteDC(Memory);
  DeleteObject(Bitmap);
  ReleaseDC(Window, Source);
  return Copied && Out.flush();
}

/// A box on the screen, and the way to make it go.
struct TScene {
  const char* Name;
  std::function<void()> Show;
  const char* Class;
  void (*Close)(HWND Box);
};

bool TakePicture(const TScene& Scene, const std::string& Folder) {
  TClientThread Client(Scene.Show);
  const HWND Box = Client.Window(Scene.Class);
  if (!Box) {
    std::printf("%s did not appear\n", Scene.Name);
    return false;
  }
  RedrawWindow(Box, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_ALLCHILDREN | RDW_UPDATENOW);
  const bool Saved = SavePicture(Box, Folder + "\\" + Scene.Name + ".bmp");
  std::printf("%s: %s\n", Scene.Name, Saved ? "taken" : "cannot be written");
  Scene.Close(Box);
  return Saved;
}

/// The window class of system message boxes.
constexpr char MessageBoxClass[] = "#32770";
/// Presses a button of a system message box and waits until the box is gone.
void Press(HWND MessageBox, int Answer) {
  PostMessageA(MessageBox, WM_COMMAND, static_cast<WPARAM>(Answer), 0);
  Until([&] { return !IsWindow(MessageBox); });
}
void PressCancel(HWND Box) { Press(Box, IDCANCEL); }
void PressNo(HWND Box) { Press(Box, IDNO); }

}  // namespace

int main(int Count, char** Arguments) {
  if (Count != 2) {
    std::puts("usage: picture_maker FOLDER");
    return 2;
  }
  LetWineDrawFrames();
  SetBaseFolder();
  const std::string Library = Application + std::string("orvane.dll"), New = "C:\\ProgramData\\Orvane\\orvane.dll";
  constexpr uint64_t Today = 134081568000000000, Second = 10000000;
  Write(Library, std::string(48640, 'x'));
  Write(New, std::string(47104, 'x'));
  SetTimes(Library, Today, Today);
  SetTimes(New, Today, Today - 100000 * Second);
  const std::string Held = Application + std::string("report.dll");
  const TFileHandle InUse(
      CreateFileA(Held.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));

  constexpr long ByTimeElseAsk = 5, QuestionIcon = 32514;
  const TScene Scenes[] = {
      {"retry-box",
       [&] { Make<IUFile>(CLSID_UFile)->DeleteFiles(Text(Held), VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE); },
       MessageBoxClass, PressCancel},
      {"overwrite-box", [&] { Make<IUFile>(CLSID_UFile)->CopyFile(Text(New), Text(Library), ByTimeElseAsk); },
       MessageBoxClass, PressNo},
      {"custom-box",
       [] {
         TBstr Answer;
         Make<IUDialog>(CLSID_UDialog)
             ->ShowCustomMsgBox(
                 Text("The report template was changed by hand. Shall the update replace it with the new "
                      "one? The old one is kept next to it."),
                 Text("Orvane Updater"), QuestionIcon, Text("Replace,\"Replace all\",Keep"), Text("Replace"),
                 Answer.Out());
       },
       "MendworkCustomMsgBox", [](HWND Box) { PostMessageA(Box, WM_KEYDOWN, VK_RETURN, 0x1C0001); }},
  };
  bool AllTaken = true;
  for (const TScene& Scene : Scenes) AllTaken = TakePicture(Scene, Arguments[1]) && AllTaken;
  return AllTaken ? 0 : 1;
}
