// Which answer gave which bytes, and which answers are known to be of one version.
#pragma once

#include <cstdint>
#include <vector>

#include "transfer/job/origins.h"

namespace vantlow {

/// Answers that no validator holds together are held together by bytes that two of them gave and that agree.
/// Versions differ everywhere as far as anybody can tell, so that a chain of such comparisons makes one
/// version of all. Plain bookkeeping: whoever owns it guards it.
class AnswerBook {
  public:
    /// Stands for the bytes of an earlier run.
    static constexpr int earlier = 0;

    AnswerBook() { clear(); }
    /// Forgets everything: the file begins anew.
    void clear();
    /// A new answer, alone until something is known of it.
    int open();
    /// Both are of one version. `is_sure`: nothing that is there by chance makes them so.
    void unite(int one, int other, bool is_sure = true);
    /// Answers that only plain bytes united count as united no more.
    void part_unsure() { same_as_ = surely_; }
    /// None is known to be of one version with another: what united them was wrong somewhere.
    void part_all();
    /// The first of the answers that are of one version with it.
    [[nodiscard]] int first_of(int answer) const;
    [[nodiscard]] int count() const noexcept { return static_cast<int>(same_as_.size()) - 1; }

    void wrote(std::int64_t begin, std::int64_t end, int answer) { origins_.add(begin, end, answer); }
    void forget(std::int64_t begin, std::int64_t end) { origins_.forget(begin, end); }
    /// The answer's bytes agree with what is there; `is_plain`: in one byte again and again, which two
    /// versions may well share.
    void agreed(int answer, std::int64_t begin, std::int64_t end, bool is_plain);
    /// The versions, each by its first answer, whose bytes are in a range, ascending.
    [[nodiscard]] std::vector<int> versions_in(std::int64_t begin, std::int64_t end) const;
    /// The ranges that are there of one version, in the order of the file.
    [[nodiscard]] std::vector<Origins::Range> ranges_of(int version) const;
    /// The ranges that are there, those that surely are of one version together, the earliest version first.
    /// None where all of them surely are of one.
    [[nodiscard]] std::vector<std::vector<Origins::Range>> unsure_parts(std::int64_t size) const;
    /// Where bytes of different versions, as far as anybody knows, touch.
    [[nodiscard]] std::vector<std::int64_t> joints(std::int64_t size) const;

  private:
    using Links = std::vector<int>;  ///< by answer: an earlier one of the same version, or itself
    static int first_in(const Links& links, int answer);

    Origins origins_;
    Links same_as_;
    Links surely_;  ///< the same, without what plain bytes united
};

}  // namespace vantlow
