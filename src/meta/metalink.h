// Metalink descriptions, version 3 and RFC 5854: files with their mirrors and hashes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/digest.h"

namespace vantlow {

/// The hash of a whole file.
struct MetalinkHash {
    DigestKind kind = DigestKind::sha256;
    std::vector<std::byte> digest;
};

/// One file of a Metalink.
struct CMetalinkNode {
    /// The numbers of the kinds that piece hashes may have.
    enum HashType : std::int32_t {
        no_hashes = -1,
        md4 = 1,
        md5 = 2,
        sha1 = 3,
        sha256 = 4,
        sha384 = 5,
        sha512 = 6
    };

    std::string name;               ///< UTF-8, entities decoded; may hold folders, not made safe
    std::vector<std::string> urls;  ///< in the order of preference; entities decoded
    std::int64_t size = -1;         ///< bytes; -1: unsaid
    std::int32_t hash_type = no_hashes;
    std::int32_t piece_length = 0;  ///< bytes, as the file says; 0: unsaid
    std::int32_t piece_count = 0;
    std::vector<std::byte> piece_hashes;  ///< in the order of the pieces, each of the type's size
    bool plain = false;                ///< the URLs are http, https, ftp or ftps; else one peer-to-peer link
    std::vector<MetalinkHash> hashes;  ///< of the whole file, as far as their kinds are known
};

/// The kind of a hash type; meaningless for no_hashes.
DigestKind digest_of(std::int32_t hash_type) noexcept;
/// "md4", "sha1", ...; empty for no_hashes.
std::string_view hash_type_name(std::int32_t hash_type) noexcept;

/// The files of one description.
class CMetalink {
  public:
    /// Reads what can be read: malformed parts yield fewer records, never a failure.
    explicit CMetalink(std::span<const std::byte> bytes);

    [[nodiscard]] const std::vector<CMetalinkNode>& files() const noexcept { return files_; }
    [[nodiscard]] std::vector<CMetalinkNode>& files() noexcept { return files_; }

  private:
    std::vector<CMetalinkNode> files_;
};

/// A path as a person gives it: the text behind ".metalink#" (or ".meta4#", letter case ignored) selects a
/// file.
struct MetalinkPath {
    std::u16string file;      ///< up to the extension
    std::u16string fragment;  ///< without the "#"; empty: all files
};
MetalinkPath split_metalink_path(std::u16string_view path);

}  // namespace vantlow
