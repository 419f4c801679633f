' What comes before the calls of calls.txt, each of which is followed by Reach and its name: prints what became of it.
' Argument: a folder to work in.
Option Explicit
Const KeyName = "Software\Mendwork tests"
Const CurrentUser = &H80000001
Const Group = "{0B5C1F7E-3C55-4B1A-9C11-0123456789AB}"
Const Nobody = "{d1056535-1821-4ed3-83c4-ee842eb060b0}"
Dim FileName, CopyName, Answer, Item, Code, NoMore

Sub Reach(Name)
  Dim Outcome
  If Err.Number = 0 Then Outcome = RTrim("ok " & Answer) Else Outcome = Hex(Err.Number)
  If Err.Number = &H80004001 Then Outcome = Outcome & " " & Err.Description
  WScript.Echo Name & ": " & Outcome
  Answer = ""
  Err.Clear
End Sub

FileName = WScript.Arguments(0) & "\file.txt"
CopyName = WScript.Arguments(0) & "\copy.txt"
Answer = ""
