#include "base/text.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <map>

namespace {

// The published classes, written down a second time by hand: what scripts and compiled clients rely on for ever.
// Class, its interface, base interface and events interface; identifiers by their first eight digits. Then the methods
// in the order of the vtable: slot behind IDispatch's seven, DISPID where it is another number, and parameters:
// i long, u unsigned long, b VARIANT_BOOL, s BSTR, g GUID, v void, * pointer to.
const std::map<std::string, std::string> Surface = {
    {"UBackup FFD6A1AB, IUBackup D117FE45, IUCanRollback, IUBackupEvents 6F88C951",
     "2 BackupString(s*g) 3 RestoreString(g*s) 4 BackupRegKeyValue(uss*g) 5 RestoreRegKeyValue(g) 6 "
     "BackupRegKey(usb*g) "
     "7 RestoreRegKey(g) 8 BackupFiles(sbbb*g) 9 RestoreFiles(g) 10 BackupRegKeyValueLogged(uss*g) "
     "11 BackupRegKeyLogged(usb*g) 12 BackupFilesLogged(sbbb*g) 13 BackupData(*vi*g) 14 RestoreData(g**v*i) "},
    {"UCanRollback D1056535, IUCanRollback 160D065F, IDispatch, IUCanRollbackEvents 83AA8D56", "1 Rollback(ig) "},
    {"UCom F2EEE710, IUCom 18F618E3, IUCanRollback, IUComEvents 7427CCEA",
     "2 RegServer(s) 3 UnRegServer(s) 4 RegTLB(s) 5 UnRegTLB(s) 6/8 RegServerLogged(s) 7/9 RegTLBLogged(s) "
     "8/10 UnRegServerLogged(s) 9/11 UnRegTLBLogged(s) 10/6 Reg(s) 11/7 UnReg(s) 12 RegLogged(s) 13 UnRegLogged(s) "},
    {"UDebugLog A8B6D418, IUDebugLog 0A5B56A8, IDispatch, IUDebugLogEvents ACB7D4B9", "1 Put(isss) "},
    {"UDialog CAFEA67A, IUDialog FC022291, IDispatch, IUDialogEvents 11C3DBD0",
     "1 ShowMsgBox(ssi*i) 2 ShowCustomMsgBox(ssiss*s) "},
    {"UFile 3CE8B3A4, IUFile C837BCAA, IUCanRollback, IUFileEvents 6779CD4A",
     "2 DeleteFiles(sbbb) 3 CopyFile(ssi) 4 DeleteFilesLogged(sbbb) 5 CopyFileLogged(ssi) "},
    {"UGarbage 088126C9, IUGarbage 2014875C, IDispatch, IUGarbageEvents B09BF7B8",
     "1 PutFile(s) 2 PutDirectory(s) 3 PutRegKey(us) 4 PutRegKeyValue(uss) 5 Garbage() "},
    {"UHistory E5971292, IUHistory B6C53BD8, IDispatch, IUHistoryEvents CFA35415",
     "1 Put(gig) 2 Get(g*i*g*b*b) 3 DeleteLastRecord(g) 4 PutCheckPoint(gg) 5 ClearAll(g) "},
    {"UInno 8CF05A3A, IUInno A2FB4EAD, IDispatch, IUInnoEvents 27C8A286",
     "1 AddFile(s) 2 AddCOM(s) 3 GetFileList(*s) 4 GetCOMList(*s) 5 ProcessInno() "},
    {"UMacro 08999B02, IUMacro F07775A8, IDispatch, IUMacroEvents F9073016",
     "1 GetMacro(s*s) 2 SetMacro(ssb) 3 DelMacro(s) 4 MacroExists(s*b) "},
    {"URegistry 52F66F7C, IURegistry 513ADF85, IUCanRollback, IURegistryEvents 7385A2A3",
     "2 DeleteRegKey(us) 3 DeleteRegKeyValue(uss) 4 SetStringValue(usss) 5 SetDwordValue(ussu) "
     "6 SetBinaryValue(uss*vi) 7 DeleteRegKeyLogged(us) 8 DeleteRegKeyValueLogged(uss) 9 SetStringValueLogged(usss) "
     "10 SetDwordValueLogged(ussu) 11 SetBinaryValueLogged(uss*vi) "},
    {"UTransactionLog 7E3AD41E, IUTransactionLog B783357E, IDispatch, IUTransactionLogEvents 55F86DC8",
     "1 Put(gig) 2 PutCheckPoint(g) 3/5 Rollback(b*g) "}};

std::string NameOf(ITypeInfo& Info, MEMBERID Member = MEMBERID_NIL) {
  TBstr Name;
  Info.GetDocumentation(Member, Name.Out(), nullptr, nullptr, nullptr);
  return Take(Name);
}

/// The attributes of a type; kept, as a process is one test.
const TYPEATTR& AttributesOf(ITypeInfo& Info) {
  TYPEATTR* Attributes = nullptr;
  Info.GetTypeAttr(&Attributes);
  return *Attributes;
}

std::string Named(ITypeInfo& Info) { return NameOf(Info) + " " + GuidText(AttributesOf(Info).guid).substr(1, 8); }

TComRef<ITypeInfo> Implemented(ITypeInfo& Info, UINT Index) {
  HREFTYPE Reference = 0;
  TComRef<ITypeInfo> Result;
  Info.GetRefTypeOfImplType(Index, &Reference);
  Info.GetRefTypeInfo(Reference, Result.Out());
  return Result;
}

std::string TypeText(const TYPEDESC& Type) {
  static const std::map<VARTYPE, const char*> Letters = {{VT_I4, "i"},   {VT_UI4, "u"},         {VT_BOOL, "b"},
                                                         {VT_BSTR, "s"}, {VT_USERDEFINED, "g"}, {VT_VOID, "v"}};
  if (Type.vt == VT_PTR) return "*" + TypeText(*Type.lptdesc);
  const auto Found = Letters.find(Type.vt);
  return Found != Letters.end() ? Found->second : "<type " + std::to_string(Type.vt) + ">";
}

std::string MethodsOf(ITypeInfo& Interface) {
  constexpr int SlotsOfDispatch = 7;
  std::string Text;
  for (UINT At = 0; At < AttributesOf(Interface).cFuncs; ++At) {
    FUNCDESC* Function = nullptr;
    Interface.GetFuncDesc(At, &Function);
    const int Slot = Function->oVft / static_cast<int>(sizeof(void*)) - SlotsOfDispatch + 1;
    Text += std::to_string(Slot) + (Slot == Function->memid ? "" : "/" + std::to_string(Function->memid)) + " " +
            NameOf(Interface, Function->memid) + "(";
    for (SHORT Parameter = 0; Parameter < Function->cParams; ++Parameter)
      Text += TypeText(Function->lprgelemdescParam[Parameter].tdesc);
    Text += ") ";
    EXPECT_EQ(CC_STDCALL, Function->callconv) << Text;
    EXPECT_EQ(VT_HRESULT, Function->elemdescFunc.tdesc.vt) << Text;
    Interface.ReleaseFuncDesc(Function);
  }
  return Text;
}

TEST(TypeLibrary, HoldsThePublishedClasses) {
  constexpr UINT VtableView = static_cast<UINT>(-1);
  TComRef<ITypeLib> Library;
  ASSERT_EQ(S_OK, LoadTypeLibEx(ToWide(BuiltModulePath()).c_str(), REGKIND_NONE, Library.Out()));
  std::map<std::string, std::string> Classes;
  for (UINT At = 0; At < Library->GetTypeInfoCount(); ++At) {
    TComRef<ITypeInfo> Class;
    ASSERT_EQ(S_OK, Library->GetTypeInfo(At, Class.Out()));
    if (AttributesOf(*Class).typekind != TKIND_COCLASS) continue;
    const auto Default = Implemented(*Class, 0), Events = Implemented(*Class, 1),
               Vtable = Implemented(*Default, VtableView);
    Classes[Named(*Class) + ", " + Named(*Vtable) + ", " + NameOf(*Implemented(*Vtable, 0)) + ", " + Named(*Events)] =
        MethodsOf(*Vtable);
    INT DefaultFlags = 0, EventsFlags = 0;
    Class->GetImplTypeFlags(0, &DefaultFlags);
    Class->GetImplTypeFlags(1, &EventsFlags);
    EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT, DefaultFlags) << NameOf(*Class);
    EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE, EventsFlags) << NameOf(*Class);
    EXPECT_EQ(TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE, AttributesOf(*Vtable).wTypeFlags);
  }
  EXPECT_EQ(Surface, Classes);
}

}  // namespace
