// The book of pieces with hashes: which are right, and whose copies of them were wrong.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace vantlow {

/// Plain bookkeeping: guarded by the job's lock. Empty where a job has no piece hashes, or its size is not
/// known.
class PieceBook {
  public:
    enum class State : std::uint8_t { missing, waits, good };
    /// Who gave wrong copies of a piece, or parts of them.
    struct Suspicion {
        std::vector<int> mirrors;
        std::size_t copies = 0;
    };

    /// Pieces of `length` bytes, of which the last may be shorter.
    void begin(std::int64_t length, std::int64_t size) {
        *this = {};
        length_ = length;
        size_ = size;
        states_.assign(static_cast<std::size_t>((size + length - 1) / length), State::missing);
    }
    void clear() { *this = {}; }
    [[nodiscard]] bool is_empty() const noexcept { return states_.empty(); }
    [[nodiscard]] std::size_t count() const noexcept { return states_.size(); }
    [[nodiscard]] bool are_all_good() const noexcept { return good_ == states_.size(); }
    [[nodiscard]] State at(std::size_t piece) const { return states_[piece]; }
    void set(std::size_t piece, State state) {
        if (states_[piece] == State::good) --good_;
        if (state == State::good) ++good_;
        states_[piece] = state;
    }

    [[nodiscard]] std::int64_t begin_of(std::size_t piece) const noexcept {
        return static_cast<std::int64_t>(piece) * length_;
    }
    [[nodiscard]] std::int64_t end_of(std::size_t piece) const noexcept {
        return std::min(begin_of(piece) + length_, size_);
    }
    [[nodiscard]] std::size_t piece_at(std::int64_t offset) const noexcept {
        return static_cast<std::size_t>(offset / length_);
    }

    [[nodiscard]] Suspicion& suspicion_of(std::size_t piece) { return suspects_[piece]; }
    /// Null where nobody gave a wrong copy of the piece at the offset.
    [[nodiscard]] const Suspicion* find_suspicion(std::int64_t offset) const {
        if (suspects_.empty()) return nullptr;
        const auto found = suspects_.find(piece_at(offset));
        return found == suspects_.end() ? nullptr : &found->second;
    }
    void clear_suspicion(std::size_t piece) { suspects_.erase(piece); }

  private:
    std::int64_t length_ = 0;
    std::int64_t size_ = 0;
    std::size_t good_ = 0;
    std::vector<State> states_;
    std::map<std::size_t, Suspicion> suspects_;
};

}  // namespace vantlow
