#include "base/elevation.h"

#include "base/failure.h"
#include "base/handles.h"
#include "base/text.h"

#include <aclapi.h>
#include <sddl.h>

namespace {

bool IsElevated() {
  TKernelHandle Token;
  TOKEN_ELEVATION Elevation{};
  DWORD Size = 0;
  return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, Token.Out()) &&
         GetTokenInformation(Token.Get(), TokenElevation, &Elevation, sizeof Elevation, &Size) &&
         Elevation.TokenIsElevated;
}

/// The owner of an open file or folder.
class TOwner {
 public:
  explicit TOwner(HANDLE Open) {
    if (GetSecurityInfo(Open, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &Sid, nullptr, nullptr, nullptr, &Descriptor))
      Sid = nullptr;
  }
  ~TOwner() { LocalFree(Descriptor); }
  TOwner(const TOwner&) = delete;
  TOwner& operator=(const TOwner&) = delete;

  PSID Sid = nullptr;  ///< null when it is not known

 private:
  PSECURITY_DESCRIPTOR Descriptor = nullptr;
};

bool IsWindowsInstaller(PSID Owner) {
  constexpr char TrustedInstaller[] = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
  char* Text = nullptr;
  const bool Is = ConvertSidToStringSidA(Owner, &Text) && std::string(Text) == TrustedInstaller;
  LocalFree(Text);
  return Is;
}

/// Whether what this process makes in a folder belongs to the same user. On Windows the administrators own what an
/// elevated process makes; on Wine its only user does.
bool OwnsWhatWeMake(PSID Owner, const std::wstring& Folder) {
  const std::wstring Name = Folder + L"\\owner-" + std::to_wstring(GetCurrentThreadId()) + L".tmp";
  const TFileHandle Probe(CreateFileW(Name.c_str(), READ_CONTROL, FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  const TOwner Ours(Probe.Get());
  return Ours.Sid && EqualSid(Owner, Ours.Sid);
}

}  // namespace

void RequireFolderOfAdministrators(const std::string& Folder) {
  if (!IsElevated()) return;
  const std::wstring Wide = ToWide(Folder);
  const TFileHandle Open(CreateFileW(Wide.c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                     nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  const bool Hidden = !Open && GetLastError() == ERROR_ACCESS_DENIED;
  const TOwner Owner(Open.Get());
  const bool Known = Owner.Sid != nullptr;
  const bool Trusted = !Known ? !Hidden
                              : IsWellKnownSid(Owner.Sid, WinBuiltinAdministratorsSid) ||
                                    IsWellKnownSid(Owner.Sid, WinLocalSystemSid) || IsWindowsInstaller(Owner.Sid) ||
                                    OwnsWhatWeMake(Owner.Sid, Wide);
  if (!Trusted) throw EFailure(E_ACCESSDENIED, FormatWideMessage(MsgFolderOfOthers, Wide));
}
