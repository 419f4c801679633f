' An updater that ends in the middle of its work, for the pictures of what support staff see then.
Option Explicit
Dim Log: Set Log = CreateObject("Mendwork.UTransactionLog")
Dim Files: Set Files = CreateObject("Mendwork.UFile")
Dim Registry: Set Registry = CreateObject("Mendwork.URegistry")
Dim Disk: Set Disk = CreateObject("Scripting.FileSystemObject")
Dim Name
Disk.CreateFolder "C:\Package"
Disk.CreateFolder "C:\App"
For Each Name In Array("program.exe", "words.dat", "help.txt", "new.dll")
  Disk.CreateTextFile("C:\Package\" & Name).Write "version 2.0 of " & Name
  If Name <> "new.dll" Then Disk.CreateTextFile("C:\App\" & Name).Write "version 1.4 of " & Name
Next
Registry.SetStringValue &H80000001, "Software\App", "Version", "1.4"
Log.PutCheckPoint "{5D0A3C52-7D4B-4E53-9C55-0B1E7B2F6A01}"
For Each Name In Array("program.exe", "words.dat", "help.txt", "new.dll")
  Files.CopyFileLogged "C:\Package\" & Name, "C:\App\" & Name, 0
Next
Registry.SetStringValueLogged &H80000001, "Software\App", "Version", "2.0"
