#pragma once

#include "support/fault.h"
#include "support/registry_tree.h"

#include <algorithm>
#include <cstring>

/// A COM-registration object, with the transaction log that its logged forms write.
class TComTest : public TRegistrySandbox {
 protected:
  TComTest() { Log().Lines.clear(); }

 public:
  /// The UCom lines, each with its call id's rank among those ids: "0 Begin ...".
  std::vector<std::string> NumberedLines() {
    std::vector<std::string> Result;
    std::vector<long> Ids;
    for (const auto& Line : Log().Lines) {
      if (Line.Name != "UCom") continue;
      const auto Found = std::find(Ids.begin(), Ids.end(), Line.Id);
      Result.push_back(std::to_string(Found - Ids.begin()) + " " + Line.Action + " " + Line.Text);
      if (Found == Ids.end()) Ids.push_back(Line.Id);
    }
    return Result;
  }
  /// The codes of the entries in the transaction log, all of them this class's.
  std::vector<int> Codes() const {
    std::vector<int> Result;
    const std::string Content = Exists(Service("update.prt")) ? Read(Service("update.prt")) : "";
    for (size_t At = 0; At < Content.size(); At += 36) {
      EXPECT_EQ(0, std::memcmp(Content.data() + At, &CLSID_UCom, sizeof(GUID)));
      std::memcpy(&Result.emplace_back(), Content.data() + At + 16, 4);
    }
    return Result;
  }
  /// The item of the newest entry.
  std::string DataID() const {
    GUID Item;
    const std::string Content = Read(Service("update.prt"));
    std::memcpy(&Item, Content.data() + Content.size() - 16, sizeof Item);
    return GuidText(Item);
  }
  /// Nobody has the file in hand: it can be renamed and written.
  static void ExpectUnloaded(const std::string& Path) {
    EXPECT_EQ(nullptr, GetModuleHandleA(Path.c_str()));
    EXPECT_TRUE(MoveFileA(Path.c_str(), (Path + ".moved").c_str())) << GetLastError();
    EXPECT_TRUE(
        TFileHandle(CreateFileA((Path + ".moved").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)))
        << GetLastError();
    EXPECT_TRUE(MoveFileA((Path + ".moved").c_str(), Path.c_str())) << GetLastError();
  }

  using TMethod = HRESULT (STDMETHODCALLTYPE IUCom::*)(BSTR);
  HRESULT Run(TMethod Method, const std::string& Path) { return (Com.Get()->*Method)(Text(Path)); }

  TComRef<IUCom> Com = Make<IUCom>(CLSID_UCom);
};
