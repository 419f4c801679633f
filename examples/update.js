// A whole updater in its shortest form. It undoes what an interrupted update left, copies files of a package over those
// of the application, deletes its old backups, and undoes all of that when something fails. docs/guide.md tells why it
// is made like this.
//
// usage: cscript update.js PACKAGE-FOLDER APPLICATION-FOLDER FILE...
//
// Each FILE is a name below both folders, such as readme.txt or help\index.htm.
//
// Ends with 0 when the application is updated, with 2 when it is as it was before, and with 1 when neither is sure: the
// next start tries again.
//
// Use the cscript of the bitness for which Mendwork.dll is registered; for the 32-bit library on 64-bit Windows
// that is C:\Windows\SysWOW64\cscript.exe.

// The check points. Any identifiers will do; in upper case, as a rollback gives them back.
var Started = "{7A1D9B34-52C6-4F8E-9D07-E41B8F2C6A90}";
var Committed = "{C35E0F71-1B94-4D2A-8E6C-70A9D1F4B683}";
var Always = 0;
var Updated = 0, NotSure = 1, AsBefore = 2;

var Files = new ActiveXObject("Scripting.FileSystemObject");
var File, TransactionLog;

// Undoes what was changed since the newest check point. Gives whether that is the begin of an update, which did not
// come to its end then.
function repair() {
  var undone = TransactionLog.Rollback(true) == Started;
  if (undone) TransactionLog.PutCheckPoint(Committed); // as after any update: the application is whole
  return undone;
}

// What a Logged method overwrites or removes is saved and recorded before anything is changed.
function update(packageFolder, app) {
  TransactionLog.PutCheckPoint(Started);
  for (var at = 2; at < WScript.Arguments.length; ++at)
    File.CopyFileLogged(packageFolder + "\\" + WScript.Arguments(at), app + "\\" + WScript.Arguments(at), Always);
  File.DeleteFilesLogged(app + "\\*.bak", false, false, false);
  TransactionLog.PutCheckPoint(Committed);
}

// The system's texts end in a line break.
function textOf(failure) {
  return failure.message.replace(/\r\n/g, "") + " (0x" + (failure.number >>> 0).toString(16).toUpperCase() + ")";
}

function run(packageFolder, app) {
  try {
    File = new ActiveXObject("Mendwork.UFile");
    TransactionLog = new ActiveXObject("Mendwork.UTransactionLog");
    if (repair()) WScript.Echo("An earlier update was interrupted; its changes are undone.");
  } catch (failure) {
    WScript.Echo("The update cannot begin: " + textOf(failure));
    return NotSure;
  }
  try {
    update(packageFolder, app);
  } catch (failure) {
    var reason = textOf(failure);
    try {
      repair();
    } catch (second) {
      WScript.Echo("The update failed: " + reason + " Its changes cannot be undone: " + textOf(second));
      return NotSure;
    }
    WScript.Echo("The update failed, and its changes are undone: " + reason);
    return AsBefore;
  }
  WScript.Echo("Updated.");
  return Updated;
}

function main() {
  if (WScript.Arguments.length < 3) {
    WScript.Echo("usage: cscript update.js PACKAGE-FOLDER APPLICATION-FOLDER FILE...");
    return NotSure;
  }
  return run(Files.GetAbsolutePathName(WScript.Arguments(0)), Files.GetAbsolutePathName(WScript.Arguments(1)));
}

WScript.Quit(main());
