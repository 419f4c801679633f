// Several apartments and the real debug log: four threads with objects of their own in one process, on all processors;
// and two processes, of which one has the log open for itself and the other one's user presses Cancel.

#include "torture.h"
#include "update.h"

#include <atomic>
#include <thread>

namespace {

/// Every round has new objects, and changes, records and reads with them.
HRESULT MakeRound(const std::string& Root, int Number) {
  TUpdater U(Root);
  const std::string Name = std::to_string(Number);
  for (const HRESULT Result :
       {U.Registry->SetStringValue(User, KeyName("Threads"), Text(Name), Text("value")),
        U.Log->Put(CLSID_UCanRollback, Number, NumberedGuid(Number)),
        U.History->Put(NumberedGuid(51), Number, NumberedGuid(Number)),
        U.Macro->SetMacro(Text("Thread" + Name), Text("value"), No), U.Garbage->PutFile(Text("C:\\no\\such.file")),
        U.Inno->AddFile(Text("C:\\new" + Name)), U.Backup->BackupString(Text(Name), &U.Item)})
    if (FAILED(Result)) return Result;
  return S_OK;
}

/// rounds ROOT UNTIL THREADS: threads that make rounds, one at least, each in an apartment of its own, with the real
/// debug log. Ends with the number of rounds, with 0 when the user gave up, or with -1 after another failure.
const TRole Rounds(
    "rounds",
    [](const TWords& Words, TScriptedDialog&) {
      DWORD_PTR Own = 0, All = 0;
      GetProcessAffinityMask(GetCurrentProcess(), &Own, &All);
      SetProcessAffinityMask(GetCurrentProcess(), All);
      constexpr HRESULT GivenUp = static_cast<HRESULT>(0x800401FF);
      std::atomic<int> Made = 0;
      std::atomic<HRESULT> Failure = S_OK;
      std::vector<std::thread> Running;
      for (int Number = 0; Number < std::stoi(Words.at(2)); ++Number)
        Running.emplace_back([&, Number] {
          CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
          do {
            const HRESULT Result = MakeRound(Words.at(0), Number);
            SUCCEEDED(Result) ? void(++Made) : void(Failure = Result);
          } while (GetTickCount64() < std::stoull(Words.at(1)) && Failure == S_OK);
          CoUninitialize();
        });
      for (std::thread& Thread : Running) Thread.join();
      return Failure == GivenUp ? 0 : Failure != S_OK ? -1 : Made.load();
    },
    TRole::WithoutDoubles);

void SoakThreads(const TMachine& Machine, DWORD Milliseconds, TResult& Result) {
  const DWORD Rounds = TChild({"rounds", Machine.Root(), std::to_string(GetTickCount64() + Milliseconds), "4"}).Wait();
  constexpr DWORD MostRounds = 1 << 20;  // what ends a process is larger
  Result.Count(Rounds > 0 && Rounds < MostRounds, "the threads ended with " + std::to_string(Rounds));
  Result.Notes["rounds of the threads"] = static_cast<int>(Rounds);
  // A round puts an entry into the log, and a record.
  constexpr size_t RecordSize = 36;
  const std::string Log = Read(Machine.Service("update.prt"));
  const std::string Group = Read(Machine.Service("History\\" + GuidText(NumberedGuid(51))));
  Result.Count(Log.size() == RecordSize * Rounds, "the log has " + std::to_string(Log.size()) + " bytes");
  Result.Count(Group.size() == RecordSize * Rounds, "the group has " + std::to_string(Group.size()) + " bytes");
  Result.Count(SUCCEEDED(Machine.Change("rollback").Result), "the rollback failed");
}

/// Presses Cancel in a box of the system's that tells of an error; whether there was one.
bool PressCancel() {
  const HWND Box = FindWindowA("#32770", "Error");
  if (Box) PostMessageA(Box, WM_COMMAND, IDCANCEL, 0);
  return Box != nullptr;
}

/// The first one to write a line keeps the debug log to itself. The other one's user is asked, and gives up.
void MeetInTheLog(const TMachine& Machine, DWORD Milliseconds, TResult& Result) {
  constexpr DWORD Pause = 100;
  TChild First({"rounds", Machine.Root(), std::to_string(GetTickCount64() + Milliseconds), "1"});
  while (!Exists(Machine.Service("update.prt"))) Sleep(Pause);
  TChild Second({"rounds", Machine.Root(), "0", "1"});
  int Pressed = 0;
  for (; !Second.HasEnded() && !First.HasEnded(); Sleep(Pause)) Pressed += PressCancel();
  Result.Count(Pressed > 0, "nobody was asked about the debug log");
  Result.Count(Second.Wait() == 0, "the second updater did not give up");
  const DWORD Rounds = First.Wait();
  Result.Notes["rounds beside one who gave up"] = static_cast<int>(Rounds);
  constexpr size_t EntrySize = 36;
  Result.Count(Rounds > 0 && Read(Machine.Service("update.prt")).size() == EntrySize * Rounds,
               "of " + std::to_string(Rounds) + " rounds not all entries are there");
}

}  // namespace

TResult Apart(const TPlan& Plan) {
  if (Plan.Shard != 0) return {.Skipped = true};
  TMachine Machine;
  TResult Result;
  Machine.LayOut();
  SoakThreads(Machine, Plan.Full ? 40000 : 8000, Result);
  Machine.LayOut();
  MeetInTheLog(Machine, Plan.Full ? 20000 : 5000, Result);
  return Result;
}
