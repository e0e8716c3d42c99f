; The installer for Windows: for one user, without an administrator's rights.
; makensis -DVERSION=1.0.0 -DFILES=folder -DKILOBYTES=n -DOUTPUT=file

Unicode true
Target amd64-unicode ; as the program is; Wine without a 32-bit part runs it, too
!include MUI2.nsh

!define KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\QuillaTarn"
!define SHORTCUT "$SMPROGRAMS\Quilla Tarn.lnk"
!define RUNNING "Quilla Tarn is running. Dismount your volumes, choose Exit, and then Retry."
!define KEEP_LIST "Remove the list of your volumes and your settings, too?$\r$\n$\r$\nThe volumes themselves, their data files and key files, stay where they are."
!define EXIT_RUNNING 3

Name "Quilla Tarn"
OutFile "${OUTPUT}"
RequestExecutionLevel user
InstallDir "$LOCALAPPDATA\Programs\Quilla Tarn"
InstallDirRegKey HKCU "${KEY}" InstallLocation
SetCompressor /SOLID lzma
SetDateSave off ; dates of the build's files would make each installer another one
ShowInstDetails nevershow
ShowUninstDetails nevershow
BrandingText "Quilla Tarn ${VERSION}"

VIProductVersion "${VERSION}.0"
VIFileVersion "${VERSION}.0"
VIAddVersionKey CompanyName "Orvane"
VIAddVersionKey FileDescription "Quilla Tarn Setup"
VIAddVersionKey FileVersion "${VERSION}"
VIAddVersionKey LegalCopyright "Copyright © 2026 The Quilla Tarn authors"
VIAddVersionKey ProductName "Quilla Tarn"
VIAddVersionKey ProductVersion "${VERSION}"

!define MUI_ICON "..\ui\resources\program.ico"
!define MUI_UNICON "..\ui\resources\program.ico"
!define MUI_FINISHPAGE_RUN "$INSTDIR\QuillaTarn.exe"
!insertmacro MUI_PAGE_LICENSE "${FILES}\License.txt"
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

; The files of a running program cannot be replaced, and a mounted volume must not lose them. An instance is known by
; the event that lives as long as it.
!macro AwaitEnd
    again:
    System::Call 'kernel32::OpenEventW(i 0x100000, i 0, w "Orvane Quilla Tarn") p.r0' ; SYNCHRONIZE
    StrCmp $0 0 done
    System::Call 'kernel32::CloseHandle(p r0)'
    MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "${RUNNING}" /SD IDCANCEL IDRETRY again
    SetErrorLevel ${EXIT_RUNNING}
    Quit
    done:
!macroend

Function .onInit
    !insertmacro AwaitEnd
FunctionEnd

Function un.onInit
    !insertmacro AwaitEnd
FunctionEnd

Section
    SetOutPath "$INSTDIR"
    File "${FILES}\QuillaTarn.exe"
    File "${FILES}\QuillaDriver.dll"
    File "${FILES}\Quilla.htm"
    File "${FILES}\AttachDrive.ps1"
    File "${FILES}\DetachDrive.ps1"
    File "${FILES}\License.txt"
    WriteUninstaller "$INSTDIR\Uninstall.exe"
    CreateShortcut "${SHORTCUT}" "$INSTDIR\QuillaTarn.exe"
    WriteRegStr HKCU "${KEY}" DisplayName "Quilla Tarn"
    WriteRegStr HKCU "${KEY}" DisplayVersion "${VERSION}"
    WriteRegStr HKCU "${KEY}" Publisher "The Quilla Tarn authors"
    WriteRegStr HKCU "${KEY}" DisplayIcon "$INSTDIR\QuillaTarn.exe"
    WriteRegStr HKCU "${KEY}" InstallLocation "$INSTDIR"
    WriteRegStr HKCU "${KEY}" UninstallString '"$INSTDIR\Uninstall.exe"'
    WriteRegStr HKCU "${KEY}" QuietUninstallString '"$INSTDIR\Uninstall.exe" /S'
    WriteRegDWORD HKCU "${KEY}" EstimatedSize ${KILOBYTES}
    WriteRegDWORD HKCU "${KEY}" NoModify 1
    WriteRegDWORD HKCU "${KEY}" NoRepair 1
SectionEnd

; By name, and folders only when they are empty: whatever else lies there is the user's.
Section Uninstall
    Delete "$INSTDIR\QuillaTarn.exe"
    Delete "$INSTDIR\QuillaDriver.dll"
    Delete "$INSTDIR\Quilla.htm"
    Delete "$INSTDIR\AttachDrive.ps1"
    Delete "$INSTDIR\DetachDrive.ps1"
    Delete "$INSTDIR\License.txt"
    Delete "$INSTDIR\Uninstall.exe"
    RMDir "$INSTDIR"
    RMDir "$LOCALAPPDATA\Programs"
    RMDir "$LOCALAPPDATA\Quilla Tarn" ; held the addresses of mounted volumes
    Delete "${SHORTCUT}"
    DeleteRegKey HKCU "${KEY}"
    MessageBox MB_YESNO|MB_ICONQUESTION|MB_DEFBUTTON2 "${KEEP_LIST}" /SD IDNO IDNO keep
    DeleteRegKey HKCU "Software\Orvane\Quilla"
    keep:
    DeleteRegKey /ifempty HKCU "Software\Orvane"
SectionEnd
