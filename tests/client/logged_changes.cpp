#include "client/commands.h"
#include "support/changing_calls.h"
#include "support/sandbox.h"

#include <cstdio>
#include <functional>
#include <map>
#include <sstream>

namespace {

constexpr unsigned long ChangedRoot = 0x80000001;

const std::map<std::string, std::function<HRESULT(const std::string& Folder)>> Changes = {
    {"overwrite",
     [](auto& Folder) {
       return Make<IUFile>(CLSID_UFile)->CopyFileLogged(Text(Folder + "\\new.dll"), Text(Folder + "\\app.dll"), 0);
     }},
    {"create",
     [](auto& Folder) {
       return Make<IUFile>(CLSID_UFile)->CopyFileLogged(Text(Folder + "\\new.dll"), Text(Folder + "\\fresh.dll"), 0);
     }},
    {"delete",
     [](auto& Folder) {
       return Make<IUFile>(CLSID_UFile)
           ->DeleteFilesLogged(Text(Folder + "\\tree\\*.*"), VARIANT_TRUE, VARIANT_TRUE, VARIANT_TRUE);
     }},
    {"put",
     [](auto&) {
       return Make<IUTransactionLog>(CLSID_UTransactionLog)->Put(CLSID_UCanRollback, PutChangeCode, NumberedGuid(1));
     }},
    // These take the place of the folder: a registry key, a history group, a macro's value.
    {"set-string",
     [](auto& Key) {
       return Make<IURegistry>(CLSID_URegistry)
           ->SetStringValueLogged(ChangedRoot, Text(Key), Text("Text"), Text("new"));
     }},
    {"delete-value",
     [](auto& Key) {
       return Make<IURegistry>(CLSID_URegistry)->DeleteRegKeyValueLogged(ChangedRoot, Text(Key), Text("Text"));
     }},
    {"delete-key",
     [](auto& Key) { return Make<IURegistry>(CLSID_URegistry)->DeleteRegKeyLogged(ChangedRoot, Text(Key)); }},
    {"put-record",
     [](auto& Group) { return Make<IUHistory>(CLSID_UHistory)->Put(Guid(Group.c_str()), PutChangeCode, GUID{}); }},
    {"set-macro",
     [](auto& Value) { return Make<IUMacro>(CLSID_UMacro)->SetMacro(Text("Macro"), Text(Value), VARIANT_TRUE); }},
    {"garbage", [](auto&) { return Make<IUGarbage>(CLSID_UGarbage)->Garbage(); }},
    {"rollback",
     [](auto&) {
       GUID CheckPoint{};
       return Make<IUTransactionLog>(CLSID_UTransactionLog)->Rollback(VARIANT_FALSE, &CheckPoint);
     }},
};

}  // namespace

int MakeChanges(const std::vector<std::string>& Arguments) {
  // The class object loads the module, and no more: making an object already changes something.
  TComRef<IClassFactory> Loaded;
  if (FAILED(CoGetClassObject(CLSID_UFile, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid())))
    return 1;
  PlanEvent(Arguments.at(2), std::stoi(Arguments.at(3)));

  std::istringstream Names(Arguments.at(0));
  for (std::string Name; Names >> Name;) {
    const HRESULT Result = Changes.at(Name)(Arguments.at(1));
    if (FAILED(Result)) {
      std::printf("%s: 0x%lx %s\n", Name.c_str(), static_cast<unsigned long>(Result), ErrorText().c_str());
      return 1;
    }
  }
  return 0;
}
