// Diffie-Hellman over a group that the caller names.
#include <gcrypt.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>

#include "runtime/login/primitives.h"
#include "runtime/operations.h"

struct VantlowDh {
    gcry_mpi_t prime = nullptr;
    gcry_mpi_t exponent = nullptr;
    gcry_mpi_t public_key = nullptr;
    gcry_mpi_t secret = nullptr;  // null until a peer's key was taken
    std::size_t size = 0;         // bytes of the prime, and of all keys
};

namespace {

// Bytes of the random private exponent: twice the strength of a group of 768 bits, with room to spare.
constexpr std::size_t exponent_size = 32;
constexpr std::size_t largest_prime = 1024;

gcry_mpi_t read_number(const void* bytes, std::size_t size) noexcept {
    gcry_mpi_t number = nullptr;
    return gcry_mpi_scan(&number, GCRYMPI_FMT_USG, bytes, size, nullptr) == 0 ? number : nullptr;
}

// Writes the number in exactly `size` bytes, big-endian, with zeroes in front; 0 when it needs more.
int write_number(gcry_mpi_t number, void* buffer, std::size_t size) noexcept {
    const std::size_t needed = (gcry_mpi_get_nbits(number) + 7) / 8;
    if (needed > size) return 0;
    auto* const bytes = static_cast<unsigned char*>(buffer);
    std::fill_n(bytes, size - needed, static_cast<unsigned char>(0));
    std::size_t written = 0;
    if (needed > 0 &&
        gcry_mpi_print(GCRYMPI_FMT_USG, bytes + (size - needed), needed, &written, number) != 0) {
        return 0;
    }
    return static_cast<int>(size);
}

bool make_keys(VantlowDh& dh, const void* generator, std::size_t generator_size) noexcept {
    gcry_mpi_t base = read_number(generator, generator_size);
    if (base == nullptr) return false;
    std::array<std::uint8_t, exponent_size> random{};
    if (vantlow::login::fill_random(random)) dh.exponent = read_number(random.data(), random.size());
    vantlow::login::wipe(random);
    dh.public_key = gcry_mpi_new(0);
    if (dh.exponent != nullptr) gcry_mpi_powm(dh.public_key, base, dh.exponent, dh.prime);
    gcry_mpi_release(base);
    return dh.exponent != nullptr;
}

// False for keys that give away the secret whatever the exponent is: 0, 1, the prime less one, and any that
// is no residue.
bool is_usable(const VantlowDh& dh, gcry_mpi_t key) noexcept {
    gcry_mpi_t largest = gcry_mpi_new(0);
    gcry_mpi_sub_ui(largest, dh.prime, 1);
    const bool usable = gcry_mpi_cmp_ui(key, 1) > 0 && gcry_mpi_cmp(key, largest) < 0;
    gcry_mpi_release(largest);
    return usable;
}

}  // namespace

extern "C" {

VANTLOW_EXPORT DH_Create_t DH_Create;
VANTLOW_EXPORT DH_Delete_t DH_Delete;
VANTLOW_EXPORT DH_GetPublicKey_t DH_GetPublicKey;
VANTLOW_EXPORT DH_ComputeSecret_t DH_ComputeSecret;
VANTLOW_EXPORT DH_GetSecret_t DH_GetSecret;

VantlowDh* DH_Create(const void* prime, std::size_t prime_size, const void* generator,
                     std::size_t generator_size) {
    if (prime == nullptr || generator == nullptr || prime_size == 0 || prime_size > largest_prime ||
        generator_size == 0 || generator_size > prime_size || !vantlow::login::start_gcrypt()) {
        return nullptr;
    }
    auto* const dh = new (std::nothrow) VantlowDh;
    if (dh == nullptr) return nullptr;
    dh->size = prime_size;
    dh->prime = read_number(prime, prime_size);
    if (dh->prime != nullptr && gcry_mpi_cmp_ui(dh->prime, 3) > 0 &&
        make_keys(*dh, generator, generator_size)) {
        return dh;
    }
    DH_Delete(dh);
    return nullptr;
}

void DH_Delete(VantlowDh* dh) {
    if (dh == nullptr) return;
    gcry_mpi_release(dh->prime);
    gcry_mpi_release(dh->exponent);
    gcry_mpi_release(dh->public_key);
    gcry_mpi_release(dh->secret);
    delete dh;
}

int DH_GetPublicKey(VantlowDh* dh, void* buffer, std::size_t size) {
    if (dh == nullptr || buffer == nullptr || size != dh->size) return 0;
    return write_number(dh->public_key, buffer, size);
}

int DH_ComputeSecret(VantlowDh* dh, const void* key, std::size_t size) {
    if (dh == nullptr || key == nullptr || size != dh->size) return 0;
    gcry_mpi_t peer = read_number(key, size);
    if (peer == nullptr) return 0;
    const bool usable = is_usable(*dh, peer);
    if (usable) {
        if (dh->secret == nullptr) dh->secret = gcry_mpi_new(0);
        gcry_mpi_powm(dh->secret, peer, dh->exponent, dh->prime);
    }
    gcry_mpi_release(peer);
    return usable ? static_cast<int>(size) : 0;
}

int DH_GetSecret(VantlowDh* dh, void* buffer, std::size_t size) {
    if (dh == nullptr || buffer == nullptr || dh->secret == nullptr || size != dh->size) return 0;
    return write_number(dh->secret, buffer, size);
}

}  // extern "C"
