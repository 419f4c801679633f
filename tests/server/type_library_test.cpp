#include "server/text.h"
#include "support/program.h"
#include "support/sandbox.h"

#include <map>

namespace {

// The published surface, written down a second time by hand: what scripts and compiled clients rely on for ever.
// Classes: identifier, default interface, events interface. Methods: vtable slot behind IDispatch's seven, DISPID.
// Identifiers are given by their first eight digits; a parameter without another word is an [in].
constexpr char Surface[] =
    R"(IUBackup D117FE45 : IUCanRollback
  2 2 BackupString(Str: String, retval DataID: GUID)
  3 3 RestoreString(DataID: GUID, retval Str: String)
  4 4 BackupRegKeyValue(RootKey: Cardinal, KeyName: String, ValueName: String, retval DataID: GUID)
  5 5 RestoreRegKeyValue(DataID: GUID)
  6 6 BackupRegKey(RootKey: Cardinal, KeyName: String, RecurseSubKey: Boolean, retval DataID: GUID)
  7 7 RestoreRegKey(DataID: GUID)
  8 8 BackupFiles(FileNameMask: String, RecurseSubDir: Boolean, DirNames: Boolean, UpperDirName: Boolean, retval DataID: GUID)
  9 9 RestoreFiles(DataID: GUID)
  10 10 BackupRegKeyValueLogged(RootKey: Cardinal, KeyName: String, ValueName: String, retval DataID: GUID)
  11 11 BackupRegKeyLogged(RootKey: Cardinal, KeyName: String, RecurseSubKey: Boolean, retval DataID: GUID)
  12 12 BackupFilesLogged(FileNameMask: String, RecurseSubDir: Boolean, DirNames: Boolean, UpperDirName: Boolean, retval DataID: GUID)
  13 13 BackupData(DataBuf: Buffer, DataSize: Integer, retval DataID: GUID)
  14 14 RestoreData(DataID: GUID, out DataBuf: Buffer, out DataSize: Integer)
IUCanRollback 160D065F : IDispatch
  1 1 Rollback(code: Integer, DataID: GUID)
IUCom 18F618E3 : IUCanRollback
  2 2 RegServer(FileName: String)
  3 3 UnRegServer(FileName: String)
  4 4 RegTLB(FileName: String)
  5 5 UnRegTLB(FileName: String)
  6 8 RegServerLogged(FileName: String)
  7 9 RegTLBLogged(FileName: String)
  8 10 UnRegServerLogged(FileName: String)
  9 11 UnRegTLBLogged(FileName: String)
  10 6 Reg(FileName: String)
  11 7 UnReg(FileName: String)
  12 12 RegLogged(FileName: String)
  13 13 UnRegLogged(FileName: String)
IUDebugLog 0A5B56A8 : IDispatch
  1 1 Put(id: Integer, Name: String, Action: String, Text: String)
IUDialog FC022291 : IDispatch
  1 1 ShowMsgBox(Text: String, Caption: String, MsgType: Integer, retval Res: Integer)
  2 2 ShowCustomMsgBox(Text: String, Caption: String, IcoType: Integer, Buttons: String, DefButton: String, retval Res: String)
IUFile C837BCAA : IUCanRollback
  2 2 DeleteFiles(FileNameMask: String, RecurseSubDir: Boolean, DeleteEmptyDir: Boolean, DeleteUpperDir: Boolean)
  3 3 CopyFile(SourceFileName: String, DestFileName: String, CopyMode: Integer)
  4 4 DeleteFilesLogged(FileNameMask: String, RecurseSubDir: Boolean, DeleteEmptyDir: Boolean, DeleteUpperDir: Boolean)
  5 5 CopyFileLogged(SourceFileName: String, DestFileName: String, CopyMode: Integer)
IUGarbage 2014875C : IDispatch
  1 1 PutFile(FileName: String)
  2 2 PutDirectory(DirName: String)
  3 3 PutRegKey(RootKey: Cardinal, KeyName: String)
  4 4 PutRegKeyValue(RootKey: Cardinal, KeyName: String, ValueName: String)
  5 5 Garbage()
IUHistory B6C53BD8 : IDispatch
  1 1 Put(GroupID: GUID, code: Integer, DataID: GUID)
  2 2 Get(GroupID: GUID, out code: Integer, out DataID: GUID, out NoMoreRecords: Boolean, retval ThisIsCheckPoint: Boolean)
  3 3 DeleteLastRecord(GroupID: GUID)
  4 4 PutCheckPoint(GroupID: GUID, CheckPointID: GUID)
  5 5 ClearAll(GroupID: GUID)
IUInno A2FB4EAD : IDispatch
  1 1 AddFile(FileName: String)
  2 2 AddCOM(FileName: String)
  3 3 GetFileList(retval FileList: String)
  4 4 GetCOMList(retval COMList: String)
  5 5 ProcessInno()
IUMacro F07775A8 : IDispatch
  1 1 GetMacro(Name: String, retval Value: String)
  2 2 SetMacro(Name: String, Value: String, Permanent: Boolean)
  3 3 DelMacro(Name: String)
  4 4 MacroExists(Name: String, retval Exists: Boolean)
IURegistry 513ADF85 : IUCanRollback
  2 2 DeleteRegKey(RootKey: Cardinal, KeyName: String)
  3 3 DeleteRegKeyValue(RootKey: Cardinal, KeyName: String, ValueName: String)
  4 4 SetStringValue(RootKey: Cardinal, KeyName: String, ValueName: String, Value: String)
  5 5 SetDwordValue(RootKey: Cardinal, KeyName: String, ValueName: String, Value: Cardinal)
  6 6 SetBinaryValue(RootKey: Cardinal, KeyName: String, ValueName: String, Value: Buffer, ValueSize: Integer)
  7 7 DeleteRegKeyLogged(RootKey: Cardinal, KeyName: String)
  8 8 DeleteRegKeyValueLogged(RootKey: Cardinal, KeyName: String, ValueName: String)
  9 9 SetStringValueLogged(RootKey: Cardinal, KeyName: String, ValueName: String, Value: String)
  10 10 SetDwordValueLogged(RootKey: Cardinal, KeyName: String, ValueName: String, Value: Cardinal)
  11 11 SetBinaryValueLogged(RootKey: Cardinal, KeyName: String, ValueName: String, Value: Buffer, ValueSize: Integer)
IUTransactionLog B783357E : IDispatch
  1 1 Put(id: GUID, code: Integer, DataID: GUID)
  2 2 PutCheckPoint(CheckPointID: GUID)
  3 5 Rollback(OnlyToCheckPoint: Boolean, retval CheckPointID: GUID)
UBackup FFD6A1AB IUBackup IUBackupEvents 6F88C951
UCanRollback D1056535 IUCanRollback IUCanRollbackEvents 83AA8D56
UCom F2EEE710 IUCom IUComEvents 7427CCEA
UDebugLog A8B6D418 IUDebugLog IUDebugLogEvents ACB7D4B9
UDialog CAFEA67A IUDialog IUDialogEvents 11C3DBD0
UFile 3CE8B3A4 IUFile IUFileEvents 6779CD4A
UGarbage 088126C9 IUGarbage IUGarbageEvents B09BF7B8
UHistory E5971292 IUHistory IUHistoryEvents CFA35415
UInno 8CF05A3A IUInno IUInnoEvents 27C8A286
UMacro 08999B02 IUMacro IUMacroEvents F9073016
URegistry 52F66F7C IURegistry IURegistryEvents 7385A2A3
UTransactionLog 7E3AD41E IUTransactionLog IUTransactionLogEvents 55F86DC8
)";

struct TDocumentation {
  std::string Name, Help;
};

TDocumentation DocumentationOf(ITypeInfo& Info, MEMBERID Member = MEMBERID_NIL) {
  TBstr Name, Help;
  Info.GetDocumentation(Member, Name.Out(), Help.Out(), nullptr, nullptr);
  return {Take(Name), Take(Help)};
}

/// The attributes of a type; kept, as a process is one test.
const TYPEATTR& AttributesOf(ITypeInfo& Info) {
  TYPEATTR* Attributes = nullptr;
  Info.GetTypeAttr(&Attributes);
  return *Attributes;
}

std::string Digits(const GUID& Guid) { return GuidText(Guid).substr(1, 8); }

TComRef<ITypeInfo> Implemented(ITypeInfo& Info, UINT Index) {
  HREFTYPE Reference = 0;
  TComRef<ITypeInfo> Result;
  Info.GetRefTypeOfImplType(Index, &Reference);
  Info.GetRefTypeInfo(Reference, Result.Out());
  return Result;
}

std::string TypeText(ITypeInfo& Owner, const TYPEDESC& Type) {
  static const std::map<VARTYPE, const char*> Names = {
      {VT_I4, "Integer"}, {VT_UI4, "Cardinal"}, {VT_BOOL, "Boolean"}, {VT_BSTR, "String"}};
  if (Type.vt == VT_PTR) return Type.lptdesc->vt == VT_VOID ? "Buffer" : "pointer to " + TypeText(Owner, *Type.lptdesc);
  if (Type.vt == VT_USERDEFINED) {
    TComRef<ITypeInfo> Record;
    Owner.GetRefTypeInfo(Type.hreftype, Record.Out());
    return DocumentationOf(*Record).Name;
  }
  const auto Found = Names.find(Type.vt);
  return Found != Names.end() ? Found->second : "type " + std::to_string(Type.vt);
}

std::string ParameterText(ITypeInfo& Owner, const ELEMDESC& Parameter, const std::string& Name) {
  const TYPEDESC* Type = &Parameter.tdesc;
  const USHORT Flags = Parameter.paramdesc.wParamFlags;
  if (Flags == PARAMFLAG_FIN) return Name + ": " + TypeText(Owner, *Type);
  EXPECT_EQ(VT_PTR, Type->vt) << Name;
  EXPECT_TRUE(Flags == PARAMFLAG_FOUT || Flags == (PARAMFLAG_FOUT | PARAMFLAG_FRETVAL)) << Name << " " << Flags;
  return (Flags & PARAMFLAG_FRETVAL ? "retval " : "out ") + Name + ": " + TypeText(Owner, *Type->lptdesc);
}

std::string MethodText(ITypeInfo& Info, const FUNCDESC& Function) {
  constexpr int SlotsOfDispatch = 7;
  constexpr UINT MostNames = 16;
  TBstr Names[MostNames];
  BSTR Raw[MostNames] = {};
  UINT Count = 0;
  Info.GetNames(Function.memid, Raw, MostNames, &Count);
  for (UINT At = 0; At < Count; ++At) Names[At].Reset(Raw[At]);
  EXPECT_EQ(VT_HRESULT, Function.elemdescFunc.tdesc.vt);
  EXPECT_EQ(CC_STDCALL, Function.callconv);
  const int Slot = Function.oVft / static_cast<int>(sizeof(void*)) - SlotsOfDispatch + 1;
  std::string Line =
      "  " + std::to_string(Slot) + " " + std::to_string(Function.memid) + " " + ToAnsi(ViewOf(Raw[0])) + "(";
  for (SHORT At = 0; At < Function.cParams; ++At)
    Line += (At ? ", " : "") + ParameterText(Info, Function.lprgelemdescParam[At], ToAnsi(ViewOf(Raw[At + 1])));
  return Line + ")\n";
}

std::string DualInterfaceText(ITypeInfo& DispatchView, const std::string& Name) {
  constexpr UINT VtableView = static_cast<UINT>(-1);
  const TComRef<ITypeInfo> Info = Implemented(DispatchView, VtableView);
  const TYPEATTR& Attributes = AttributesOf(*Info);
  EXPECT_EQ(TKIND_INTERFACE, Attributes.typekind);
  EXPECT_EQ(TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE, Attributes.wTypeFlags) << Name;
  std::string Text = Name + " " + Digits(Attributes.guid) + " : " + DocumentationOf(*Implemented(*Info, 0)).Name + "\n";
  for (WORD At = 0; At < Attributes.cFuncs; ++At) {
    FUNCDESC* Function = nullptr;
    Info->GetFuncDesc(At, &Function);
    Text += MethodText(*Info, *Function);
    Info->ReleaseFuncDesc(Function);
  }
  return Text;
}

std::string CoClassText(ITypeInfo& Info, const std::string& Name) {
  const TYPEATTR& Attributes = AttributesOf(Info);
  EXPECT_EQ(TYPEFLAG_FCANCREATE, Attributes.wTypeFlags & TYPEFLAG_FCANCREATE) << Name;
  EXPECT_EQ(2, Attributes.cImplTypes) << Name;
  INT Flags[2] = {};
  for (UINT At = 0; At < 2; ++At) Info.GetImplTypeFlags(At, &Flags[At]);
  EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT, Flags[0]) << Name;
  EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE, Flags[1]) << Name;
  const TComRef<ITypeInfo> Default = Implemented(Info, 0), Events = Implemented(Info, 1);
  const TYPEATTR& EventsAttributes = AttributesOf(*Events);
  EXPECT_EQ(TKIND_DISPATCH, EventsAttributes.typekind);
  EXPECT_EQ(TYPEFLAG_FDISPATCHABLE, EventsAttributes.wTypeFlags) << Name;
  EXPECT_EQ(0, EventsAttributes.cFuncs + EventsAttributes.cVars) << Name;
  EXPECT_EQ(Name + " Object", DocumentationOf(Info).Help);
  EXPECT_EQ("Dispatch interface for " + Name + " Object", DocumentationOf(*Default).Help);
  EXPECT_EQ("Events interface for " + Name + " Object", DocumentationOf(*Events).Help);
  return Name + " " + Digits(Attributes.guid) + " " + DocumentationOf(*Default).Name + " " +
         DocumentationOf(*Events).Name + " " + Digits(EventsAttributes.guid) + "\n";
}

TEST(TypeLibrary, IsWhatWasPublished) {
  TComRef<ITypeLib> Library;
  ASSERT_EQ(S_OK, LoadTypeLibEx(ToWide(BuiltModulePath()).c_str(), REGKIND_NONE, Library.Out()));
  TBstr Name, Help;
  TLIBATTR* Attributes = nullptr;
  ASSERT_EQ(S_OK, Library->GetDocumentation(-1, Name.Out(), Help.Out(), nullptr, nullptr));
  ASSERT_EQ(S_OK, Library->GetLibAttr(&Attributes));
  EXPECT_EQ("Mendwork", Take(Name));
  EXPECT_EQ("Orvane Update Service Library", Take(Help));
  EXPECT_EQ("{D9F421A7-4AF7-47C5-9254-15A3A874CD14}", GuidText(Attributes->guid));
  EXPECT_EQ(2, Attributes->wMajorVerNum);
  EXPECT_EQ(0, Attributes->wMinorVerNum);
  EXPECT_EQ(0x409u, Attributes->lcid);
  Library->ReleaseTLibAttr(Attributes);

  std::map<std::string, std::string> Types;  // by name, as the table above is ordered
  constexpr UINT Classes = 12;
  ASSERT_EQ(3 * Classes, Library->GetTypeInfoCount());
  for (UINT At = 0; At < 3 * Classes; ++At) {
    TComRef<ITypeInfo> Info;
    ASSERT_EQ(S_OK, Library->GetTypeInfo(At, Info.Out()));
    const std::string TypeName = DocumentationOf(*Info).Name;
    if (AttributesOf(*Info).typekind == TKIND_COCLASS)
      Types[TypeName] = CoClassText(*Info, TypeName);
    else if (!TypeName.ends_with("Events"))
      Types[TypeName] = DualInterfaceText(*Info, TypeName);
  }
  std::string Text;
  for (const auto& [TypeName, Part] : Types) Text += Part;
  EXPECT_EQ(Surface, Text);
}

}  // namespace
