#include "base/digest.h"

#include <gcrypt.h>

#include <array>
#include <mutex>

#include "base/text.h"

namespace vantlow {
namespace {

// The library wants one thread to prepare it before any other operation.
void prepare_library() {
    static std::once_flag once;
    std::call_once(once, [] {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);  // digests hold no secrets
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    });
}

struct Kind {
    DigestKind kind;
    int algorithm;
    std::size_t size;
    std::string_view name;
    std::string_view other_name;
};
constexpr std::array kinds{
    Kind{DigestKind::md4, GCRY_MD_MD4, 16, "md4", "md4"},
    Kind{DigestKind::md5, GCRY_MD_MD5, 16, "md5", "md5"},
    Kind{DigestKind::sha1, GCRY_MD_SHA1, 20, "sha1", "sha-1"},
    Kind{DigestKind::sha256, GCRY_MD_SHA256, 32, "sha256", "sha-256"},
    Kind{DigestKind::sha384, GCRY_MD_SHA384, 48, "sha384", "sha-384"},
    Kind{DigestKind::sha512, GCRY_MD_SHA512, 64, "sha512", "sha-512"},
};

const Kind& row_of(DigestKind kind) noexcept {
    const auto index = static_cast<std::size_t>(kind);
    return kinds[index < kinds.size() ? index : 0];
}

}  // namespace

std::optional<DigestKind> digest_kind(std::string_view name) noexcept {
    for (const Kind& row : kinds) {
        if (iequals(name, row.name) || iequals(name, row.other_name)) return row.kind;
    }
    return std::nullopt;
}

std::size_t digest_size(DigestKind kind) noexcept {
    return row_of(kind).size;
}

Digest::Digest(DigestKind kind) : kind_(kind), handle_(nullptr) {
    prepare_library();
    gcry_md_hd_t handle = nullptr;
    if (gcry_md_open(&handle, row_of(kind).algorithm, 0) == 0) handle_ = handle;
}

Digest::~Digest() {
    gcry_md_close(static_cast<gcry_md_hd_t>(handle_));
}

void Digest::update(std::span<const std::byte> bytes) noexcept {
    if (handle_ != nullptr) gcry_md_write(static_cast<gcry_md_hd_t>(handle_), bytes.data(), bytes.size());
}

std::vector<std::byte> Digest::finish() {
    // Without a handle (the library refused the algorithm) there is no digest: an empty one matches nothing.
    if (handle_ == nullptr) return {};
    const auto* digest = reinterpret_cast<const std::byte*>(
        gcry_md_read(static_cast<gcry_md_hd_t>(handle_), row_of(kind_).algorithm));
    return {digest, digest + digest_size(kind_)};
}

}  // namespace vantlow
