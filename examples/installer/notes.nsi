; The installer of the sample application Orvane Notes, which brings Mendwork and the kit, and updates through them.
;
;   makensis -DVERSION=1.4 -DFILES=folder -DLIBRARIES=folder -DSETUP=setup-1.4.exe notes.nsi
;
; FILES are the application's, as version VERSION has them. LIBRARIES has Mendwork.dll and MendworkKit.dll of 32 bits,
; for this is a 32-bit program, and RegDLL loads them. /S installs without a window.
;
; Where the application is not installed, all is copied plainly: there is nothing yet that could break. Where it is, the
; update is update.vbs; the exit status is that of the script, so that whoever deploys it reads how it ended:
; 0 installed or updated, 1 not sure, 2 the update failed and everything is as it was before.

Unicode true
!include LogicLib.nsh

!define AppKey "Software\Orvane\Notes"
!define BaseKey "Software\Orvane\Core"

Name "Orvane Notes ${VERSION}"
OutFile "${SETUP}"
InstallDir "C:\Orvane"
RequestExecutionLevel admin
Page instfiles
UninstPage instfiles

Function FirstInstallation
  SetOutPath "$INSTDIR\Libraries"
  File "${LIBRARIES}/Mendwork.dll" "${LIBRARIES}/MendworkKit.dll"
  RegDLL "$INSTDIR\Libraries\Mendwork.dll"
  RegDLL "$INSTDIR\Libraries\MendworkKit.dll"
  IfErrors 0 +3
    SetErrorLevel 1
    Abort "The libraries could not be registered."
  WriteRegStr HKCU "${BaseKey}" "" "$INSTDIR"
  SetOutPath "$INSTDIR\Notes"
  File /r "${FILES}/*.*"
  WriteRegStr HKCU "${AppKey}" "Version" "${VERSION}"
  WriteUninstaller "$INSTDIR\uninstall.exe"
FunctionEnd

Function Update
  SetOutPath "$PLUGINSDIR\package"
  File /r "${FILES}/*.*"
  SetOutPath "$PLUGINSDIR"
  File "update.vbs"
  ExecWait '"$SYSDIR\cscript.exe" //nologo "$PLUGINSDIR\update.vbs" "$PLUGINSDIR\package" "$INSTDIR\Notes" "${VERSION}"' $0
  ${If} ${Errors}
    StrCpy $0 1
  ${EndIf}
  SetErrorLevel $0
FunctionEnd

Section
  InitPluginsDir
  ClearErrors
  ReadRegStr $0 HKCU "${AppKey}" "Version"
  ${If} $0 == ""
    ClearErrors
    Call FirstInstallation
  ${Else}
    Call Update
  ${EndIf}
SectionEnd

; The update's files lie in the application's own folder, and go with it. The backup store goes last: as long as it is
; there, an update that was interrupted can be undone.
Section Uninstall
  IfFileExists "$INSTDIR\Notes\wordcount.dll" 0 +2
    UnRegDLL "$INSTDIR\Notes\wordcount.dll"
  UnRegDLL "$INSTDIR\Libraries\MendworkKit.dll"
  UnRegDLL "$INSTDIR\Libraries\Mendwork.dll"
  RMDir /r "$INSTDIR\Notes"
  RMDir /r "$INSTDIR\Libraries"
  RMDir /r "$INSTDIR\Logs"
  RMDir /r "$INSTDIR\Updates"
  DeleteRegKey HKCU "${AppKey}"
  DeleteRegKey HKCU "${BaseKey}"
  DeleteRegKey /ifempty HKCU "Software\Orvane"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
SectionEnd
