// An update in its shortest form: a check point, logged changes, and a rollback when one of them fails.
//
// usage: cscript update.js NEW-FILE INSTALLED-FILE
//
// Use the cscript of the bitness for which Mendwork.dll is registered; for the 32-bit library on 64-bit Windows
// that is C:\Windows\SysWOW64\cscript.exe.

// Any identifier will do. A rollback tells to which check point it went.
var CheckPoint = "{7A1D9B34-52C6-4F8E-9D07-E41B8F2C6A90}";
var IfNewerVersion = 2;

var File = new ActiveXObject("Mendwork.UFile");
var TransactionLog = new ActiveXObject("Mendwork.UTransactionLog");

function update(newFile, installedFile) {
  var folder = installedFile.substring(0, installedFile.lastIndexOf("\\") + 1);
  TransactionLog.PutCheckPoint(CheckPoint);
  // What a Logged method overwrites or removes is saved and recorded before anything is changed.
  File.CopyFileLogged(newFile, installedFile, IfNewerVersion);
  File.DeleteFilesLogged(folder + "*.bak", false, false, false);
}

function main() {
  if (WScript.Arguments.length != 2) {
    WScript.Echo("usage: cscript update.js NEW-FILE INSTALLED-FILE");
    return 1;
  }
  try {
    update(WScript.Arguments(0), WScript.Arguments(1));
  } catch (failure) {
    var reason = failure.message;
    try {
      TransactionLog.Rollback(true); // to the last check point; false undoes everything that was ever recorded
    } catch (second) {
      reason += " The rollback failed, too: " + second.message;
    }
    WScript.Echo("The update failed: " + reason);
    return 1;
  }
  WScript.Echo("Updated.");
  return 0;
}

WScript.Quit(main());
