' What comes before the calls of calls.txt, each of which is followed by Reach and its name: prints what became of it.
' Argument: a folder to work in.
Option Explicit
Const KeyName = "Software\Mendwork tests"
Const CurrentUser = &H80000001
Const Group = "{0B5C1F7E-3C55-4B1A-9C11-0123456789AB}"
Const Nobody = "{d1056535-1821-4ed3-83c4-ee842eb060b0}"
Dim UDebugLog, UDialog, UBackup, UCanRollback, UTransactionLog, UHistory, UFile, UGarbage, UCom, URegistry, UMacro, UInno
Dim FileName, CopyName, Answer, Item, Code, NoMore

Set UDebugLog = CreateObject("Mendwork.UDebugLog")
Set UDialog = CreateObject("Mendwork.UDialog")
Set UBackup = CreateObject("Mendwork.UBackup.6")
Set UCanRollback = CreateObject("Mendwork.UCanRollback")
Set UTransactionLog = CreateObject("Mendwork.UTransactionLog")
Set UHistory = CreateObject("Mendwork.UHistory")
Set UFile = CreateObject("Mendwork.UFile")
Set UGarbage = CreateObject("Mendwork.UGarbage")
Set UCom = CreateObject("Mendwork.UCom")
Set URegistry = CreateObject("Mendwork.URegistry")
Set UMacro = CreateObject("Mendwork.UMacro")
Set UInno = CreateObject("Mendwork.UInno")

Sub Reach(Name)
  Dim Outcome
  If Err.Number = 0 Then Outcome = "ok " & Answer Else Outcome = Hex(Err.Number) & " " & Err.Description
  WScript.Echo Name & ": " & Outcome
  Answer = ""
  Err.Clear
End Sub

FileName = WScript.Arguments(0) & "\file.txt"
CopyName = WScript.Arguments(0) & "\copy.txt"
Answer = ""
On Error Resume Next
