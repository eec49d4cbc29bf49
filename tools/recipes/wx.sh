# The window's toolkit for Windows: wxWidgets, without the parts that no pane uses. Linux takes the system's own.
# shellcheck shell=bash
# shellcheck disable=SC2154 # tools/libraries says which system and where

systems_own_will_do() {
    [[ $system == linux ]]
}

build_it() {
    local unwanted=(REGEX ZLIB EXPAT LIBJPEG LIBPNG LIBTIFF ARTPROVIDER_TANGO SVG OPENGL SOCKETS WEBREQUEST URL PROTOCOL XML
        XRC HTML WXHTML_HELP MS_HTML_HELP HELP WEBVIEW MEDIACTRL RICHTEXT STC RIBBON PROPGRID DEBUGREPORT CRASHREPORT SOUND
        JOYSTICK MDI MDI_ARCHITECTURE DOC_VIEW_ARCHITECTURE PRINTING_ARCHITECTURE POSTSCRIPT DIALUP_MANAGER FS_INET FS_ZIP
        FS_ARCHIVE ZIPSTREAM TARSTREAM ARCHIVE_STREAMS SECRETSTORE STARTUP_TIPS WIZARDDLG SPELLCHECK GRAPHICS_DIRECT2D
        INICONF)
    # Precompiled headers halve a first build, but no later one would find anything in the compiler's cache.
    local options=(-DCMAKE_BUILD_TYPE=Release "-DCMAKE_TOOLCHAIN_FILE=$root/cmake/mingw-w64.cmake"
        "-DCMAKE_INSTALL_PREFIX=$result" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache
        -DwxBUILD_PRECOMP=OFF -DwxBUILD_SHARED=OFF -DwxBUILD_CXX_STANDARD=17 -DwxBUILD_DEBUG_LEVEL=0 -DwxBUILD_LOCALES=OFF
        -DwxBUILD_COMPATIBILITY=3.1 -DwxUSE_UNSAFE_WXSTRING_CONV=OFF -DwxUSE_NANOSVG=builtin -DwxUSE_AUI=ON
        -DwxUSE_ACCESSIBILITY=ON -DwxUSE_UIACTIONSIMULATOR=OFF
        "-DCMAKE_CXX_FLAGS=-fstack-protector-strong -ffunction-sections -fdata-sections")
    local part
    for part in "${unwanted[@]}"; do
        options+=("-DwxUSE_$part=OFF")
    done
    fetch wxwidgets3.2 wx 3.2.5
    quietly cmake -S wx -B made -G Ninja "${options[@]}"
    quietly nice -n 15 ninja -C made
    quietly cmake --install made
}
