// What comes before the calls of calls.txt, each of which is followed by reach: prints what became of it.
// Argument: a folder to work in.
var KeyName = "Software\\Mendwork tests", CurrentUser = 0x80000001;
var Group = "{0B5C1F7E-3C55-4B1A-9C11-0123456789AB}", Nobody = "{d1056535-1821-4ed3-83c4-ee842eb060b0}";
var FileName = WScript.Arguments(0) + "\\file.txt", CopyName = WScript.Arguments(0) + "\\copy.txt";
var Answer = "", Item, Code = 0, NoMore = false;

function reach(name, failure) {
  var outcome = "ok " + Answer;
  if (failure) outcome = (failure.number >>> 0).toString(16).toUpperCase() + " " + failure.message;
  WScript.Echo(name + ": " + outcome);
  Answer = "";
}
