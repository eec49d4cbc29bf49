# Orders to routers for Windows: miniupnpc (UPnP) and libnatpmp (NAT-PMP). Linux takes the system's own.
# shellcheck shell=bash
# shellcheck disable=SC2154 # tools/libraries says which system and where

systems_own_will_do() {
    [[ $system == linux ]]
}

compile=("$cross-gcc-posix" -O2 -fstack-protector-strong -D_FORTIFY_SOURCE=2 -D_WIN32_WINNT=0x0601 -c)

# Its own build makes tools and a library to load besides; these files are the library.
build_upnp() (
    cd "$1" || return
    local names=(miniupnpc upnpcommands upnperrors upnpdev upnpreplyparse miniwget miniwget_private minisoap minissdpc
        igd_desc_parse minixml connecthostport portlistingparse receivedata addr_is_reserved) name sources=.
    [[ ! -d src ]] || sources=src
    sed -e '/define OS_STRING/s/".*"/"Windows"/' -e "/define MINIUPNPC_VERSION_STRING/s/\".*\"/\"$(<VERSION)\"/" \
        miniupnpcstrings.h.in >miniupnpcstrings.h
    for name in "${names[@]}"; do
        [[ -e $sources/$name.c ]] || continue
        quietly ccache "${compile[@]}" -DMINIUPNP_STATICLIB -Iinclude -I. "$sources/$name.c" -o "$name.o"
    done
    quietly "$cross-ar" cr libminiupnpc.a ./*.o
)

build_natpmp() (
    cd "$1" || return
    local name
    for name in natpmp getgateway wingettimeofday; do
        quietly ccache "${compile[@]}" -DNATPMP_STATICLIB -DENABLE_STRNATPMPERR "$name.c" -o "$name.o"
    done
    quietly "$cross-ar" cr libnatpmp.a natpmp.o getgateway.o wingettimeofday.o
)

build_it() {
    fetch miniupnpc miniupnpc
    build_upnp miniupnpc
    mkdir -p "$result/include/miniupnpc"
    if [[ -d miniupnpc/include ]]; then
        cp miniupnpc/include/*.h "$result/include/miniupnpc/"
    else
        cp miniupnpc/*.h "$result/include/miniupnpc/"
    fi
    give_archive libminiupnpc.a miniupnpc/libminiupnpc.a
    # Routers that know it mostly know UPnP, too: what can be had without these sources is worth having.
    fetch libnatpmp libnatpmp || fetch_original libnatpmp libnatpmp || return 0
    build_natpmp libnatpmp
    give_headers libnatpmp/natpmp.h libnatpmp/natpmp_declspec.h
    give_archive libnatpmp.a libnatpmp/libnatpmp.a
}
