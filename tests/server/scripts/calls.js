// Makes every call of calls.txt, by name, and prints what became of each.
// Arguments: a folder to work in, calls.txt.
var KeyName = "Software\\Mendwork tests";
var CurrentUser = 0x80000001;
var Group = "{0B5C1F7E-3C55-4B1A-9C11-0123456789AB}";
var Nobody = "{d1056535-1821-4ed3-83c4-ee842eb060b0}";
var FileName = WScript.Arguments(0) + "\\file.txt", CopyName = WScript.Arguments(0) + "\\copy.txt";
var Answer, Item, Code = 0, NoMore = false;
var UDebugLog = new ActiveXObject("Mendwork.UDebugLog");
var UDialog = new ActiveXObject("Mendwork.UDialog");
var UBackup = new ActiveXObject("Mendwork.UBackup.6");
var UCanRollback = new ActiveXObject("Mendwork.UCanRollback");
var UTransactionLog = new ActiveXObject("Mendwork.UTransactionLog");
var UHistory = new ActiveXObject("Mendwork.UHistory");
var UFile = new ActiveXObject("Mendwork.UFile");
var UGarbage = new ActiveXObject("Mendwork.UGarbage");
var UCom = new ActiveXObject("Mendwork.UCom");
var URegistry = new ActiveXObject("Mendwork.URegistry");
var UMacro = new ActiveXObject("Mendwork.UMacro");
var UInno = new ActiveXObject("Mendwork.UInno");

function makeCall(line) {
  var outcome, start = line.indexOf("U");
  Answer = "";
  try {
    eval(line);
    outcome = "ok " + Answer;
  } catch (e) {
    outcome = (e.number >>> 0).toString(16).toUpperCase() + " " + e.message;
  }
  WScript.Echo(line.substring(start, line.indexOf("(")) + ": " + outcome);
}

var calls = new ActiveXObject("Scripting.FileSystemObject").OpenTextFile(WScript.Arguments(1));
while (!calls.AtEndOfStream) makeCall(calls.ReadLine());
