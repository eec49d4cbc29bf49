// The chunked transfer coding (RFC 9112, 7.1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vantlow {

/// The outcome of one call of the decoder.
struct ChunkStep {
    enum class State {
        more,  ///< all of the input was taken, or the room is full
        end,   ///< the last chunk and its trailer were read
        bad,   ///< no chunk size, or one that is too large
    };
    State state = State::more;
    std::size_t taken = 0;
    std::size_t given = 0;
};

/// Undoes the coding over any division of the bytes. Sizes up to 16 hexadecimal digits and 2^63 - 1; chunk
/// extensions and trailer fields are skipped, up to 64 KiB of each.
class ChunkedDecoder {
  public:
    /// Decodes from `in` into `out`. With state `end` what is left of `in` belongs to the next answer.
    ChunkStep decode(std::span<const std::byte> in, std::span<std::byte> out);
    /// How many bytes of the present chunk are still to come; 0 between two chunks.
    [[nodiscard]] std::int64_t data_left() const noexcept { return state_ == State::data ? size_ : 0; }
    /// The last chunk was read; its trailer may be missing, which holds nothing of the body.
    [[nodiscard]] bool has_all() const noexcept {
        return state_ >= State::trailer_start && state_ <= State::done;
    }
    [[nodiscard]] bool is_done() const noexcept { return state_ == State::done; }

  private:
    enum class State {
        size,
        extension,
        size_lf,
        data,
        data_cr,
        data_lf,
        trailer_start,
        trailer,
        trailer_lf,
        done,
        bad
    };
    void step(char c);
    void size_digit(char c);

    State state_ = State::size;
    std::int64_t size_ = 0;
    int digits_ = 0;
    std::size_t skipped_ = 0;  ///< bytes of this chunk's extensions and of the trailer
};

}  // namespace vantlow
