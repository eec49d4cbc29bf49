# Host names for Windows: libidn2 (with the part of libunistring that its sources bring along), and libpsl with the list
# of public suffixes of this system's package built in. Linux takes the system's own. Windows' IdnToAscii would do for
# the names only by the rules of 2003, which lead to other hosts ("ß" is "ss" there).
# shellcheck shell=bash
# shellcheck disable=SC2154 # tools/libraries says which system and where

systems_own_will_do() {
    [[ $system == linux ]]
}

build_idn2() {
    (cd "$1" &&
        quietly ./configure --quiet --host="$cross" "CC=ccache $cross-gcc-posix" --disable-shared --enable-static \
            --disable-doc --disable-nls --without-libunistring-prefix --without-libiconv-prefix am_cv_func_iconv=no \
            "CFLAGS=-O2 -fstack-protector-strong -D_FORTIFY_SOURCE=2" &&
        quietly nice make -s -j "$(nproc)" -C gl &&
        quietly nice make -s -j "$(nproc)" -C unistring &&
        quietly nice make -s -j "$(nproc)" -C lib)
}

# Its own build wants tools of a checkout; these two files are all of it. Nothing makes names ASCII in it: they come so.
build_psl() (
    cd "$1" || return
    compile=("$cross-gcc-posix" -O2 -fstack-protector-strong -D_FORTIFY_SOURCE=2 -DENABLE_BUILTIN -DPSL_STATIC -I.
        -Iinclude "-DPACKAGE_VERSION=\"$(dpkg-parsechangelog -S Version)\"" -c)
    quietly python3 src/psl-make-dafsa --output-format=cxx+ /usr/share/publicsuffix/public_suffix_list.dat \
        suffixes_dafsa.h
    sed 's/@LIBPSL_VERSION[A-Z_]*@/0/' include/libpsl.h.in >include/libpsl.h
    quietly ccache "${compile[@]}" src/psl.c -o psl.o
    quietly ccache "${compile[@]}" src/lookup_string_in_fixed_set.c -o lookup.o
    quietly "$cross-ar" cr libpsl.a psl.o lookup.o
)

build_it() {
    fetch libidn2 libidn2
    build_idn2 libidn2
    fetch libpsl libpsl
    build_psl libpsl
    installed publicsuffix
    give_headers libidn2/lib/idn2.h libpsl/include/libpsl.h
    give_archive libidn2.a libidn2/lib/.libs/libidn2.a
    give_archive libpsl.a libpsl/libpsl.a
}
