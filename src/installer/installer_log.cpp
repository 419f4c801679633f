#include "installer/installer_log.h"

#include "base/data_folders.h"
#include "base/failure.h"
#include "base/paths.h"
#include "base/text.h"
#include "formats/entry_codes.h"
#include "formats/uninstall_log.h"
#include "installer/file.h"
#include "server/arguments.h"

#include <exception>
#include <new>
#include <optional>

/// A list, and whether it has entries that could not be saved yet.
struct TInstallerList {
  TSavedList Names;
  bool Unsaved = false;
};

namespace {

std::string WholeEntry(const std::string& Entry) { return Entry; }

// Process-wide, and changed only with the lock held.
TInstallerList Files{{InstalledFilesGroupId, WholeEntry}};
TInstallerList Servers{{InstalledServersGroupId, WholeEntry}};
TSharedLists InstallerLists{&Files.Names, &Servers.Names};

/// The extension counts as it is written: ".tlb" is taken for a server.
int32_t KindOfServer(const std::string& FileName) { return ExtensionOf(FileName) == ".TLB" ? TypeLibrary : ComServer; }

/// Runs one phase of ProcessInno. What goes wrong in it is told in the debug log and nowhere else.
template <class TBody>
void RunPhase(TRoutine& Lines, const std::string& Label, TBody Body) {
  std::wstring Text;
  try {
    return Body();
  } catch (const EFailure& Failure) {
    Text = ToWide(Label + "_1") + Failure.Message + L" " + std::to_wstring(Failure.Result);
  } catch (const EFileError& Error) {
    Text = ToWide(Label + "_2" + TextOf(Error));
  } catch (const EUninstallLogError&) {
    Text = ToWide(Label + "_2");
  } catch (const std::bad_alloc&) {
    Text = ToWide(Label + "_2" + LoadMessage(MsgOutOfMemory));
  } catch (const std::exception& Other) {
    Text = ToWide(Label + "_2" + Other.what());
  }
  Lines.Line(LoadWideMessage(MsgException), Text);
}

/// What the second phase must know of the log that it appends to. A new log does not know it, and would put its own in
/// the place of what is there.
struct TLogIdentity {
  std::string Header;
  std::string ApplicationId;
  bool Is64Bit;
  bool EndsWithLastRecord;
};

TLogIdentity Load(TCustomFile& File, TUninstallLog& Uninstall) {
  Uninstall.Load(File);
  return {Uninstall.LoadedHeader, Uninstall.ApplicationId, Uninstall.Is64Bit, Uninstall.EndsWithLastRecord()};
}

/// What the open file is by now: what the first phase found, when its header is still the same.
TLogIdentity IdentityOf(TCustomFile& File, const std::optional<TLogIdentity>& Before) {
  std::string Header(Before ? Before->Header.size() : 0, '\0');
  File.Read(Header.data(), static_cast<uint32_t>(Header.size()));
  File.Seek(0);
  if (Before && Header == Before->Header) return *Before;
  TUninstallLog Changed;
  TLogIdentity Now = Load(File, Changed);
  File.Seek(0);
  return Now;
}

void AppendLists(const std::string& FileName, const std::optional<TLogIdentity>& Before) {
  TUninstallLog Added;
  for (const std::string& Name : Files.Names.All()) Added.AddStringRecord(DeleteFileRecord, {Name}, PlainFile);
  for (const std::string& Name : Servers.Names.All())
    Added.AddStringRecord(DeleteFileRecord, {Name}, KindOfServer(Name));
  // Looked at in the same open as it is appended to: nobody can put another log there in between.
  const auto OpenAndLook = [&](const auto&... How) {
    auto File = OpenSystemFile(How...);
    const TLogIdentity Identity = IdentityOf(*File, Before);
    if (!Identity.EndsWithLastRecord) throw EUninstallLogError{TUninstallLogFault::SomethingBehind};
    Added.ApplicationId = Identity.ApplicationId;
    Added.Is64Bit = Identity.Is64Bit;
    return File;
  };
  Added.Save(OpenAndLook, FileName, true, false);
}

}  // namespace

TSharedLists& TUInno::Lists() const { return InstallerLists; }

HRESULT TUInno::AddFile(BSTR FileName) { return Add("AddFile", Files, FileName); }

HRESULT TUInno::AddCOM(BSTR FileName) { return Add("AddCOM", Servers, FileName); }

HRESULT TUInno::Add(const char* Name, TInstallerList& To, BSTR FileName) {
  return Method(Name, {FileName}, [&] {
    WithLists([&] {
      const std::string File = TextArgument(FileName);
      if (!To.Names.Find(File)) {
        To.Names.Add(File);
        To.Unsaved = true;
      }
      if (To.Unsaved) Save(To.Names);
      To.Unsaved = false;
    });
  });
}

HRESULT TUInno::GetFileList(BSTR* FileList) { return Get(Files, FileList); }

HRESULT TUInno::GetCOMList(BSTR* COMList) { return Get(Servers, COMList); }

HRESULT TUInno::Get(const TInstallerList& From, BSTR* Text) {
  return Give(Text, [&] { return ToWide(From.Names.CommaText()); });
}

HRESULT TUInno::ProcessInno() {
  return Method("ProcessInno", {}, [&](TRoutine& Lines) {
    WithLists([&] {
      for (const std::string& Name : Servers.Names.All()) Files.Names.RemoveFirst(Name);
      const std::string FileName = GetUninstallDir() + "\\unins000.dat";
      std::optional<TLogIdentity> Identity;
      RunPhase(Lines, "Inno unins000 1", [&] {
        TUninstallLog Old;
        Identity =
            Load(*OpenSystemFile(FileName, TFileDisposition::OpenExisting, TFileAccess::Read, TFileSharing::None), Old);
        DeleteDuplicatesInLists(Old);
      });
      RunPhase(Lines, "Inno unins000 2", [&] { AppendLists(FileName, Identity); });
    });
  });
}

/// Takes out of the lists what the log has already.
void TUInno::DeleteDuplicatesInLists(const TUninstallLog& Uninstall) const {
  Routine("DeleteDuplicatesInLists", {}, [&] {
    constexpr size_t MostStrings = 11;
    std::string Strings[MostStrings];
    for (const TUninstallRecord* Rec = Uninstall.First(); Rec; Rec = Rec->Next) {
      const bool IsServer = Rec->ExtraValue == ComServer || Rec->ExtraValue == TypeLibrary;
      if (Rec->RecordType != DeleteFileRecord || (!IsServer && Rec->ExtraValue != PlainFile)) continue;
      if (TUninstallLog::ExtractRecordStrings(*Rec, Strings) == 0) continue;
      if (IsServer) Servers.Names.RemoveFirst(Strings[0]);
      Files.Names.RemoveFirst(Strings[0]);
    }
  });
}

static void ForgetLists() {
  InstallerLists.Forget();
  Files.Unsaved = Servers.Unsaved = false;
}
COCLASS(UInno, TUInno, &InstallerLists.Lock, nullptr, ForgetLists);
