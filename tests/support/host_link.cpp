#include "support/host_link.h"

#include "base/text.h"
#include "support/process.h"

#include <cstdio>
#include <cstdlib>

namespace {

/// The host's name of a Windows path; "" on a platform that has no host.
std::string HostPath(const std::string& WindowsPath) {
  using TNameOf = char*(__cdecl*)(const wchar_t*);
  const FARPROC Found = GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name");
  const auto NameOf = reinterpret_cast<TNameOf>(reinterpret_cast<void*>(Found));
  char* const Name = NameOf ? NameOf(ToWide(WindowsPath).c_str()) : nullptr;
  const std::string Result = Name ? Name : "";
  HeapFree(GetProcessHeap(), 0, Name);
  return Result;
}

/// The end of a program of the host cannot be waited for.
void WaitForLink(const std::string& HostName, bool Expected) {
  std::string WindowsName = "Z:" + HostName;
  for (char& Character : WindowsName)
    if (Character == '/') Character = '\\';
  for (int Polls = 0; Polls < 500; ++Polls, Sleep(20))
    if ((GetFileAttributesA(WindowsName.c_str()) != INVALID_FILE_ATTRIBUTES) == Expected) return;
  std::printf("%s %s\n", HostName.c_str(), Expected ? "was not made" : "does not go");
  std::exit(1);
}

}  // namespace

std::string THostLink::Path(const std::string& WindowsPath) { return HostPath(WindowsPath); }

std::string THostLink::Drive(char Letter) {
  const std::string SystemDrive = HostPath("C:\\"), Name = "/c:";
  return SystemDrive.substr(0, SystemDrive.rfind(Name) + 1) + Letter + ":";
}

THostLink::THostLink(const std::string& Link, const std::string& Target) : Link(Link) {
  StartProgram("Z:\\bin\\ln -s \"" + HostPath(Target) + "\" \"" + Link + "\"");
  WaitForLink(Link, true);
}

THostLink::~THostLink() {
  StartProgram("Z:\\bin\\rm -f \"" + Link + "\"");
  WaitForLink(Link, false);
}
