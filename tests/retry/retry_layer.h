#pragma once

#include "support/fault.h"
#include "support/program.h"
#include "support/sandbox.h"
#include "support/type_library.h"

#include <algorithm>

/// Public calls on a small application, through which every file wrapper can be reached: old.txt and the later src.txt
/// with three bytes each, an empty folder, one entry in the transaction log. The log starts empty behind that.
class TRetryLayer : public TSandbox {
 protected:
  TRetryLayer() {
    Write(App("old.txt"), "old", FILE_ATTRIBUTE_ARCHIVE);
    Write(App("src.txt"), "new", FILE_ATTRIBUTE_ARCHIVE);
    MakeFolders(App("empty"));
    PutEntry();
    Log().Lines.clear();
  }

 public:
  HRESULT Copy(const std::string& Dest = "dest.txt", long CopyMode = 0) {
    return File->CopyFile(Text(App("src.txt")), Text(App(Dest)), CopyMode);
  }
  HRESULT CopyLogged(const std::string& Dest) { return File->CopyFileLogged(Text(App("src.txt")), Text(App(Dest)), 0); }
  HRESULT Delete(const std::string& Mask, VARIANT_BOOL DeleteUpperDir = VARIANT_FALSE) {
    return File->DeleteFiles(Text(App(Mask)), VARIANT_FALSE, VARIANT_FALSE, DeleteUpperDir);
  }
  HRESULT PutEntry() { return TransactionLog->Put(CLSID_UCanRollback, 7, NumberedGuid(1)); }
  /// Registers a module that lets itself be registered.
  HRESULT RegServer() {
    const std::string Built = BuiltModulePath();
    CopyFileA((Built.substr(0, Built.rfind('\\')) + "\\tests\\server.dll").c_str(), App("returns-0.dll").c_str(),
              FALSE);
    return Com->RegServer(Text(App("returns-0.dll")));
  }
  /// Registers a type library, and unregisters it when that has succeeded.
  HRESULT RegAndUnRegTLB() {
    MakeTypeLibrary(App("Sample.TLB"));
    const HRESULT Result = Com->RegTLB(Text(App("Sample.TLB")));
    return SUCCEEDED(Result) ? Com->UnRegTLB(Text(App("Sample.TLB"))) : Result;
  }
  HRESULT Rollback() {
    GUID CheckPoint{};
    return TransactionLog->Rollback(VARIANT_FALSE, &CheckPoint);
  }

 protected:
  /// The first line of the retry layer with this action whose text begins so; null when there is none.
  const TMemoryLog::TLine* Find(const std::string& Action, const std::string& Beginning) {
    for (const auto& Line : Log().Lines)
      if (Line.Name == "Common" && Line.Action == Action && Line.Text.rfind(Beginning, 0) == 0) return &Line;
    return nullptr;
  }
  /// The lines under one call id, except its Begin line.
  std::vector<std::string> Following(long Id) {
    std::vector<std::string> Result;
    for (const auto& Line : Log().Lines)
      if (Line.Id == Id && Line.Action != "Begin") Result.push_back(Line.Action + " " + Line.Text);
    return Result;
  }
  /// The texts of the retry layer's lines that are about this routine, with their actions.
  std::vector<std::string> LinesOf(const std::string& Routine) {
    std::vector<std::string> Result = Log().Texts("Common");
    std::erase_if(Result, [&](const std::string& Line) { return Line.find(" " + Routine) == std::string::npos; });
    return Result;
  }

  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IUCom> Com = Make<IUCom>(CLSID_UCom);
  TComRef<IUTransactionLog> TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
};
