#pragma once

#include "base/text.h"
#include "support/process.h"
#include "support/sandbox.h"

#include <map>

/// A class as the type library of the built module publishes it.
struct TPublishedClass {
  std::string Name;
  CLSID ClassId;
  IID InterfaceId, EventsId;
  std::map<MEMBERID, std::string> Methods;  ///< of its interface, inherited ones included
};

inline TYPEATTR AttributesOf(ITypeInfo& Info) {
  TYPEATTR* Attributes = nullptr;
  Must(SUCCEEDED(Info.GetTypeAttr(&Attributes)), "a type has no attributes");
  const TYPEATTR Result = *Attributes;
  Info.ReleaseTypeAttr(Attributes);
  return Result;
}

inline std::string NameOf(ITypeInfo& Info, MEMBERID Member = MEMBERID_NIL) {
  TBstr Name;
  Info.GetDocumentation(Member, Name.Out(), nullptr, nullptr, nullptr);
  return Take(Name);
}

inline TComRef<ITypeInfo> ImplementedBy(ITypeInfo& Class, UINT Index) {
  HREFTYPE Reference = 0;
  TComRef<ITypeInfo> Interface;
  Class.GetRefTypeOfImplType(Index, &Reference);
  Class.GetRefTypeInfo(Reference, Interface.Out());
  return Interface;
}

/// All of them, so that no test has a list of its own.
inline std::vector<TPublishedClass> PublishedClasses(const std::string& Module = BuiltModulePath()) {
  TComRef<ITypeLib> Library;
  Must(SUCCEEDED(LoadTypeLibEx(ToWide(Module).c_str(), REGKIND_NONE, Library.Out())), "no type library");
  std::vector<TPublishedClass> Classes;
  for (UINT At = 0; At < Library->GetTypeInfoCount(); ++At) {
    TComRef<ITypeInfo> Class;
    Library->GetTypeInfo(At, Class.Out());
    if (AttributesOf(*Class).typekind != TKIND_COCLASS) continue;
    const auto Interface = ImplementedBy(*Class, 0);
    const IID EventsId = AttributesOf(*ImplementedBy(*Class, 1)).guid;
    Classes.push_back({NameOf(*Class), AttributesOf(*Class).guid, AttributesOf(*Interface).guid, EventsId, {}});
    constexpr MEMBERID Highest = 40;
    for (MEMBERID Id = 1; Id <= Highest; ++Id)
      if (const std::string Name = NameOf(*Interface, Id); !Name.empty()) Classes.back().Methods[Id] = Name;
  }
  return Classes;
}

/// Calls one of the built module's own functions.
template <class... TArgs>
HRESULT CallExport(const char* Name, TArgs... Args) {
  const TModuleHandle Module(LoadLibraryA(BuiltModulePath().c_str()));
  return reinterpret_cast<HRESULT(WINAPI*)(TArgs...)>(reinterpret_cast<void*>(GetProcAddress(Module.Get(), Name)))(
      Args...);
}
