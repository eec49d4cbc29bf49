// Message digests.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vantlow {

enum class DigestKind { md4, md5, sha1, sha256, sha384, sha512 };

/// The kind that a name means ("md4", "md5", "sha1", "sha256", "sha384", "sha512", any letter case, a hyphen
/// behind "sha" allowed).
std::optional<DigestKind> digest_kind(std::string_view name) noexcept;

/// Bytes of a digest: 16 to 64.
std::size_t digest_size(DigestKind kind) noexcept;

/// A running digest (FIPS 180-4, RFC 1320, RFC 1321). One thread at a time.
class Digest {
  public:
    explicit Digest(DigestKind kind);
    ~Digest();
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;

    void update(std::span<const std::byte> bytes) noexcept;
    /// The digest of everything given so far; nothing may be added afterwards.
    [[nodiscard]] std::vector<std::byte> finish();

  private:
    DigestKind kind_;
    void* handle_;
};

}  // namespace vantlow
