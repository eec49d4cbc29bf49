#include "base/digest.h"

#include <gcrypt.h>

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

int algorithm(DigestKind kind) noexcept {
    switch (kind) {
        case DigestKind::md5:
            return GCRY_MD_MD5;
        case DigestKind::sha1:
            return GCRY_MD_SHA1;
        case DigestKind::sha256:
            return GCRY_MD_SHA256;
    }
    return GCRY_MD_NONE;
}

}  // namespace

std::optional<DigestKind> digest_kind(std::string_view name) noexcept {
    if (iequals(name, "md5")) return DigestKind::md5;
    if (iequals(name, "sha1") || iequals(name, "sha-1")) return DigestKind::sha1;
    if (iequals(name, "sha256") || iequals(name, "sha-256")) return DigestKind::sha256;
    return std::nullopt;
}

std::size_t digest_size(DigestKind kind) noexcept {
    switch (kind) {
        case DigestKind::md5:
            return 16;
        case DigestKind::sha1:
            return 20;
        case DigestKind::sha256:
            return 32;
    }
    return 0;
}

Digest::Digest(DigestKind kind) : kind_(kind), handle_(nullptr) {
    prepare_library();
    gcry_md_hd_t handle = nullptr;
    if (gcry_md_open(&handle, algorithm(kind), 0) == 0) handle_ = handle;
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
        gcry_md_read(static_cast<gcry_md_hd_t>(handle_), algorithm(kind_)));
    return {digest, digest + digest_size(kind_)};
}

}  // namespace vantlow
