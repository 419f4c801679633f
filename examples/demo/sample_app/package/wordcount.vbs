' Counts the words of a text with the application's COM server; the number is the exit status.
Dim Words: Set Words = CreateObject("OrvaneNotes.WordCount")
WScript.Quit Words.Count(WScript.Arguments(0))
