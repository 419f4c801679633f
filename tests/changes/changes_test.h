#pragma once

#include "support/module_calls.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <cstring>

/// Changes of one class, and its entries in the transaction log.
class TChangesTest : public TSandboxTest {
 protected:
  explicit TChangesTest(const CLSID& ClassId, TLogChoice Choice = LogInMemory)
      : TSandboxTest(Choice), ClassId(ClassId) {}

 public:
  /// The codes of the entries in the transaction log, all of them the class's.
  std::vector<int> Codes() const {
    std::vector<int> Result;
    const std::string Content = Exists(Service("update.prt")) ? Read(Service("update.prt")) : "";
    EXPECT_EQ(0u, Content.size() % 36);
    for (size_t At = 0; At + 36 <= Content.size(); At += 36) {
      EXPECT_EQ(0, std::memcmp(Content.data() + At, &ClassId, sizeof ClassId));
      std::memcpy(&Result.emplace_back(), Content.data() + At + sizeof ClassId, sizeof(int));
    }
    return Result;
  }
  /// Undoes all that is in the transaction log.
  void RollbackToStart() {
    ASSERT_EQ(S_OK, RollBack()) << ErrorText();
    EXPECT_FALSE(Exists(Service("update.prt")));
  }
  /// The names of all that is in the application, joined with blanks.
  std::string Names() const {
    std::string Result;
    for (const auto& [Name, Entry] : TreeOf(App())) Result += (Result.empty() ? "" : " ") + Name;
    return Result;
  }

 private:
  const CLSID& ClassId;
};

class TFileTest : public TChangesTest {
 protected:
  TFileTest() : TChangesTest(CLSID_UFile) {}
  HRESULT Copy(bool Logged, const std::string& Source, const std::string& Dest, long CopyMode = 0) {
    return Logged ? File->CopyFileLogged(Text(App(Source)), Text(App(Dest)), CopyMode)
                  : File->CopyFile(Text(App(Source)), Text(App(Dest)), CopyMode);
  }

  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
};

class TComTest : public TChangesTest {
 protected:
  TComTest() : TChangesTest(CLSID_UCom) { Log().Lines.clear(); }

 public:
  /// Nobody has the file in hand: it can be renamed and written.
  static void ExpectUnloaded(const std::string& Path) {
    EXPECT_EQ(nullptr, GetModuleHandleA(Path.c_str()));
    EXPECT_TRUE(MoveFileA(Path.c_str(), (Path + ".moved").c_str())) << GetLastError();
    EXPECT_TRUE(
        TFileHandle(CreateFileA((Path + ".moved").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)))
        << GetLastError();
    EXPECT_TRUE(MoveFileA((Path + ".moved").c_str(), Path.c_str())) << GetLastError();
  }

  TComRef<IUCom> Com = Make<IUCom>(CLSID_UCom);
};
