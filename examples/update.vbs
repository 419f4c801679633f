' An update in its shortest form: a check point, logged changes, and a rollback when one of them fails.
'
' usage: cscript update.vbs NEW-FILE INSTALLED-FILE
'
' Use the cscript of the bitness for which Mendwork.dll is registered; for the 32-bit library on 64-bit Windows
' that is C:\Windows\SysWOW64\cscript.exe.
Option Explicit

' Any identifier will do. A rollback tells to which check point it went.
Const CheckPoint = "{0E3F8C52-6D0B-4E0B-8C53-3C0F6A4B7D11}"
Const IfNewerVersion = 2

Dim File: Set File = CreateObject("Mendwork.UFile")
Dim TransactionLog: Set TransactionLog = CreateObject("Mendwork.UTransactionLog")

Sub Update(NewFile, InstalledFile)
  Dim Folder: Folder = Left(InstalledFile, InStrRev(InstalledFile, "\"))
  TransactionLog.PutCheckPoint CheckPoint
  ' What a Logged method overwrites or removes is saved and recorded before anything is changed.
  File.CopyFileLogged NewFile, InstalledFile, IfNewerVersion
  File.DeleteFilesLogged Folder & "*.bak", False, False, False
End Sub

If WScript.Arguments.Count <> 2 Then
  WScript.Echo "usage: cscript update.vbs NEW-FILE INSTALLED-FILE"
  WScript.Quit 1
End If

Dim Reason
On Error Resume Next
Update WScript.Arguments(0), WScript.Arguments(1)
If Err.Number <> 0 Then
  Reason = Err.Description
  Err.Clear
  TransactionLog.Rollback True ' to the last check point; False undoes everything that was ever recorded
  If Err.Number <> 0 Then Reason = Reason & " The rollback failed, too: " & Err.Description
  WScript.Echo "The update failed: " & Reason
  WScript.Quit 1
End If
WScript.Echo "Updated."
