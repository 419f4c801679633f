#include "installer/installer_log.h"

#include "base/messages.h"
#include "base/named_lock.h"
#include "base/paths.h"
#include "formats/uninstall_log.h"
#include "installer/file.h"
#include "rollback/saved_list.h"
#include "server/environment.h"
#include "server/log_scope.h"

#include <mutex>
#include <optional>

/// A list, and whether it has entries that could not be saved yet.
struct TInstallerList {
  TSavedList Names;
  bool Unsaved = false;
};

namespace {

constexpr wchar_t LogName[] = L"UInno";

/// The installer's record type for a file to delete; the values tell what the file is.
constexpr uint16_t DeleteFileRecord = 0x82;
constexpr int32_t PlainFile = 0, ComServer = 0x10, TypeLibrary = 0x40;

/// The history groups that point to the saved lists.
constexpr GUID FileGroup = {0x5C1E8A42, 0x7D3B, 0x4F69, {0xA0, 0xE2, 0x91, 0xB4, 0xC6, 0xD8, 0xF0, 0x31}};
constexpr GUID ComGroup = {0xA7D03F9E, 0x26C4, 0x4B85, {0x9E, 0x71, 0x3F, 0x0B, 0x8C, 0x52, 0xD6, 0xA4}};

std::string WholeEntry(const std::string& Entry) { return Entry; }

// Process-wide, and changed only with the lock held.
TInstallerList Files{{FileGroup, WholeEntry}};
TInstallerList Servers{{ComGroup, WholeEntry}};
bool ReloadNeeded = true;
TNamedLock InnoLock;
/// The lists are read without that lock: this one keeps readers away while they change, and is never held in a call to
/// another object.
std::mutex ListsInMemory;

void Forget(TInstallerList& List, const std::string& Name) {
  const std::lock_guard Guard(ListsInMemory);
  List.Names.Remove(Name);
}

/// The extension counts as it is written: ".tlb" is taken for a server.
int32_t KindOfServer(const std::string& FileName) { return ExtensionOf(FileName) == ".TLB" ? TypeLibrary : ComServer; }

/// Runs one phase of ProcessInno. What goes wrong in it is told in the debug log and nowhere else.
template <class TBody>
void RunPhase(TLogScope& Log, const std::string& Label, TBody Body) {
  std::wstring Text;
  try {
    return Body();
  } catch (const EFailure& Failure) {
    Text = ToWide(Label + "_1") + Failure.Message + L" " + std::to_wstring(Failure.Result);
  } catch (const EFileError& Error) {
    Text = ToWide(Label + "_2" + Error.Message);
  } catch (const EUninstallLogError&) {
    Text = ToWide(Label + "_2");
  } catch (const std::bad_alloc&) {
    Text = ToWide(Label + "_2" + LoadMessage(MsgOutOfMemory));
  } catch (const std::exception& Other) {
    Text = ToWide(Label + "_2" + Other.what());
  }
  Log.Line(ToWide(LoadMessage(MsgException)), Text);
}

/// What the second phase must know of the log that it appends to.
struct TLogIdentity {
  std::string ApplicationId;
  bool Is64Bit;
  bool EndsWithLastRecord;
};

TLogIdentity LoadLog(const std::string& FileName, TUninstallLog& Log) {
  TFile File(FileName, TFileDisposition::OpenExisting, TFileAccess::Read, TFileSharing::None);
  Log.Load(File);
  return {Log.ApplicationId, Log.Is64Bit, Log.EndsWithLastRecord()};
}

TLogIdentity IdentityOf(const std::string& FileName) {
  TUninstallLog Log;
  return LoadLog(FileName, Log);
}

void AppendLists(const std::string& FileName, const TLogIdentity& Identity) {
  if (!Identity.EndsWithLastRecord) throw EUninstallLogError();
  TUninstallLog Log;
  for (const std::string& Name : Files.Names.All()) Log.AddStringRecord(DeleteFileRecord, {Name}, PlainFile);
  for (const std::string& Name : Servers.Names.All()) Log.AddStringRecord(DeleteFileRecord, {Name}, KindOfServer(Name));
  // A new log knows neither, and would put its own in their place.
  Log.ApplicationId = Identity.ApplicationId;
  Log.Is64Bit = Identity.Is64Bit;
  Log.Save(OpenSystemFile, FileName, true, false);
}

}  // namespace

void TUInno::Initialize() {
  const bool FoldersKnown = PrepareDataFolders();
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Backup = ActiveOrNew<IUBackup>(CLSID_UBackup);
  History = ActiveOrNew<IUHistory>(CLSID_UHistory);
  if (!FoldersKnown) return;  // the first call says so
  TNamedLock::TOwner Owner(InnoLock);
  const TNamedLock::THold Hold(Owner);
  LoadOnce();
}

/// Once per process; a failure leaves it to the next object, or the next call. To be called with the lock held, and
/// before anything is saved: a list that was not read must not be written over.
void TUInno::LoadOnce() {
  if (!ReloadNeeded) return;
  TSavedList SavedFiles(FileGroup, WholeEntry), SavedServers(ComGroup, WholeEntry);
  SavedFiles.Load(*Backup, *History);
  SavedServers.Load(*Backup, *History);
  const std::lock_guard Guard(ListsInMemory);
  Files.Names = std::move(SavedFiles);
  Servers.Names = std::move(SavedServers);
  ReloadNeeded = false;
}

HRESULT TUInno::AddFile(BSTR FileName) { return Add("AddFile", Files, FileName); }

HRESULT TUInno::AddCOM(BSTR FileName) { return Add("AddCOM", Servers, FileName); }

HRESULT TUInno::Add(const char* Method, TInstallerList& To, BSTR FileName) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText(Method, FileName));
    {
      TNamedLock::TOwner Owner(InnoLock);
      const TNamedLock::THold Hold(Owner);
      LoadOnce();
      const std::string Name = ToAnsi(ViewOf(FileName));
      if (!To.Names.Find(Name)) {
        const std::lock_guard Guard(ListsInMemory);
        To.Names.Add(Name);
        To.Unsaved = true;
      }
      if (To.Unsaved) To.Names.Save(*Backup, *History);
      To.Unsaved = false;
    }
    Log.End(LogText(Method));
  });
}

HRESULT TUInno::GetFileList(BSTR* FileList) { return Get(Files, FileList); }

HRESULT TUInno::GetCOMList(BSTR* COMList) { return Get(Servers, COMList); }

HRESULT TUInno::Get(const TInstallerList& From, BSTR* Text) {
  if (!Text) return E_POINTER;
  *Text = nullptr;
  return SafeCall([&] {
    const std::string List = [&] {
      const std::lock_guard Guard(ListsInMemory);
      return From.Names.CommaText();
    }();
    *Text = MakeBstr(ToWide(List)).Detach();
  });
}

HRESULT TUInno::ProcessInno() {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("ProcessInno"));
    {
      TNamedLock::TOwner Owner(InnoLock);
      const TNamedLock::THold Hold(Owner);
      LoadOnce();
      for (const std::string& Name : Servers.Names.All()) Forget(Files, Name);
      const std::string FileName = GetUninstallDir() + "\\unins000.dat";
      std::optional<TLogIdentity> Identity;
      RunPhase(Log, "Inno unins000 1", [&] {
        TUninstallLog Old;
        Identity = LoadLog(FileName, Old);
        DeleteDuplicatesInLists(Old);
      });
      RunPhase(Log, "Inno unins000 2", [&] { AppendLists(FileName, Identity ? *Identity : IdentityOf(FileName)); });
    }
    Log.End(LogText("ProcessInno"));
  });
}

/// Takes out of the lists what the log has already.
void TUInno::DeleteDuplicatesInLists(const TUninstallLog& Log) {
  TLogScope Lines(DebugLog.Get(), LogName, LogText("DeleteDuplicatesInLists"));
  constexpr size_t MostStrings = 11;
  std::string Strings[MostStrings];
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next) {
    const bool IsServer = Rec->ExtraValue == ComServer || Rec->ExtraValue == TypeLibrary;
    if (Rec->RecordType != DeleteFileRecord || (!IsServer && Rec->ExtraValue != PlainFile)) continue;
    if (TUninstallLog::ExtractRecordStrings(*Rec, Strings) == 0) continue;
    if (IsServer) Forget(Servers, Strings[0]);
    Forget(Files, Strings[0]);
  }
  Lines.End(LogText("DeleteDuplicatesInLists"));
}

TAutoObjectBase* CreateUInno(TVersionedAutoObjectFactory& Factory) { return new TUInno(Factory); }

void StartInstallerLog() {
  ReloadNeeded = true;
  InnoLock.Create(GuidText(CLSID_UInno));
}

void StopInstallerLog() {
  InnoLock.Close();
  for (TInstallerList* List : {&Files, &Servers}) {
    List->Names.Clear();
    List->Unsaved = false;
  }
}
