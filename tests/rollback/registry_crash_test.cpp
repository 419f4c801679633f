// The process dies before or after each call of the module that changes something, or in the middle of a write: another
// one then finds the state before or the state after, and never a third one.

#include "client/commands.h"
#include "support/changing_calls.h"
#include "support/child.h"
#include "support/registry_tree.h"

namespace {

/// The module stays loaded here, so that a dead process's locks live on and its count of the semaphore stays lost.
class DyingProcess : public TRegistrySandbox {
 protected:
  DyingProcess() : TRegistrySandbox(NoDoubles) {
    CoGetClassObject(CLSID_UTransactionLog, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid());
  }

  static DWORD Make(const std::string& Change, const std::string& On, const std::string& Event = "nothing",
                    int Point = 0) {
    return TChild({"make-changes", Change, On, Event, std::to_string(Point)}).Wait();
  }
  /// Dies at one point after the other until there is none left, with a look at what is left each time. Gives their
  /// number.
  template <class TBefore, class TAfter>
  int Sweep(const std::string& Event, TBefore Before, TAfter LookAfter) {
    int Point = 0;
    for (DWORD Status = DiedStatus; Status == DiedStatus && !HasFatalFailure();) {
      SCOPED_TRACE(Event + " " + std::to_string(++Point));
      Status = Before(Point);
      EXPECT_TRUE(Status == 0 || Status == DiedStatus) << Status;
      LookAfter(Status);
    }
    return Point - 1;
  }

  TComRef<IClassFactory> Loaded;
};

struct TRegistryCrash {
  const char* Name;
  const char* Made;   ///< what is done before
  const char* Dying;  ///< what the process is at when it dies
  int Floor;          ///< the calls that change something are so many at least
};
std::ostream& operator<<(std::ostream& Out, const TRegistryCrash& Case) { return Out << Case.Name; }

class DyingRegistryChange : public DyingProcess, public testing::WithParamInterface<TRegistryCrash> {};

TEST_P(DyingRegistryChange, RollsBackInAnotherProcess) {
  StoreValue(Wide(L"Key"), L"Text", REG_SZ, WideBytes({L"old\0", 4}));
  StoreValue(Wide(L"Key"), L"Bytes", REG_BINARY, "bytes");
  StoreValue(Wide(L"Key\\Sub"), L"", REG_EXPAND_SZ, WideBytes(L"%TEMP%"));
  const TRegistryTree Original = Tree();
  for (const char* Event : {"before", "after", "torn"}) {
    const auto Die = [&](int Point) {
      EXPECT_EQ(0u, Make(GetParam().Made, Key("Key")));
      return Make(GetParam().Dying, Key("Key"), Event, Point);
    };
    const int Points = Sweep(Event, Die, [&](DWORD) {
      ASSERT_EQ(0u, Make("rollback", ""));
      ASSERT_EQ("", Difference(Original, Tree()));
      ASSERT_FALSE(Exists(Service("update.prt")));
    });
    std::printf("%s: died %s %d points\n", GetParam().Name, Event, Points);
    EXPECT_LE(*Event == 't' ? 1 : GetParam().Floor, Points);
  }
}

INSTANTIATE_TEST_SUITE_P(Registry, DyingRegistryChange,
                         testing::Values(TRegistryCrash{"set_string", "", "set-string", 8},
                                         TRegistryCrash{"delete_value", "", "delete-value", 8},
                                         TRegistryCrash{"delete_key", "", "delete-key", 12},
                                         TRegistryCrash{"rollback", "delete-key", "rollback", 8}),
                         testing::PrintToStringParamName());

TEST_F(DyingProcess, LeavesAHistoryGroupWithOrWithoutTheRecord) {
  const GUID Group = NumberedGuid(1);
  const std::string File = Service("History\\" + GuidText(Group));
  ASSERT_EQ(0u, Make("put-record", GuidText(Group)));
  size_t Records = 1;
  int Seen[2] = {0, 0};
  for (const char* Event : {"before", "after", "torn"}) {
    const int Points = Sweep(
        Event, [&](int Point) { return Make("put-record", GuidText(Group), Event, Point); },
        [&](DWORD Status) {
          const auto History = ::Make<IUHistory>(CLSID_UHistory);
          long Code = 0;
          GUID DataID;
          VARIANT_BOOL NoMore = VARIANT_TRUE, CheckPoint = VARIANT_TRUE;
          ASSERT_EQ(S_OK, History->Get(Group, &Code, &DataID, &NoMore, &CheckPoint)) << ErrorText();
          ASSERT_EQ(VARIANT_FALSE, NoMore);
          ASSERT_EQ(PutChangeCode, Code);
          const size_t Bytes = Read(File).size();
          ASSERT_TRUE(Bytes == Records * 36 || Bytes == (Records + 1) * 36) << Bytes;
          ASSERT_TRUE(Status == DiedStatus || Bytes == (Records + 1) * 36) << "acknowledged";
          ASSERT_FALSE(Exists(File + ".bkp"));
          ++Seen[Bytes / 36 - Records];
          Records = Bytes / 36;
        });
    std::printf("history: died %s %d points\n", Event, Points);
    EXPECT_LE(*Event == 't' ? 2 : 5, Points);
  }
  EXPECT_GT(Seen[0], 0);
  EXPECT_GT(Seen[1], 3) << "also by processes that died after the record was in";
}

TEST_F(DyingProcess, LeavesTheOldOrTheNewMacro) {
  std::string Value = "first";
  ASSERT_EQ(0u, Make("set-macro", Value));
  for (const char* Event : {"before", "after", "torn"}) {
    std::string NewValue;
    const int Points = Sweep(
        Event,
        [&](int Point) {
          NewValue = std::string(Event) + " " + std::to_string(Point);
          return Make("set-macro", NewValue, Event, Point);
        },
        [&](DWORD Status) {
          const DWORD Found = TChild({"match-macro", "Macro", HexText(Value), HexText(NewValue)}).Wait();
          ASSERT_TRUE(Found == 1 || (Found == 0 && Status == DiedStatus)) << Found;
          if (Found == 1) Value = NewValue;
        });
    std::printf("macro: died %s %d points\n", Event, Points);
    EXPECT_LE(*Event == 't' ? 3 : 9, Points);
  }
}

}  // namespace
