#pragma once

#include "support/module_calls.h"
#include "support/process.h"
#include "support/sandbox_test.h"
#include "support/type_library.h"

/// Public calls on a small application, through which every wrapper can be reached: old.txt and the later src.txt with
/// three bytes each, an empty folder, a registry key with two values and a subkey, one entry in the transaction log.
class TRetryLayer : public TSandboxTest {
 protected:
  TRetryLayer() {
    Write(App("old.txt"), "old", FILE_ATTRIBUTE_ARCHIVE);
    Write(App("src.txt"), "new", FILE_ATTRIBUTE_ARCHIVE);
    MakeFolders(App("empty"));
    StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"old", 4}));
    StoreValue(Wide(L"Key\\Sub"), L"", REG_DWORD, "1234");
    PutEntry();
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
  HRESULT SaveValue(unsigned long Root = User, const std::string& KeyName = Key("Key")) {
    GUID DataID;
    return Backup->BackupRegKeyValue(Root, Text(KeyName), Text("Name"), &DataID);
  }
  HRESULT SaveKey() {
    GUID DataID;
    return Backup->BackupRegKey(User, Text(Key("Key")), VARIANT_TRUE, &DataID);
  }
  HRESULT SetValue() { return Registry->SetDwordValue(User, Text(Key("Key")), Text("New"), 5); }
  HRESULT DeleteValue(const std::string& KeyName = "Key", const std::string& ValueName = "Name") {
    return Registry->DeleteRegKeyValue(User, Text(Key(KeyName)), Text(ValueName));
  }
  HRESULT DeleteKey(const std::string& KeyName = "Key") { return Registry->DeleteRegKey(User, Text(Key(KeyName))); }

 protected:
  /// The retry layer's lines that tell of a failure.
  std::vector<std::string> Exceptions() {
    std::vector<std::string> Result = Log().Texts("Common");
    std::erase_if(Result, [](const std::string& Line) { return Line.rfind("Exception", 0) != 0; });
    return Result;
  }

  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IUCom> Com = Make<IUCom>(CLSID_UCom);
  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
  TComRef<IUTransactionLog> TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
};
