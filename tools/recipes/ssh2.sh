# SSH: libssh2 over OpenSSL. Without it the Windows build has no SFTP, and the Linux one takes the system's, which may
# log in with no RSA key. OpenSSL brings along a server's side of TLS for Windows, too, which the control API needs:
# SChannel's takes keys from containers of the system only, so that one that stands in a file would have to be kept there as
# well, and Wine's has none, so that nothing of it could be tried.
# shellcheck shell=bash
# shellcheck disable=SC2154 # tools/libraries says which system and where

# The first release that signs with RSA keys as servers want it (SHA-2).
enough=1.11

systems_own_will_do() {
    local installed
    [[ $system == linux ]] && installed=$(dpkg-query -W -f='${Version}' libssh2-1-dev 2>/dev/null) &&
        dpkg --compare-versions "$installed" ge "$enough"
}

# OpenSSL for Windows: its cryptography, of which SSH needs little, and TLS 1.2 and 1.3. It must look for no openssl.cnf: its
# folder would be one that any user of the machine can make. Nor may it ask to be called when the process ends: the library
# that it is in is unloaded before.
build_openssl() {
    local unwanted=(shared apps tests docs module engine dso autoload-config legacy ssl3 tls1 tls1_1 dtls quic cms cmp ct ts srp
        psk comp sock ec2m gost sm2 sm3 sm4 aria camellia seed idea bf cast rc2 rc4 md4 mdc2 rmd160 whirlpool siphash ml-dsa
        slh-dsa argon2 scrypt async capieng dsa atexit)
    (cd "$1" &&
        quietly ./Configure mingw64 "CC=ccache $cross-gcc-posix" "AR=$cross-ar" "RANLIB=$cross-ranlib" \
            "RC=$cross-windres" "${unwanted[@]/#/no-}" &&
        quietly nice make -s -j "$(nproc)" build_generated libcrypto.a libssl.a)
}

# A connection that is cut in the key exchange left the server's key behind: it was freed only once keys were in use.
free_host_key() {
    patch -s -p1 -d "$1" <<'PATCH' && return
--- a/src/session.c
+++ b/src/session.c
@@ -951,2 +951,6 @@
 
+    if(!(session->state & LIBSSH2_STATE_NEWKEYS) && session->hostkey &&
+       session->hostkey->dtor && session->server_hostkey_abstract) {
+        session->hostkey->dtor(session, &session->server_hostkey_abstract);
+    }
     if(session->state & LIBSSH2_STATE_NEWKEYS) {
PATCH
    echo "libssh2 is built without the correction of a leak, which does not fit it any more" >&2
}

build_it() {
    local options=(-DCMAKE_BUILD_TYPE=Release -DCRYPTO_BACKEND=OpenSSL -DBUILD_SHARED_LIBS=OFF
        -DBUILD_EXAMPLES=OFF -DBUILD_TESTING=OFF -DPICKY_COMPILER=OFF -DHIDE_SYMBOLS=ON -DENABLE_ZLIB_COMPRESSION=OFF
        -DCMAKE_C_FLAGS=-fstack-protector-strong -DCMAKE_C_FLAGS_RELEASE="-O2 -D_FORTIFY_SOURCE=2"
        -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_POSITION_INDEPENDENT_CODE=ON -DCMAKE_C_VISIBILITY_PRESET=hidden)
    fetch libssh2 libssh2 "$enough"
    free_host_key libssh2
    if [[ $system == windows ]]; then
        fetch openssl openssl
        build_openssl openssl
        options+=("-DCMAKE_TOOLCHAIN_FILE=$root/cmake/mingw-w64.cmake" "-DOPENSSL_INCLUDE_DIR=$PWD/openssl/include"
            "-DLIB_EAY=$PWD/openssl/libcrypto.a" "-DSSL_EAY=$PWD/openssl/libcrypto.a")
    fi
    quietly cmake -S libssh2 -B made -G Ninja "${options[@]}"
    quietly nice ninja -C made
    give_headers libssh2/include/*.h
    # OpenSSL goes into the same archive: nothing else is to be linked with this one. No program is linked with both.
    if [[ $system == windows ]]; then
        give_archive libssh2.a made/src/libssh2.a openssl/libcrypto.a
        give_archive libtls.a openssl/libssl.a openssl/libcrypto.a
        cp -r openssl/include/openssl "$result/include/"
        rm -f "$result"/include/openssl/*.in
    else
        give_archive libssh2.a made/src/libssh2.a
    fi
}
