#include "support/type_library.h"

#include "base/text.h"
#include "support/sandbox.h"

void MakeTypeLibrary(const std::string& Path, const std::string& HelpFile) {
  TComRef<ICreateTypeLib2> Library;
  TComRef<ICreateTypeInfo> Info;
  ASSERT_EQ(S_OK, CreateTypeLib2(OwnKind, ToWide(Path).c_str(), Library.Out()));
  EXPECT_EQ(S_OK, Library->SetGuid(Guid(MadeLibraryId)));
  EXPECT_EQ(S_OK, Library->SetVersion(MadeLibraryMajor, MadeLibraryMinor));
  EXPECT_EQ(S_OK, Library->SetLcid(0));
  EXPECT_EQ(S_OK, Library->SetName(Text("Sample")));
  if (!HelpFile.empty()) {
    EXPECT_EQ(S_OK, Library->SetHelpFileName(Text(HelpFile)));
  }
  EXPECT_EQ(S_OK, Library->CreateTypeInfo(Text("ISample"), TKIND_INTERFACE, Info.Out()));
  EXPECT_EQ(S_OK, Info->SetGuid(NumberedGuid(77)));
  EXPECT_EQ(S_OK, Info->LayOut());
  EXPECT_EQ(S_OK, Library->SaveAllChanges());
}
