# uTP, streams over datagrams: libutp, which Debian has inside the sources of another package alone. It owns no socket and
# has no dependency.
# shellcheck shell=bash
# shellcheck disable=SC2154 # tools/libraries says which system and where

# The first sources whose libutp takes several contexts and keeps its sockets in a map.
enough=4.1~

systems_own_will_do() {
    false
}

# change FILE OLD NEW: replaces what the expression finds, which has to be there.
change() {
    grep -q -- "$2" "$1" || {
        echo "$1 has no \"$2\" any more: the recipe has to be looked at" >&2
        return 1
    }
    sed -i "s/$2/$3/" "$1"
}

build_it() {
    local compiler=g++ archiver=ar folder=bundle/third-party/libutp flags=(-DPOSIX) name objects=()
    [[ $system == linux ]] || {
        compiler=$cross-g++-posix
        archiver=$cross-ar
        flags=(-DWIN32 -D_WIN32_WINNT=0x0601)
    }
    fetch transmission bundle "$enough"
    # Nothing else of these sources is built in: what is passed on is libutp and its licence.
    rm "$result/sources/transmission.copyright" "$result/sources/versions"
    made_of libutp "$(sed -n 's/^project(libutp VERSION \([0-9.]*\).*/\1/p' "$folder/CMakeLists.txt")" "$folder/LICENSE"
    # Contexts of several threads must not share this.
    change "$folder/utp_internal.cpp" 'static utp_iovec iovec\[UTP_IOV_MAX\]' 'utp_iovec iovec[UTP_IOV_MAX]'
    # Packets that came too early, of which each connection keeps so many: as many as its window has.
    change "$folder/utp_internal.cpp" 'if (seqnr > 0x3ff)' 'if (seqnr > 0xff)'
    # Its assertions are about what peers send, who must not end the program.
    for name in api callbacks hash internal packedsockaddr utils; do
        quietly ccache "$compiler" -std=c++17 -O2 -fPIC -fvisibility=hidden -fstack-protector-strong -D_FORTIFY_SOURCE=2 \
            -DNDEBUG "${flags[@]}" "-I$folder/include/libutp" -c "$folder/utp_$name.cpp" -o "$name.o"
        objects+=("$name.o")
    done
    quietly "$archiver" cr libutp.a "${objects[@]}"
    give_headers "$folder/include/libutp/utp.h" "$folder/include/libutp/utp_types.h"
    cp libutp.a "$result/lib/"
}
