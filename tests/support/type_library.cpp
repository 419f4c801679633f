#include "support/type_library.h"

#include "base/text.h"
#include "support/sandbox.h"

void MakeTypeLibrary(const std::string& Path, const std::string& HelpFile) {
  TComRef<ICreateTypeLib2> Library;
  TComRef<ICreateTypeInfo> Info;
  const auto Succeed = [](HRESULT Result) { Must(Result == S_OK, "no type library can be made"); };
  Succeed(CreateTypeLib2(OwnKind, ToWide(Path).c_str(), Library.Out()));
  Succeed(Library->SetGuid(Guid(MadeLibraryId)));
  Succeed(Library->SetVersion(MadeLibraryMajor, MadeLibraryMinor));
  Succeed(Library->SetLcid(0));
  Succeed(Library->SetName(Text("Sample")));
  if (!HelpFile.empty()) Succeed(Library->SetHelpFileName(Text(HelpFile)));
  Succeed(Library->CreateTypeInfo(Text("ISample"), TKIND_INTERFACE, Info.Out()));
  Succeed(Info->SetGuid(NumberedGuid(77)));
  Succeed(Info->LayOut());
  Succeed(Library->SaveAllChanges());
}
