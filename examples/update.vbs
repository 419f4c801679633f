' A whole updater in its shortest form. It undoes what an interrupted update left, copies files of a package over those
' of the application, deletes its old backups, and undoes all of that when something fails. docs/guide.md tells why it
' is made like this.
'
' usage: cscript update.vbs PACKAGE-FOLDER APPLICATION-FOLDER FILE...
'
' Each FILE is a name below both folders, such as readme.txt or help\index.htm.
'
' Ends with 0 when the application is updated, with 2 when it is as it was before, and with 1 when neither is sure: the
' next start tries again.
'
' Use the cscript of the bitness for which Mendwork.dll is registered; for the 32-bit library on 64-bit Windows
' that is C:\Windows\SysWOW64\cscript.exe.
Option Explicit

' The check points. Any identifiers will do; in upper case, as a rollback gives them back.
Const Started = "{0E3F8C52-6D0B-4E0B-8C53-3C0F6A4B7D11}", Committed = "{8B1D2A06-5C7E-4F13-9A60-D4E7C0B35F22}"
Const Always = 0
Const Updated = 0, NotSure = 1, AsBefore = 2

Dim Files: Set Files = CreateObject("Scripting.FileSystemObject")
Dim File, TransactionLog

If WScript.Arguments.Count < 3 Then
  WScript.Echo "usage: cscript update.vbs PACKAGE-FOLDER APPLICATION-FOLDER FILE..."
  WScript.Quit NotSure
End If
WScript.Quit Run(Files.GetAbsolutePathName(WScript.Arguments(0)), Files.GetAbsolutePathName(WScript.Arguments(1)))

' Undoes what was changed since the newest check point. Gives whether that is the begin of an update, which did not
' come to its end then.
Function Repair()
  Repair = (TransactionLog.Rollback(True) = Started)
  If Repair Then TransactionLog.PutCheckPoint Committed ' as after any update: the application is whole
End Function

' What a Logged method overwrites or removes is saved and recorded before anything is changed.
Sub Update(Package, App)
  Dim At
  TransactionLog.PutCheckPoint Started
  For At = 2 To WScript.Arguments.Count - 1
    File.CopyFileLogged Package & "\" & WScript.Arguments(At), App & "\" & WScript.Arguments(At), Always
  Next
  File.DeleteFilesLogged App & "\*.bak", False, False, False
  TransactionLog.PutCheckPoint Committed
End Sub

' The first failure in a routine ends that routine, and is looked at here.
Function Run(Package, App)
  Dim Undone, Reason
  On Error Resume Next
  Set File = CreateObject("Mendwork.UFile")
  Set TransactionLog = CreateObject("Mendwork.UTransactionLog")
  If Err.Number = 0 Then Undone = Repair
  If Err.Number <> 0 Then
    WScript.Echo "The update cannot begin: " & FailureText
    Run = NotSure
    Exit Function
  End If
  If Undone Then WScript.Echo "An earlier update was interrupted; its changes are undone."
  Update Package, App
  If Err.Number = 0 Then
    WScript.Echo "Updated."
    Run = Updated
    Exit Function
  End If
  Reason = FailureText
  Err.Clear
  Undone = Repair
  If Err.Number = 0 Then
    WScript.Echo "The update failed, and its changes are undone: " & Reason
    Run = AsBefore
  Else
    WScript.Echo "The update failed: " & Reason & " Its changes cannot be undone: " & FailureText
    Run = NotSure
  End If
End Function

' The system's texts end in a line break.
Function FailureText()
  FailureText = Replace(Err.Description, vbCrLf, "") & " (0x" & Hex(Err.Number) & ")"
End Function
