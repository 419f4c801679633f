// A process dies before or after each call of the module that changes something, or in the middle of a write: another
// one then finds the state before or the state after, and never a third one.

#include "rollback/records.h"
#include "support/module_calls.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <functional>
#include <map>
#include <sstream>

namespace {

constexpr int PutChangeCode = 5;
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

/// make-changes "NAME ..." FOLDER EVENT N
const TRole MakeChanges("make-changes", [](const TWords& Arguments, TScriptedDialog&) {
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
});

/// The module stays loaded here, so that a dead process's locks live on and its count of the semaphore stays lost.
class DyingProcess : public TSandboxTest {
 protected:
  DyingProcess() : TSandboxTest(NoDoubles) {
    CoGetClassObject(CLSID_UTransactionLog, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid());
  }

  static DWORD Make(const std::string& Changes, const std::string& On, const std::string& Event = "nothing",
                    int Point = 0) {
    return TChild({"make-changes", Changes, On, Event, std::to_string(Point)}).Wait();
  }
  /// Dies at one point after the other until there is none left, with a look at what is left each time. The points are
  /// `Floor` at least.
  template <class TDie, class TLook>
  void Sweep(const std::string& Event, int Floor, TDie Die, TLook LookAfter) {
    int Point = 0;
    for (DWORD Status = DiedStatus; Status == DiedStatus && !HasFatalFailure();) {
      SCOPED_TRACE(Event + " " + std::to_string(++Point));
      Status = Die(Point);
      ASSERT_TRUE(Status == 0 || Status == DiedStatus) << Status;
      LookAfter(Point, Status);
    }
    std::printf("died %s %d points\n", Event.c_str(), Point - 1);
    EXPECT_LE(Floor, Point - 1);
  }

  TComRef<IClassFactory> Loaded;
};

struct TSweep {
  const char* Name;
  const char* Made;   ///< the changes that are in the log already
  const char* Dying;  ///< what the process is at when it dies
  const char* Event;
  int Floor;
  bool RecoveryDies = false;  ///< whether the first attempt to roll back dies as well, each time elsewhere
};

class CrashSweep : public DyingProcess, public testing::WithParamInterface<TSweep> {};

TEST_P(CrashSweep, RollbackInAnotherProcessBringsTheExactTreeBack) {
  Write(App("app.dll"), "the old content", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  Write(App("new.dll"), "new content", FILE_ATTRIBUTE_READONLY);
  Write(App("tree\\top.txt"), "top", FILE_ATTRIBUTE_HIDDEN);
  Write(App("tree\\sub\\low.txt"), "", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM);
  MakeFolders(App("tree\\sub\\empty"));
  const TTree Original = TreeOf(App());
  ASSERT_EQ(0u, Make(GetParam().Made, App()));
  const TTree StartOfApp = TreeOf(App()), StartOfBase = TreeOf(Base());
  const auto Die = [&](int Point) {
    Plant(App(), StartOfApp);
    Plant(Base(), StartOfBase);
    return Make(GetParam().Dying, App(), GetParam().Event, Point);
  };
  Sweep(GetParam().Event, GetParam().Floor, Die, [&](int Point, DWORD) {
    constexpr int Stride = 5, LongestRecovery = 40;
    if (GetParam().RecoveryDies) Make("rollback", App(), "after", 1 + Point * Stride % LongestRecovery);
    ASSERT_EQ(0u, Make("rollback", App()));
    ASSERT_EQ("", Difference(Original, TreeOf(App())));
    ASSERT_FALSE(Exists(Service("update.prt")));
  });
}

// Before one call is after the one that came before it: one sweep of that kind is enough.
INSTANTIATE_TEST_SUITE_P(Sweeps, CrashSweep,
                         testing::Values(TSweep{"overwrite_before", "", "overwrite", "before", 18},
                                         TSweep{"overwrite_after", "", "overwrite", "after", 18, true},
                                         TSweep{"overwrite_torn", "", "overwrite", "torn", 4},
                                         TSweep{"create_after", "", "create", "after", 17, true},
                                         TSweep{"create_torn", "put", "create", "torn", 4},
                                         TSweep{"delete_after", "", "delete", "after", 34, true},
                                         TSweep{"delete_torn", "put", "delete", "torn", 11},
                                         TSweep{"rollback_after", "overwrite create delete", "rollback", "after", 48},
                                         TSweep{"rollback_torn", "overwrite create delete", "rollback", "torn", 4}),
                         [](const auto& Info) { return std::string(Info.param.Name); });

class RegistryCrashSweep : public DyingProcess, public testing::WithParamInterface<TSweep> {};

TEST_P(RegistryCrashSweep, RollbackInAnotherProcessBringsTheExactKeyBack) {
  StoreValue(Wide(L"Key"), L"Text", REG_SZ, WideBytes({L"old\0", 4}));
  StoreValue(Wide(L"Key"), L"Bytes", REG_BINARY, "bytes");
  StoreValue(Wide(L"Key\\Sub"), L"", REG_EXPAND_SZ, WideBytes(L"%TEMP%"));
  const TRegistryTree Original = Tree();
  const auto Die = [&](int Point) {
    EXPECT_EQ(0u, Make(GetParam().Made, Key("Key")));
    return Make(GetParam().Dying, Key("Key"), GetParam().Event, Point);
  };
  Sweep(GetParam().Event, GetParam().Floor, Die, [&](int, DWORD) {
    ASSERT_EQ(0u, Make("rollback", ""));
    ASSERT_EQ("", Difference(Original, Tree()));
    ASSERT_FALSE(Exists(Service("update.prt")));
  });
}

INSTANTIATE_TEST_SUITE_P(Sweeps, RegistryCrashSweep,
                         testing::Values(TSweep{"set_string_after", "", "set-string", "after", 8},
                                         TSweep{"set_string_torn", "", "set-string", "torn", 1},
                                         TSweep{"delete_value_after", "", "delete-value", "after", 8},
                                         TSweep{"delete_key_after", "", "delete-key", "after", 12},
                                         TSweep{"delete_key_torn", "", "delete-key", "torn", 1},
                                         TSweep{"rollback_after", "delete-key", "rollback", "after", 8},
                                         TSweep{"rollback_torn", "delete-key", "rollback", "torn", 1}),
                         [](const auto& Info) { return std::string(Info.param.Name); });

TEST_F(DyingProcess, LeavesAHistoryGroupWithOrWithoutTheRecord) {
  const GUID Group = NumberedGuid(1);
  const std::string File = Service("History\\" + GuidText(Group));
  const std::string Record = RecordOf(Group, PutChangeCode, GUID{});
  ASSERT_EQ(0u, Make("put-record", GuidText(Group)));
  std::string Records = Record;
  int Seen[2] = {0, 0};
  for (const char* Event : {"after", "torn"})
    Sweep(
        Event, *Event == 't' ? 2 : 5, [&](int Point) { return Make("put-record", GuidText(Group), Event, Point); },
        [&](int, DWORD Status) {
          long Code = 0;
          GUID DataID;
          VARIANT_BOOL NoMore = VARIANT_TRUE, CheckPoint = VARIANT_TRUE;
          ASSERT_EQ(S_OK, ::Make<IUHistory>(CLSID_UHistory)->Get(Group, &Code, &DataID, &NoMore, &CheckPoint));
          const bool IsThere = Read(File) == Records + Record;
          if (IsThere) Records += Record;
          ASSERT_EQ(Records, Read(File));
          ASSERT_TRUE(IsThere || Status == DiedStatus) << "acknowledged";
          ASSERT_FALSE(Exists(File + ".bkp"));
          ++Seen[IsThere];
        });
  EXPECT_GT(Seen[false], 0);
  EXPECT_GT(Seen[true], 2) << "also by processes that died after the record was in";
}

TEST_F(DyingProcess, LeavesTheOldOrTheNewMacro) {
  std::string Value = "first", NewValue;
  ASSERT_EQ(0u, Make("set-macro", Value));
  for (const char* Event : {"after", "torn"})
    Sweep(
        Event, *Event == 't' ? 3 : 9,
        [&](int Point) {
          NewValue = std::string(Event) + " " + std::to_string(Point);
          return Make("set-macro", NewValue, Event, Point);
        },
        [&](int, DWORD Status) {
          const DWORD Found = TChild({"match-macro", "Macro", Value, NewValue}).Wait();
          ASSERT_TRUE(Found == 1 || (Found == 0 && Status == DiedStatus)) << Found;
          if (Found == 1) Value = NewValue;
        });
}

/// How often the transaction log's semaphore can be taken without waiting.
int SemaphoreCount() {
  const TKernelHandle Semaphore(
      OpenSemaphoreA(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GuidText(CLSID_UTransactionLog).c_str()));
  int Count = 0;
  while (Count < 3 && WaitForSingleObject(Semaphore.Get(), 0) == WAIT_OBJECT_0) ++Count;
  if (Count > 0) ReleaseSemaphore(Semaphore.Get(), Count, nullptr);
  return Count;
}

TEST_F(DyingProcess, BlocksNobodyAndCostsNoEntryWhereverItHeldTheLock) {
  const auto Entry = [](int Code, int Number) { return RecordOf(CLSID_UCanRollback, Code, NumberedGuid(Number)); };
  const std::string Old = Entry(1, 1) + Entry(2, 2);
  int Point = 0, TookSemaphore = 0;
  for (bool Ended = false; !Ended;) {
    SCOPED_TRACE("point " + std::to_string(++Point));
    Write(Service("update.prt"), Old);
    TChild Holder({"make-changes", "put", App(), "stop", std::to_string(Point)});
    Ended = !Holder.WaitUntilReady();
    TookSemaphore += SemaphoreCount() == 0;
    TChild Next({"put-entries", "9", "1"});  // may be waiting already when the holder dies
    ASSERT_TRUE(Next.WaitUntilReady());
    Next.Continue();
    if (Ended) {
      ASSERT_EQ(0u, Holder.Wait());
    }
    Holder.Kill();
    ASSERT_EQ(0u, Next.Wait());
    EXPECT_EQ(Old + (Ended ? Entry(PutChangeCode, 1) : "") + Entry(9, 9), Read(Service("update.prt")));
    EXPECT_FALSE(Exists(Service("update.prt.bkp")));
    EXPECT_EQ(1, SemaphoreCount());
  }
  EXPECT_LT(TookSemaphore, Point);
  EXPECT_LE(4, TookSemaphore) << "the holder was killed inside the lock too seldom";
}

}  // namespace
