// The processes that are tortured: each plays a role that its command line names, as a client of the library.

#include "roles.h"

#include "support/changing_calls.h"
#include "update.h"

#include <cstdio>

namespace {

/// A user who says Yes to a question whether to overwrite, and gives up whatever fails.
class TYesUser final : public TDouble<IUDialog> {
 public:
  STDMETHOD(ShowMsgBox)(BSTR, BSTR, long MsgType, long* Res) override {
    constexpr long Kinds = 15;
    *Res = (MsgType & Kinds) == MB_YESNO ? IDYES : IDCANCEL;
    return S_OK;
  }
  STDMETHOD(ShowCustomMsgBox)(BSTR, BSTR, long, BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }
};

/// The names of the calls that this process made go to a file.
void WriteCalls(const std::string& FileName) {
  std::string Names;
  for (const char* Name : CallsMade()) Names += std::string(Name) + "\n";
  Write(FileName, Names);
}

int Tell(const std::string& What, HRESULT Result) {
  if (SUCCEEDED(Result)) return 0;
  std::printf("%s: 0x%lx %s\n", What.c_str(), static_cast<unsigned long>(Result), ErrorText().c_str());
  return 1;
}

/// change WHAT ROOT EVENT POINT CALLS-FILE: makes the update, or rolls everything back and looks at what outlives it;
/// see changing_calls.h for the event at a point.
int Change(const std::vector<std::string>& Words) {
  RegisterActive(new TYesUser, CLSID_UDialog);
  TComRef<IClassFactory> Loaded;
  if (FAILED(CoGetClassObject(CLSID_UFile, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid())))
    return 1;
  PlanEvent(Words.at(2), std::stoi(Words.at(3)));
  int Status = 0;
  if (Words.at(0) == "update") {
    TUpdater Updater(Words.at(1));
    std::string Step;
    const HRESULT Result = RunUpdate(Updater, Step);
    Status = Tell(Step, Result);
    WriteCalls(Words.at(4));
  } else {
    Status = Tell("rollback", RollBackAll());
    WriteCalls(Words.at(4));
    if (Status == 0) Status = Tell("history, macros, garbage lists", LookAtStores());
  }
  return Status;
}

const std::pair<const char*, int (*)(const std::vector<std::string>&)> Roles[] = {
    {"change", Change}, {"count", PlayCount}, {"fault", PlayFault}, {"torn", PlayTorn}, {"worker", PlayWorker}};

}  // namespace

TRole::TRole(const std::string& Role, std::vector<std::string> Arguments)
    : TChild(
          [&] {
            Arguments.insert(Arguments.begin(), {"--role", Role});
            return Arguments;
          }(),
          "mendwork_torture.exe") {}

int PlayRole(const std::vector<std::string>& Words) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  // A process that runs beside others brings its own log: the file belongs to one process at a time.
  RegisterActive(new TMemoryLog, CLSID_UDebugLog);
  const std::vector<std::string> Rest(Words.begin() + 1, Words.end());
  for (const auto& [Name, Play] : Roles)
    if (Words.at(0) == Name) return Play(Rest);
  throw ETorture("there is no role " + Words.at(0));
}
