// The addresses of a job's bytes and the hashes that they must have, for a link that gave more than one
// address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/digest.h"

namespace vantlow {

/// The digest that the finished file must have.
struct ExpectedHash {
    DigestKind kind = DigestKind::sha256;
    std::vector<std::byte> digest;
};

/// The hashes of a file's pieces: equally long but for the last one, in the order of the file.
struct PieceHashes {
    DigestKind kind = DigestKind::sha1;
    std::int64_t length = 0;        ///< bytes of a piece; positive
    std::vector<std::byte> hashes;  ///< one behind the other, each digest_size(kind) bytes

    [[nodiscard]] std::size_t count() const noexcept { return hashes.size() / digest_size(kind); }
    [[nodiscard]] std::span<const std::byte> hash(std::size_t piece) const noexcept {
        const std::size_t size = digest_size(kind);
        return std::span(hashes).subspan(piece * size, size);
    }
};

/// A plain record. It is shared by the copies of a job and not changed once a job has it.
struct JobSources {
    std::vector<std::u16string> mirrors;  ///< addresses of the same file, the best first, the job's own too
    std::int64_t size = -1;               ///< bytes that the file must have; -1: unsaid
    std::optional<ExpectedHash> whole;
    std::optional<PieceHashes> pieces;
};

}  // namespace vantlow
