#include "kit/restart_manager.h"

#include "base/handles.h"

#include <restartmanager.h>

namespace {

/// The functions of the Restart Manager, which not every system has.
class TRestartManager {
 public:
  TRestartManager() {
    if (Module && Find(Start, "RmStartSession") && Find(Register, "RmRegisterResources") && Find(List, "RmGetList") &&
        Find(Shutdown, "RmShutdown") && Find(End, "RmEndSession")) {
      WCHAR Key[CCH_RM_SESSION_KEY + 1] = L"";
      Running = Start(&Session, 0, Key) == ERROR_SUCCESS;
    }
  }
  ~TRestartManager() {
    if (Running) End(Session);
  }
  TRestartManager(const TRestartManager&) = delete;
  TRestartManager& operator=(const TRestartManager&) = delete;

  std::vector<THolder> HoldersOf(const std::vector<std::wstring>& Files) const {
    std::vector<LPCWSTR> Names;
    Names.reserve(Files.size());
    for (const std::wstring& File : Files) Names.push_back(File.c_str());
    if (!Running || Register(Session, static_cast<UINT>(Names.size()), Names.data(), 0, nullptr, 0, nullptr)) return {};
    std::vector<RM_PROCESS_INFO> Found;
    DWORD Status = ERROR_MORE_DATA, Reasons = 0;
    UINT Needed = 0, Count = 0;
    // There may be more of them the next time.
    for (int Tries = 0; Tries < 5 && Status == ERROR_MORE_DATA; ++Tries) {
      Found.resize(Needed);
      Count = Needed;
      Status = List(Session, &Needed, &Count, Found.data(), &Reasons);
    }
    std::vector<THolder> Holders;
    for (UINT At = 0; Status == ERROR_SUCCESS && At < Count && At < Found.size(); ++At)
      Holders.push_back({Found[At].strAppName, Found[At].Process.dwProcessId});
    return Holders;
  }
  void AskToEnd() const { Shutdown(Session, 0, nullptr); }

 private:
  template <class TFunction>
  bool Find(TFunction& Function, const char* Name) const {
    Function = reinterpret_cast<TFunction>(reinterpret_cast<void*>(GetProcAddress(Module.Get(), Name)));
    return Function != nullptr;
  }

  const TModuleHandle Module{LoadLibraryExW(L"rstrtmgr.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)};
  decltype(&RmStartSession) Start = nullptr;
  decltype(&RmRegisterResources) Register = nullptr;
  decltype(&RmGetList) List = nullptr;
  decltype(&RmShutdown) Shutdown = nullptr;
  decltype(&RmEndSession) End = nullptr;
  DWORD Session = 0;
  bool Running = false;
};

}  // namespace

void WithHoldersOf(const std::vector<std::wstring>& Files,
                   const std::function<bool(const std::vector<THolder>& Holders)>& Ask) {
  const TRestartManager Manager;
  const std::vector<THolder> Holders = Manager.HoldersOf(Files);
  if (!Holders.empty() && Ask(Holders)) Manager.AskToEnd();
}
