// Which mirror delivered which bytes of a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace vantlow {

/// Ranges of a file and the mirror that each came from. What came later replaces what came before. Plain
/// bookkeeping: whoever owns it guards it.
class Origins {
  public:
    /// Stands for bytes of which nothing is known, as those of an earlier run.
    static constexpr int unknown = -1;
    struct Range {
        std::int64_t begin = 0;
        std::int64_t end = 0;
    };

    void add(std::int64_t begin, std::int64_t end, int mirror);
    void forget(std::int64_t begin, std::int64_t end);
    void clear() noexcept { ranges_.clear(); }

    /// The mirrors that the bytes came from, ascending, each once; `unknown` first where some are not known.
    [[nodiscard]] std::vector<int> of(std::int64_t begin, std::int64_t end) const;
    /// A range with whom it came from.
    struct Owned {
        std::int64_t begin = 0;
        std::int64_t end = 0;
        int mirror = unknown;
    };
    /// Everything that is known, in the order of the file.
    [[nodiscard]] std::vector<Owned> all() const;
    /// The ranges that one mirror delivered, in the order of the file.
    [[nodiscard]] std::vector<Range> from(int mirror) const;
    /// The same, of a file of that size: of `unknown` what no one is known to have delivered.
    [[nodiscard]] std::vector<Range> from(int mirror, std::int64_t size) const;

  private:
    struct Piece {
        std::int64_t end = 0;
        int mirror = unknown;
    };
    void cut(std::int64_t at);

    std::map<std::int64_t, Piece> ranges_;  ///< by their beginnings; they do not overlap
};

}  // namespace vantlow
