#include "client/commands.h"
#include "support/changing_calls.h"
#include "support/child.h"
#include "support/memory_file.h"
#include "support/sandbox.h"

#include <cstdio>
#include <sstream>

int ProcessInno(const std::vector<std::string>& Arguments) {
  const auto Inno = Make<IUInno>(CLSID_UInno);
  PlanEvent(Arguments.at(0), std::stoi(Arguments.at(1)), AllCalls);
  const HRESULT Result = Inno->ProcessInno();
  PlanEvent("nothing", 0);
  return FAILED(Result) ? 1 : 0;
}

int MatchLists(const std::vector<std::string>& Arguments) {
  const auto Inno = Make<IUInno>(CLSID_UInno);
  TBstr Files, Servers;
  if (FAILED(Inno->GetFileList(Files.Out())) || FAILED(Inno->GetCOMList(Servers.Out()))) return 1;
  const std::string FileText = Take(Files), ServerText = Take(Servers);
  if (HexText(FileText) == Arguments.at(0) && HexText(ServerText) == Arguments.at(1)) return 0;
  std::printf("%s / %s\n", FileText.c_str(), ServerText.c_str());
  return NoMatch;
}

int BringToLog(const std::vector<std::string>& Arguments) {
  const std::string& Folder = Arguments.at(0);
  RegSetKeyValueA(HKEY_CURRENT_USER, "Software\\Orvane\\Core", nullptr, REG_SZ, Folder.c_str(),
                  static_cast<DWORD>(Folder.size() + 1));
  const auto Inno = Make<IUInno>(CLSID_UInno);
  std::istringstream Names(Read(Folder + "\\names.txt"));
  for (std::string Line; std::getline(Names, Line);) {
    const size_t Colon = Line.find(':');
    const Text Name(Line.substr(Colon + 1));
    if (FAILED(Line.substr(0, Colon) == "server" ? Inno->AddCOM(Name) : Inno->AddFile(Name))) return 1;
  }
  if (FAILED(Inno->ProcessInno())) return 1;
  TUninstallLog Log;
  LoadFrom(Read(Folder + "\\Uninstall\\unins000.dat"), Log);
  std::string Dump;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next)
    Dump += std::to_string(Rec->RecordType) + " " + std::to_string(Rec->ExtraValue) + " " +
            HexText(std::string(Rec->Data().begin(), Rec->Data().end())) + "\n";
  Write(Folder + "\\records.txt", Dump);
  return 0;
}
