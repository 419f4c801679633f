#include "kit/update.h"

#include "base/data_folders.h"
#include "base/failure.h"
#include "base/guid.h"
#include "base/text.h"
#include "formats/sha256.h"
#include "formats/update_manifest.h"
#include "kit/creations.h"
#include "kit/file_in_use.h"
#include "kit/kit_messages.h"
#include "kit/names.h"
#include "kit/registry_value.h"
#include "kit/restart_manager.h"
#include "kit/value_data.h"
#include "server/arguments.h"

#include <sddl.h>

#include <exception>
#include <set>
#include <utility>
#include <vector>

namespace {

// The check points of every update by a manifest. They never change: an update that one version began, another repairs.
constexpr GUID Started = {0x6E0C3B52, 0x41D7, 0x4E0F, {0x9B, 0x2C, 0x57, 0x18, 0xA4, 0xE3, 0x90, 0x1D}};
constexpr GUID Committed = {0x6E0C3B53, 0x41D7, 0x4E0F, {0x9B, 0x2C, 0x57, 0x18, 0xA4, 0xE3, 0x90, 0x1D}};

/// A check that failed before anything was changed.
struct EUpdateRefused {
  TUpdateResult Result;
  std::wstring Why;
};

template <class... TArgs>
[[noreturn]] void RefuseUpdate(TUpdateResult Result, TMessage Message, const TArgs&... Args) {
  throw EUpdateRefused{Result, FormatWideMessage(Message, Args...)};
}

/// Held by the thread whose update runs; open to everyone, so that an elevated updater and a plain one exclude each
/// other.
class TOnlyUpdate {
 public:
  TOnlyUpdate() {
    constexpr wchar_t Name[] = L"Global\\MendworkKit.Update";
    SECURITY_ATTRIBUTES Everyone{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
    ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;GA;;;WD)S:(ML;;NW;;;LW)", SDDL_REVISION_1,
                                                         &Everyone.lpSecurityDescriptor, nullptr);
    Mutex.Reset(CreateMutexW(&Everyone, FALSE, Name));
    LocalFree(Everyone.lpSecurityDescriptor);
    if (!Mutex) Mutex.Reset(OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, Name));
    if (!Mutex) RaiseLastError();
    const DWORD Waited = WaitForSingleObject(Mutex.Get(), 0);
    // A thread that owns it would get it again, when a box lets a call come in.
    Mine = (Waited == WAIT_OBJECT_0 || Waited == WAIT_ABANDONED) && InterlockedExchange(&Running, 1) == 0;
    if (!Mine && Waited != WAIT_TIMEOUT) ReleaseMutex(Mutex.Get());
    if (!Mine) RefuseUpdate(TUpdateResult::OtherUpdater, MsgKitOtherUpdater);
  }
  ~TOnlyUpdate() {
    InterlockedExchange(&Running, 0);
    ReleaseMutex(Mutex.Get());
  }
  TOnlyUpdate(const TOnlyUpdate&) = delete;
  TOnlyUpdate& operator=(const TOnlyUpdate&) = delete;

 private:
  static inline LONG Running = 0;
  TKernelHandle Mutex;
  bool Mine = false;
};

TFileHandle OpenPlain(const std::wstring& Name, DWORD Access, DWORD Share, DWORD Flags = 0) {
  return TFileHandle(CreateFileW(Name.c_str(), Access, Share, nullptr, OPEN_EXISTING, Flags, nullptr));
}

/// Calls `Take` with part after part; false when the file cannot be read.
template <class TTake>
bool ReadPlain(const std::wstring& Name, const TTake& Take) {
  const TFileHandle File = OpenPlain(Name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  std::vector<char> Part(1 << 16);
  for (DWORD Read = 1; File && Read > 0;) {
    if (!ReadFile(File.Get(), Part.data(), static_cast<DWORD>(Part.size()), &Read, nullptr)) return false;
    if (!Take(Part.data(), static_cast<size_t>(Read))) return false;
  }
  return static_cast<bool>(File);
}

/// Whether a file is the one that the manifest means.
bool IsWanted(const std::wstring& Name, const TManifestFile& File) {
  TSha256 Hash;
  uint64_t Size = 0;
  const bool Whole = ReadPlain(Name, [&](const char* Bytes, size_t Count) {
    Hash.Append(Bytes, Count);
    return (Size += Count) <= File.Size;
  });
  return Whole && Size == File.Size && Hash.Finish() == File.Sha256;
}

bool Exists(const std::wstring& Name) { return GetFileAttributesW(Name.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::wstring Upper(std::wstring Name) {
  CharUpperBuffW(Name.data(), static_cast<DWORD>(Name.size()));
  return Name;
}

/// The files that are registered as COM servers in the process, in capital letters.
std::set<std::wstring> RegisteredServers() {
  std::set<std::wstring> Servers;
  TRegistryKey Classes;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, L"CLSID", 0, KEY_READ, Classes.Out()) != ERROR_SUCCESS) return Servers;
  wchar_t Class[256] = L"", File[MAX_PATH * 4] = L"";
  for (DWORD At = 0, Room = std::size(Class);
       RegEnumKeyExW(Classes.Get(), At, Class, &Room, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
       ++At, Room = std::size(Class)) {
    DWORD Size = sizeof File;
    const std::wstring Key = std::wstring(Class) + L"\\InprocServer32";
    if (RegGetValueW(Classes.Get(), Key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, File, &Size) == ERROR_SUCCESS)
      Servers.insert(Upper(File));
  }
  return Servers;
}

class TUpdate {
 public:
  TUpdate(TServices& Services, std::wstring ManifestName) : Services(Services), ManifestName(std::move(ManifestName)) {}

  TUpdateOutcome Run() {
    try {
      const TOnlyUpdate Only;
      ReadManifest();
      if (!Repair()) return {TUpdateResult::NotRolledBack, Failure};
      Look();
      if (!AnythingToDo()) return {TUpdateResult::NothingToDo, L""};
      CheckSource();
      CheckTarget();
      CheckRoom();
      return Apply();
    } catch (const EUpdateRefused& Refused) {
      return {Refused.Result, Refused.Why};
    }
  }

 private:
  struct TWork {
    const TManifestFile* File;
    std::wstring Source, Dest;
    bool Copies, Registers, Unregisters;
  };

  // ---- The manifest

  [[noreturn]] void RefuseManifest(const std::wstring& Why) const {
    RefuseUpdate(TUpdateResult::BadManifest, MsgKitBadManifest, ManifestName, Why);
  }

  void ReadManifest() {
    std::string Text;
    const bool Whole = ReadPlain(ManifestName, [&](const char* Bytes, size_t Size) {
      Text.append(Bytes, Size);
      return Text.size() <= LargestManifest;
    });
    if (!Whole && Text.size() <= LargestManifest) RefuseManifest(LoadWideMessage(MsgKitCannotRead));
    try {
      Manifest = ReadUpdateManifest(Text);
      Source = FolderOf(ManifestName);
      if (!Manifest.Source.empty()) Source = Under(Source, FromUtf8(Manifest.Source));
      Target = FullNameArgument(MakeBstr(FromUtf8(Manifest.Target)).Get());
      TakeNames();
      for (const TManifestKey& Key : Manifest.Keys) PlaceOf(Key.Root, Key.Key);
      for (const TManifestValue& Value : Manifest.Values) PlaceOf(Value), DataOf(Value);
    } catch (const EManifestError& Error) {
      RefuseManifest(FormatWideMessage(MsgKitManifestLine, std::to_wstring(Error.Line), FromUtf8(Error.Why)));
    } catch (const EFailure& Refused) {
      RefuseManifest(Refused.Message);
    }
  }

  /// The code page must hold all of them, and the system's own folders none; the system has its own idea of which
  /// names are one.
  void TakeNames() {
    std::set<std::wstring> Known;
    const auto Take = [&](const std::string& Name) {
      std::wstring Full = FullNameArgument(MakeBstr(Under(Target, FromUtf8(Name))).Get());
      RequireOutsideOwnFolders(LossyAnsi(Full), false);
      if (!Known.insert(Upper(Full)).second) Refuse(MsgKitTwice, Full);
      return Full;
    };
    for (const TManifestFile& File : Manifest.Files) {
      std::wstring From = FullNameArgument(MakeBstr(Under(Source, FromUtf8(File.Name))).Get());
      Files.push_back({&File, std::move(From), Take(File.Name), true, File.Register, false});
      if (Upper(Files.back().Source) == Upper(Files.back().Dest)) Refuse(MsgCopyOntoItself, Files.back().Dest);
    }
    for (const std::string& Name : Manifest.Delete) Deleted.push_back(Take(Name));
  }

  static TKeyPlace PlaceOf(uint32_t Root, const std::string& Key) {
    return KeyArgument(Root, MakeBstr(FromUtf8(Key)).Get());
  }
  static TValuePlace PlaceOf(const TManifestValue& Value) {
    return ValueArgument(Value.Root, MakeBstr(FromUtf8(Value.Key)).Get(), MakeBstr(FromUtf8(Value.Name)).Get());
  }
  static std::vector<uint8_t> DataOf(const TManifestValue& Value) {
    return ValueDataArgument(static_cast<long>(Value.Type), MakeBstr(FromUtf8(Value.Data)).Get());
  }

  // ---- Looking

  void Look() {
    const std::set<std::wstring> Servers = RegisteredServers();
    for (TWork& File : Files) {
      File.Copies = !IsWanted(File.Dest, *File.File);
      const bool Registered = File.File->Register && Servers.contains(Upper(File.Dest)) && Exists(File.Dest);
      File.Unregisters = Registered && File.Copies;
      File.Registers = File.File->Register && (File.Copies || !Registered);
    }
    std::erase_if(Deleted, [](const std::wstring& Name) { return !Exists(Name); });
  }

  bool AnythingToDo() const {
    bool Any = !Deleted.empty();
    for (const TWork& File : Files) Any = Any || File.Copies || File.Registers;
    for (const TManifestKey& Key : Manifest.Keys) {
      const TKeyPlace Place = PlaceOf(Key.Root, Key.Key);
      bool Empty = false;
      Any = Any || LookAtKey(Place.RootHandle(), ToWide(Place.Name), Empty) != ERROR_SUCCESS;
    }
    for (const TManifestValue& Value : Manifest.Values) {
      const TValuePlace Place = PlaceOf(Value);
      TRegistryData Stored;
      Any = Any ||
            ReadValue(Place.Key.RootHandle(), ToWide(Place.Key.Name), ToWide(Place.Name), Stored) != ERROR_SUCCESS ||
            Stored != TRegistryData{Value.Type, DataOf(Value)};
    }
    return Any;
  }

  // ---- Checks that change nothing

  void CheckSource() const {
    for (const TWork& File : Files)
      if (File.Copies && !IsWanted(File.Source, *File.File))
        RefuseUpdate(TUpdateResult::BadSource, MsgKitBadSource, File.Source);
  }

  /// Whoever holds a file is named, where the system knows.
  [[noreturn]] static void RefuseHeld(const std::wstring& Name) {
    const DWORD Code = GetLastError();
    std::wstring Why = FormatWideMessage(MsgKitCannotChange, Name, std::to_wstring(Code));
    WithHoldersOf({Name}, [&](const std::vector<THolder>& Holders) {
      std::wstring Names;
      for (const THolder& Holder : Holders)
        Names += FormatWideMessage(MsgKitHolder, Holder.Name, std::to_wstring(Holder.ProcessId));
      Why += FormatWideMessage(MsgKitHeldBy, Names);
      return false;
    });
    throw EUpdateRefused{TUpdateResult::InUse, Why};
  }

  static void CheckFile(const std::wstring& Name) {
    const DWORD Attributes = GetFileAttributesW(Name.c_str());
    if (Attributes == INVALID_FILE_ATTRIBUTES) {
      const std::vector<std::wstring> Missing = MissingFolders(FolderOf(Name));
      const std::wstring Folder = FolderOf(Missing.empty() ? Name : Missing.front()) + L"\\";
      if (!OpenPlain(Folder, FILE_ADD_FILE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                     FILE_FLAG_BACKUP_SEMANTICS))
        RefuseHeld(Folder);
      return;
    }
    const DWORD Write = Attributes & FILE_ATTRIBUTE_READONLY ? 0 : FILE_WRITE_DATA;
    if (!OpenPlain(Name, GENERIC_READ | DELETE | Write, 0)) RefuseHeld(Name);
  }

  void CheckTarget() const {
    for (const TWork& File : Files)
      if (File.Copies) CheckFile(File.Dest);
    for (const std::wstring& Name : Deleted) CheckFile(Name);
  }

  static uint64_t SizeOf(const std::wstring& Name) {
    WIN32_FILE_ATTRIBUTE_DATA Data{};
    if (!GetFileAttributesExW(Name.c_str(), GetFileExInfoStandard, &Data)) return 0;
    return static_cast<uint64_t>(Data.nFileSizeHigh) << 32 | Data.nFileSizeLow;
  }

  static void RequireRoom(const std::wstring& Folder, uint64_t Needed) {
    const std::vector<std::wstring> Missing = MissingFolders(Folder);
    const std::wstring Place = Missing.empty() ? Folder : FolderOf(Missing.front()) + L"\\";
    ULARGE_INTEGER Free{};
    if (GetDiskFreeSpaceExW(Place.c_str(), &Free, nullptr, nullptr) && Free.QuadPart < Needed)
      RefuseUpdate(TUpdateResult::NoRoom, MsgKitNoRoom, Place, std::to_wstring(Needed), std::to_wstring(Free.QuadPart));
  }

  /// As if both lay on one volume, and nothing that goes gave room back before the end.
  void CheckRoom() const {
    uint64_t New = 0, Saved = 0;
    const auto Add = [](uint64_t& Sum, uint64_t Size) { Sum = Sum + Size < Sum ? ~0ull : Sum + Size; };
    for (const TWork& File : Files)
      if (File.Copies) Add(New, File.File->Size), Add(Saved, SizeOf(File.Dest));
    for (const std::wstring& Name : Deleted) Add(Saved, SizeOf(Name));
    RequireRoom(ToWide(GetUpdatesDir()), Saved);
    Add(New, Saved);
    RequireRoom(Target, New);
  }

  // ---- Changes

  /// Undoes what is behind the newest check point; false when that fails. The begin of an update by a manifest gets its
  /// end behind it.
  bool Repair() {
    try {
      const TRollbackRuns Runs;
      GUID Reached{};
      CheckCall(Services.Transactions().Rollback(VARIANT_TRUE, &Reached));
      if (IsEqualGUID(Reached, Started)) CheckCall(Services.Transactions().PutCheckPoint(Committed));
      return true;
    } catch (const EFailure& Failed) {
      Failure = Failed.Message;
    } catch (const std::exception& Other) {
      Failure = ToWide(Other.what());
    }
    return false;
  }

  TUpdateOutcome Apply() {
    std::wstring Why;
    try {
      CheckCall(Services.Transactions().PutCheckPoint(Started));
      Change();
      CheckCall(Services.Transactions().PutCheckPoint(Committed));
      return {};
    } catch (const EFailure& Failed) {
      Why = Failed.Message;
    } catch (const std::exception& Other) {  // no memory, say: what was changed must be undone all the same
      Why = ToWide(Other.what());
    }
    if (!Doing.empty()) Why = FormatWideMessage(MsgKitStepFailed, Doing, Why);
    if (Repair()) return {TUpdateResult::RolledBack, Why};
    return {TUpdateResult::NotRolledBack, Why + L"\r\n" + Failure};
  }

  void Change() {
    const auto Com = ActiveOrNew<IUCom>(CLSID_UCom);
    for (const TWork& File : Files)
      if (File.Unregisters) CheckCall(Com->UnRegServerLogged(At(File.Dest).Get()));
    for (const std::wstring& Name : Deleted)
      CheckCall(Services.File().DeleteFilesLogged(At(Name).Get(), VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE));
    for (const TWork& File : Files)
      if (File.Copies) Copy(File);
    for (const TManifestKey& Key : Manifest.Keys)
      At(FromUtf8(Key.Key)), CreateKeyRecorded(Services, PlaceOf(Key.Root, Key.Key));
    for (const TManifestValue& Value : Manifest.Values) {
      At(FromUtf8(Value.Key));
      CreateValueRecorded(Services, PlaceOf(Value), Value.Type, DataOf(Value));
    }
    for (const TWork& File : Files)
      if (File.Registers) CheckCall(Com->RegServerLogged(At(File.Dest).Get()));
    Doing.clear();
  }

  /// What a failure from here on is about.
  TBstr At(const std::wstring& Name) {
    Doing = Name;
    return MakeBstr(Name);
  }

  void Copy(const TWork& File) {
    CopyFileRecorded(Services, MakeBstr(File.Source).Get(), At(File.Dest).Get(), 0);
    if (!IsWanted(File.Dest, *File.File)) throw EFailure(E_FAIL, FormatWideMessage(MsgKitSourceChanged, File.Source));
  }

  TServices& Services;
  const std::wstring ManifestName;
  TUpdateManifest Manifest;
  std::wstring Source, Target, Failure, Doing;
  std::vector<TWork> Files;
  std::vector<std::wstring> Deleted;
};

}  // namespace

TUpdateOutcome RunUpdate(TServices& Services, const std::wstring& ManifestName) {
  return TUpdate(Services, ManifestName).Run();
}
