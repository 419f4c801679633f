' Updates the sample application Orvane Notes through Mendwork's automation objects, and tells what it does.
'
' usage: cscript update.vbs APPLICATION-FOLDER PACKAGE-FOLDER [SNAPSHOT-PROGRAM SNAPSHOT-FILE]
'
' When the update fails, SNAPSHOT-PROGRAM first lists the application's folder and its registry key into SNAPSHOT-FILE,
' so that one can see what there was to undo.
'
' Ends with 0 when the application is updated, with 2 when the update failed and was rolled back, and with 1 when not
' even that worked. A new step is a routine and its two lines in RunSteps.
Option Explicit

' The check point of this update. Each update brings an identifier of its own, so that it recognizes the place
' to which a rollback went.
Const CheckPoint = "{5B0E7F4C-38E5-4E07-9C3B-6F1B0D9A2E61}"

' Copy modes: what happens to a file that is there already.
Const Always = 0, IfMissing = 1, IfNewerVersion = 2, IfNewerDate = 3, IfNewerVersionOrAsk = 4
Dim ModeNames: ModeNames = Array("always", "if missing", "if newer version", "if newer date", "if newer, or ask")

Const CurrentUser = &H80000001
Const AppKey = "Software\Orvane\Notes"

Const Updated = 0, NothingWorked = 1, RolledBack = 2

Dim Files: Set Files = CreateObject("Scripting.FileSystemObject")
Dim App: App = WScript.Arguments(0)
Dim Package: Package = WScript.Arguments(1)

Dim File: Set File = CreateObject("Mendwork.UFile")
Dim Registry: Set Registry = CreateObject("Mendwork.URegistry")
Dim Backup: Set Backup = CreateObject("Mendwork.UBackup")
Dim Com: Set Com = CreateObject("Mendwork.UCom")
Dim Garbage: Set Garbage = CreateObject("Mendwork.UGarbage")
Dim Inno: Set Inno = CreateObject("Mendwork.UInno")
Dim TransactionLog: Set TransactionLog = CreateObject("Mendwork.UTransactionLog")

WScript.Quit Update

' ---- The steps

' In their order. The first failure in a step ends the step and this routine.
Sub RunSteps()
  Title "Replace the program's libraries"
  ReplaceLibraries
  Title "Bring the texts up to date"
  UpdateTexts
  Title "Change the settings, which belong to the user"
  ChangeSettings
  Title "Bring the registry up to date"
  UpdateRegistry
  Title "Remove what is no longer needed"
  RemoveLeftovers
  Title "Bring the word counter, a COM server, and use it"
  AddWordCounter
  Title "Bring the new help"
  UpdateHelp
  Title "Bring the themes, in a folder and a key that are new"
  AddThemes
  Title "List what only version 1.4 needed; it goes when all is done"
  ListLeftovers
End Sub

Sub ReplaceLibraries()
  CopyFile "editor.dll", IfNewerVersion
  CopyFile "spelling.dll", IfNewerVersion
  CopyFile "export.dll", IfNewerVersionOrAsk
End Sub

Sub UpdateTexts()
  CopyFile "readme.txt", Always
  CopyFile "settings.ini", IfMissing
  CopyFile "templates\letter.txt", IfNewerDate
  CopyFile "templates\memo.txt", IfNewerDate
End Sub

' A change that no method makes: the file is saved first, then the script writes what it likes.
Sub ChangeSettings()
  Const ForAppending = 8
  Dim Settings
  Backup.BackupFilesLogged App & "\settings.ini", False, False, False
  Set Settings = Files.OpenTextFile(App & "\settings.ini", ForAppending)
  Settings.WriteLine "Theme=Dark"
  Settings.Close
  Tell "edit", "settings.ini", "", "saved, then changed by the script"
End Sub

Sub UpdateRegistry()
  Registry.SetStringValueLogged CurrentUser, AppKey, "Version", "2.0"
  Tell "write", "Version", "text", "2.0"
  Registry.SetDwordValueLogged CurrentUser, AppKey, "Build", 2047
  Tell "write", "Build", "number", "2047"
  Registry.DeleteRegKeyValueLogged CurrentUser, AppKey, "Ruler"
  Tell "delete", "Ruler", "a value", "gone"
  Registry.DeleteRegKeyLogged CurrentUser, AppKey & "\Recent"
  Tell "delete", "Recent", "a key tree", "gone"
End Sub

Sub RemoveLeftovers()
  DeleteFiles "cache\*.*", True
  DeleteFiles "*.bak", False
End Sub

' Used in a process of its own: this one would keep the library in its hands, and a rollback could not delete it.
Sub AddWordCounter()
  Const Hidden = 0, Wait = True
  Const Text = "the pencil is mightier than the sword"
  Dim Number
  CopyFile "wordcount.dll", Always
  CopyFile "wordcount.vbs", Always
  Com.RegServerLogged App & "\wordcount.dll"
  Tell "register", "wordcount.dll", "", "done"
  Number = CreateObject("WScript.Shell").Run(Quoted(WScript.FullName) & " //nologo " & _
    Quoted(App & "\wordcount.vbs") & " " & Quoted(Text), Hidden, Wait)
  Tell "use", "OrvaneNotes.WordCount", "", "counts " & Number & " words of 7"
  If Number <> 7 Then Err.Raise vbObjectError, , "The word counter cannot be used."
End Sub

Sub UpdateHelp()
  CopyFile "help\contents.txt", Always
  CopyFile "help\whatsnew.txt", Always
End Sub

' The last change on purpose: a rollback takes new files away, but leaves the folders that were made for them, and new
' keys and values.
Sub AddThemes()
  CopyFile "themes\dark.txt", Always
  CopyFile "themes\sand.txt", Always
  Registry.SetStringValueLogged CurrentUser, AppKey & "\Themes", "Current", "dark"
  Tell "write", "Themes\Current", "text", "dark"
End Sub

' Lists are not rolled back, so this comes when nothing can fail any more.
Sub ListLeftovers()
  Garbage.PutFile App & "\changes-1.4.txt"
  Tell "list", "changes-1.4.txt", "file", "noted"
  Garbage.PutDirectory App & "\legacy"
  Tell "list", "legacy", "folder", "noted"
End Sub

' ---- What the steps are made of

Sub CopyFile(Name, Mode)
  Dim Before, Result
  Before = StateOf(App & "\" & Name)
  File.CopyFileLogged Package & "\" & Name, App & "\" & Name, Mode
  If Before = "" Then
    Result = "new"
    TellUninstaller Name
  ElseIf Before = StateOf(App & "\" & Name) Then
    Result = "kept"
  Else
    Result = "replaced"
  End If
  Tell "copy", Name, ModeNames(Mode), Result
End Sub

' What is new must go with the application one day. The new libraries of this package are COM servers.
Sub TellUninstaller(Name)
  If LCase(Files.GetExtensionName(Name)) = "dll" Then
    Inno.AddCOM App & "\" & Name
  Else
    Inno.AddFile App & "\" & Name
  End If
End Sub

' With its folder and the folders below, or only the files of the mask.
Sub DeleteFiles(Mask, WithFolders)
  Dim Range: Range = "these files"
  If WithFolders Then Range = "with all folders"
  File.DeleteFilesLogged App & "\" & Mask, WithFolders, WithFolders, WithFolders
  Tell "delete", Mask, Range, "gone"
End Sub

' What tells two versions of a file apart; "" when there is no file.
Function StateOf(Path)
  StateOf = ""
  If Files.FileExists(Path) Then StateOf = Files.GetFile(Path).DateLastModified & " " & Files.GetFile(Path).Size
End Function

' ---- The course of an update

Function Update()
  Dim Number, Reason
  On Error Resume Next
  TransactionLog.PutCheckPoint CheckPoint
  If Err.Number = 0 Then
    WScript.Echo "  A check point marks the state before the update."
    RunSteps
  End If
  Number = Err.Number
  Reason = Err.Description
  On Error GoTo 0
  If Number = 0 Then
    ' Last of all, because a rollback undoes neither.
    Inno.ProcessInno
    Garbage.Garbage
    WScript.Echo "  The update is complete, and what was listed is removed."
    Update = Updated
  Else
    WScript.Echo "  The update cannot go on: " & OneLine(Reason) & " (0x" & Hex(Number) & ")"
    TakeSnapshot
    Update = UndoAll
  End If
End Function

Sub TakeSnapshot()
  Const Hidden = 0, Wait = True
  If WScript.Arguments.Count < 4 Then Exit Sub
  CreateObject("WScript.Shell").Run Quoted(WScript.Arguments(2)) & " " & Quoted(App) & " " & _
    AppKey & " " & Quoted(WScript.Arguments(3)), Hidden, Wait
End Sub

Function UndoAll()
  Dim Reached, Number, Reason
  On Error Resume Next
  Reached = TransactionLog.Rollback(True)
  Number = Err.Number
  Reason = Err.Description
  On Error GoTo 0
  If Number <> 0 Then
    WScript.Echo "  The rollback failed as well: " & OneLine(Reason) & " (0x" & Hex(Number) & ")"
    UndoAll = NothingWorked
  ElseIf Reached <> CheckPoint Then
    WScript.Echo "  The rollback ended at another check point: " & Reached
    UndoAll = NothingWorked
  Else
    WScript.Echo "  Rollback: every change since the check point is undone, the newest first."
    UndoAll = RolledBack
  End If
End Function

' ---- Text

Sub Title(Text)
  WScript.Echo "  - " & Text
End Sub

Sub Tell(Action, Name, Rule, Result)
  WScript.Echo "     " & Padded(Action, 9) & Padded(Name, 24) & Padded(Rule, 20) & Result
End Sub

Function Padded(Text, Width)
  Padded = Text
  If Len(Text) < Width Then Padded = Text & Space(Width - Len(Text))
End Function

Function Quoted(Text)
  Quoted = Chr(34) & Text & Chr(34)
End Function

' The system's texts end in a line break.
Function OneLine(Text)
  OneLine = Trim(Replace(Replace(Text, vbCr, ""), vbLf, " "))
End Function
