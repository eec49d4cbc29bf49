# What others made: each a target that only the folders which may use it are linked to.

# Static archives by their full path: where both kinds are installed -lNAME would take the shared one.
find_library(VANTLOW_GCRYPT_LIBRARY NAMES libgcrypt.a REQUIRED)
find_library(VANTLOW_GPG_ERROR_LIBRARY NAMES libgpg-error.a REQUIRED)
find_path(VANTLOW_GCRYPT_INCLUDE gcrypt.h REQUIRED)
add_library(vantlow_gcrypt INTERFACE)
add_library(vantlow::gcrypt ALIAS vantlow_gcrypt)
target_link_libraries(vantlow_gcrypt INTERFACE "${VANTLOW_GCRYPT_LIBRARY}" "${VANTLOW_GPG_ERROR_LIBRARY}")
if(WIN32)
    target_link_libraries(vantlow_gcrypt INTERFACE ws2_32)
endif()

# Linux's archives are not made for shared libraries: those take the shared one there.
if(WIN32)
    add_library(vantlow::gcrypt_for_libraries ALIAS vantlow_gcrypt)
else()
    find_library(VANTLOW_SHARED_GCRYPT_LIBRARY NAMES libgcrypt.so REQUIRED)
    add_library(vantlow_shared_gcrypt INTERFACE)
    add_library(vantlow::gcrypt_for_libraries ALIAS vantlow_shared_gcrypt)
    target_link_libraries(vantlow_shared_gcrypt INTERFACE "${VANTLOW_SHARED_GCRYPT_LIBRARY}")
endif()

# Every Debian system has the shared zlib, no Windows system has one.
if(WIN32)
    find_library(VANTLOW_Z_LIBRARY NAMES libz.a REQUIRED)
else()
    find_library(VANTLOW_Z_LIBRARY NAMES z REQUIRED)
endif()
add_library(vantlow_zlib INTERFACE)
add_library(vantlow::zlib ALIAS vantlow_zlib)
target_link_libraries(vantlow_zlib INTERFACE "${VANTLOW_Z_LIBRARY}")

# TLS: OpenSSL, or what Windows itself has. By its full path: one of our own libraries is called libssl, too.
add_library(vantlow_tls INTERFACE)
add_library(vantlow::tls ALIAS vantlow_tls)
if(WIN32)
    target_link_libraries(vantlow_tls INTERFACE secur32 crypt32)
else()
    find_library(VANTLOW_OPENSSL_LIBRARY NAMES ssl REQUIRED)
    find_library(VANTLOW_OPENSSL_CRYPTO_LIBRARY NAMES crypto REQUIRED)
    target_link_libraries(vantlow_tls INTERFACE "${VANTLOW_OPENSSL_LIBRARY}" "${VANTLOW_OPENSSL_CRYPTO_LIBRARY}")
endif()

# SSH: what tools/ssh2 built, or else what the system has, which no Windows system and no package for there does.
if(WIN32)
    set(built "${CMAKE_SOURCE_DIR}/build/windows-ssh2")
else()
    set(built "${CMAKE_SOURCE_DIR}/build/linux-ssh2")
endif()
find_library(VANTLOW_LIBSSH2_LIBRARY NAMES libssh2.a PATHS "${built}/lib" NO_CACHE NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_path(VANTLOW_LIBSSH2_INCLUDE libssh2.h PATHS "${built}/include" NO_CACHE NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT WIN32)
    find_library(VANTLOW_LIBSSH2_LIBRARY NAMES ssh2 NO_CACHE REQUIRED)
    find_path(VANTLOW_LIBSSH2_INCLUDE libssh2.h NO_CACHE REQUIRED)
endif()
if(VANTLOW_LIBSSH2_LIBRARY AND VANTLOW_LIBSSH2_INCLUDE)
    add_library(vantlow_ssh2 INTERFACE)
    add_library(vantlow::ssh2 ALIAS vantlow_ssh2)
    target_include_directories(vantlow_ssh2 SYSTEM INTERFACE "${VANTLOW_LIBSSH2_INCLUDE}")
    target_link_libraries(vantlow_ssh2 INTERFACE "${VANTLOW_LIBSSH2_LIBRARY}")
    # From 1.11 on it signs with RSA keys as servers want it: the tests ask for no more than there is.
    file(STRINGS "${VANTLOW_LIBSSH2_INCLUDE}/libssh2.h" VANTLOW_SSH_SIGNS_RSA
        REGEX "LIBSSH2_VERSION_NUM +0x(010[b-f]|01[1-9a-f]|0[2-9])")
    if(WIN32)
        target_link_libraries(vantlow_ssh2 INTERFACE ws2_32 bcrypt crypt32)
    elseif(VANTLOW_LIBSSH2_LIBRARY MATCHES "\\.a$")
        target_link_libraries(vantlow_ssh2 INTERFACE "${VANTLOW_OPENSSL_CRYPTO_LIBRARY}")
    endif()
endif()

# The operating system's own libraries.
add_library(vantlow_system INTERFACE)
add_library(vantlow::system ALIAS vantlow_system)
if(WIN32)
    target_link_libraries(vantlow_system INTERFACE ws2_32 version bcrypt shell32 ole32 advapi32 crypt32 wininet)
else()
    target_link_libraries(vantlow_system INTERFACE ${CMAKE_DL_LIBS})
endif()

# CLI11 and nlohmann-json are headers only. They are reached through links to just these two folders: the folder that
# they are installed in holds the headers of another system when cross-compiling.
set(headers "${CMAKE_BINARY_DIR}/third_party")
file(MAKE_DIRECTORY "${headers}")
foreach(header IN ITEMS CLI/CLI.hpp nlohmann/json.hpp)
    get_filename_component(folder "${header}" DIRECTORY)
    find_path(VANTLOW_${folder}_INCLUDE "${header}" PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    file(CREATE_LINK "${VANTLOW_${folder}_INCLUDE}/${folder}" "${headers}/${folder}" SYMBOLIC)
endforeach()
add_library(vantlow_headers INTERFACE)
add_library(vantlow::headers ALIAS vantlow_headers)
target_include_directories(vantlow_headers SYSTEM INTERFACE "${headers}")
