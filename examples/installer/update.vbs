' The update that an installer runs, without a user: through the kit, so that one that fails leaves nothing behind.
'
' usage: cscript update.vbs PACKAGE-FOLDER APPLICATION-FOLDER VERSION
'
' Ends with 0 when the application is updated, with 2 when it is as it was before, and with 1 when neither is sure: the
' next start tries again.
Option Explicit

' The check points. Any identifiers will do; in upper case, as a rollback gives them back.
Const Started = "{51C6A0B8-2D94-4C0B-9D3C-7E0D8B6A1F42}", Committed = "{A97D3E15-6B42-4E58-8F20-19C4D5E7B083}"
Const CurrentUser = &H80000001, Text = 1, Always = 0
Const Updated = 0, NotSure = 1, AsBefore = 2

Dim Package: Package = WScript.Arguments(0)
Dim App: App = WScript.Arguments(1)
Dim Version: Version = WScript.Arguments(2)
Dim Kit, Com, TransactionLog
WScript.Quit Run

Sub Update
  TransactionLog.PutCheckPoint Started
  Kit.CopyTreeLogged Package, App, "", Always
  Com.RegServerLogged App & "\wordcount.dll"
  Kit.CreateValueLogged CurrentUser, "Software\Orvane\Notes", "Version", Text, Version
  TransactionLog.PutCheckPoint Committed
End Sub

' Undoes what was changed since the newest check point, when that is the begin of an update.
Sub Repair
  If Kit.Rollback(True) = Started Then TransactionLog.PutCheckPoint Committed
End Sub

Function Run
  On Error Resume Next
  Run = NotSure
  Set Kit = CreateObject("MendworkKit.Kit")
  Kit.Log CreateObject("Scripting.FileSystemObject").GetParentFolderName(App) & "\Logs", 4000000
  Kit.Silent "retry 10"
  Set Com = CreateObject("Mendwork.UCom")
  Set TransactionLog = CreateObject("Mendwork.UTransactionLog")
  If Err.Number = 0 Then Repair
  If Err.Number <> 0 Then Exit Function
  Update
  If Err.Number = 0 Then
    Run = Updated
    Exit Function
  End If
  WScript.Echo "The update failed: " & Err.Description & " " & Kit.LastMessage
  Err.Clear
  Repair
  If Err.Number = 0 Then Run = AsBefore
End Function
