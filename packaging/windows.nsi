; The installer for Windows: for one user, without an administrator's rights. make_installer.py gives VERSION, OUTPUT and
; FILES, a script with the macros InstallFiles and RemoveFiles, each with one line for every file.
;
; vantlow-VERSION-windows-x86_64.exe /S [/D=FOLDER] asks nothing; /TORRENT, /MAGNET, /ED2K and /BROWSER choose what is not
; chosen by itself. Uninstall.exe /S likewise. Jobs, settings and downloads stay where they are when it is removed.

!define KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Vantlow"
!define DESKTOP "$INSTDIR\vantlow-desktop.exe"

Target amd64-unicode
ManifestDPIAware true
SetDateSave off
SetCompressor /SOLID lzma
RequestExecutionLevel user
Name "Vantlow"
OutFile "${OUTPUT}"
InstallDir "$LOCALAPPDATA\Programs\Vantlow"
InstallDirRegKey HKCU "${KEY}" "InstallLocation"

!include MUI2.nsh
!include FileFunc.nsh
!include Sections.nsh
!include "${FILES}"

!define MUI_COMPONENTSPAGE_SMALLDESC
!define MUI_FINISHPAGE_RUN "${DESKTOP}"
!insertmacro MUI_PAGE_LICENSE "${LICENCE}"
!insertmacro MUI_PAGE_COMPONENTS
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE English
!insertmacro MUI_LANGUAGE German
!insertmacro MUI_LANGUAGE SimpChinese

LangString Program ${LANG_ENGLISH} "Vantlow"
LangString Program ${LANG_GERMAN} "Vantlow"
LangString Program ${LANG_SIMPCHINESE} "Vantlow"
LangString OnDesktop ${LANG_ENGLISH} "A shortcut on the desktop"
LangString OnDesktop ${LANG_GERMAN} "Verknüpfung auf dem Desktop"
LangString OnDesktop ${LANG_SIMPCHINESE} "桌面快捷方式"
LangString Torrents ${LANG_ENGLISH} "Opens .torrent files"
LangString Torrents ${LANG_GERMAN} "Öffnet .torrent-Dateien"
LangString Torrents ${LANG_SIMPCHINESE} "打开 .torrent 文件"
LangString Magnets ${LANG_ENGLISH} "Opens magnet: links"
LangString Magnets ${LANG_GERMAN} "Öffnet magnet:-Links"
LangString Magnets ${LANG_SIMPCHINESE} "打开 magnet: 链接"
LangString Ed2k ${LANG_ENGLISH} "Opens ed2k: links"
LangString Ed2k ${LANG_GERMAN} "Öffnet ed2k:-Links"
LangString Ed2k ${LANG_SIMPCHINESE} "打开 ed2k: 链接"
LangString Browsers ${LANG_ENGLISH} "Takes downloads from browsers"
LangString Browsers ${LANG_GERMAN} "Übernimmt Downloads aus Browsern"
LangString Browsers ${LANG_SIMPCHINESE} "接管浏览器的下载"
LangString IsOpen ${LANG_ENGLISH} "Vantlow is running and could not be ended. End it and try again."
LangString IsOpen ${LANG_GERMAN} "Vantlow läuft und konnte nicht beendet werden. Beenden Sie es und versuchen Sie es noch einmal."
LangString IsOpen ${LANG_SIMPCHINESE} "Vantlow 正在运行，无法结束它。请先将其退出，然后重试。"

; A program that runs holds its files: it is asked to end, and saves everything.
!macro EndProgram
    IfFileExists "$INSTDIR\vantlow.exe" 0 +3
    nsExec::Exec '"$INSTDIR\vantlow.exe" --quiet quit'
    Pop $0
    ClearErrors
    IfFileExists "${DESKTOP}" 0 ended
    FileOpen $0 "${DESKTOP}" a
    IfErrors 0 closed
    MessageBox MB_ICONSTOP "$(IsOpen)" /SD IDOK
    SetErrorLevel 1
    Quit
closed:
    FileClose $0
ended:
!macroend

!macro Set NAME VALUE
    nsExec::Exec '"${DESKTOP}" --no-window settings set ${NAME} ${VALUE}'
    Pop $0
!macroend

Section "$(Program)" PROGRAM
    SectionIn RO
    !insertmacro EndProgram
    !insertmacro InstallFiles
    SetOutPath "$INSTDIR"
    WriteUninstaller "$INSTDIR\Uninstall.exe"
    CreateShortCut "$SMPROGRAMS\Vantlow.lnk" "${DESKTOP}"
    WriteRegStr HKCU "${KEY}" "DisplayName" "Vantlow"
    WriteRegStr HKCU "${KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKCU "${KEY}" "DisplayIcon" "${DESKTOP}"
    WriteRegStr HKCU "${KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKCU "${KEY}" "UninstallString" '"$INSTDIR\Uninstall.exe"'
    WriteRegStr HKCU "${KEY}" "QuietUninstallString" '"$INSTDIR\Uninstall.exe" /S'
    WriteRegDWORD HKCU "${KEY}" "NoModify" 1
    WriteRegDWORD HKCU "${KEY}" "NoRepair" 1
SectionEnd

Section /o "$(OnDesktop)" ON_DESKTOP
    CreateShortCut "$DESKTOP\Vantlow.lnk" "${DESKTOP}"
SectionEnd

Section /o "$(Torrents)" TORRENTS
    !insertmacro Set "Monitor/.torrent" 1
SectionEnd

Section /o "$(Magnets)" MAGNETS
    !insertmacro Set "Monitor/magnet" 1
SectionEnd

Section /o "$(Ed2k)" ED2K
    !insertmacro Set "Monitor/ed2k" 1
SectionEnd

!ifdef BROWSERS
Section /o "$(Browsers)" BROWSER
    nsExec::Exec '"$INSTDIR\vantlow.exe" browser install'
    Pop $0
SectionEnd
!endif

!macro Choose WORD SECTION
    ClearErrors
    ${GetOptions} $R0 "/${WORD}" $R1
    ${IfNot} ${Errors}
        !insertmacro SelectSection ${SECTION}
    ${EndIf}
!macroend

Function .onInit
    !insertmacro MUI_LANGDLL_DISPLAY
    ${GetParameters} $R0
    !insertmacro Choose TORRENT ${TORRENTS}
    !insertmacro Choose MAGNET ${MAGNETS}
    !insertmacro Choose ED2K ${ED2K}
    !ifdef BROWSERS
    !insertmacro Choose BROWSER ${BROWSER}
    !endif
FunctionEnd

; Everything that was installed goes, by its name: the folder with the jobs may stand in the same place, and stays.
Section "Uninstall"
    !insertmacro EndProgram
    !insertmacro Set "Monitor/.torrent" 0
    !insertmacro Set "Monitor/magnet" 0
    !insertmacro Set "Monitor/ed2k" 0
    !insertmacro Set "Window/StartWithSession" 0
    !ifdef BROWSERS
    nsExec::Exec '"$INSTDIR\vantlow.exe" browser remove'
    Pop $0
    !endif
    !insertmacro RemoveFiles
    Delete "$INSTDIR\Uninstall.exe"
    RMDir "$INSTDIR"
    Delete "$SMPROGRAMS\Vantlow.lnk"
    Delete "$DESKTOP\Vantlow.lnk"
    DeleteRegKey HKCU "${KEY}"
SectionEnd
