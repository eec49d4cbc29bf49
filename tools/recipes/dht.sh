# The distributed hash table of BitTorrent: dht.c, which Debian has inside the sources of another package alone. It owns
# no socket and has no dependency.
# shellcheck shell=bash
# shellcheck disable=SC2154 # tools/libraries says which system and where

# The first sources with dht.c 0.27.
enough=4.1~

systems_own_will_do() {
    false
}

build_it() {
    local compiler=gcc archiver=ar chance=random folder=bundle/third-party/dht version
    [[ $system == linux ]] || {
        compiler=$cross-gcc-posix
        archiver=$cross-ar
        chance=rand
    }
    fetch transmission bundle "$enough"
    # Nothing else of these sources is built in: what is passed on is dht.c and its licence.
    rm "$result/sources/transmission.copyright" "$result/sources/versions"
    version=$(sed -n '/: dht-/{s/.*: dht-//p;q}' "$folder/CHANGES")
    made_of dht "${version:?}" "$folder/LICENCE"
    # What others must not guess comes from the library around it instead of the system's series that always begins alike.
    quietly ccache "$compiler" -O2 -fPIC -fvisibility=hidden -fstack-protector-strong -D_FORTIFY_SOURCE=2 \
        "-D$chance=vantlow_dht_chance" -c "$folder/dht.c" -o dht.o
    quietly "$archiver" cr libdht.a dht.o
    give_headers "$folder/dht.h"
    cp libdht.a "$result/lib/"
}
