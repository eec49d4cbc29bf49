#include "transfer/job/answer_book.h"

#include <algorithm>

namespace vantlow {

void AnswerBook::clear() {
    origins_.clear();
    same_as_.assign(1, earlier);
}

int AnswerBook::open() {
    const int answer = static_cast<int>(same_as_.size());
    same_as_.push_back(answer);
    return answer;
}

int AnswerBook::first_of(int answer) const {
    if (answer < 0) return earlier;  // bytes that nobody wrote down are an earlier run's
    while (same_as_[static_cast<std::size_t>(answer)] != answer)
        answer = same_as_[static_cast<std::size_t>(answer)];
    return answer;
}

void AnswerBook::unite(int one, int other) {
    one = first_of(one);
    other = first_of(other);
    same_as_[static_cast<std::size_t>(std::max(one, other))] = std::min(one, other);
}

void AnswerBook::agreed(int answer, std::int64_t begin, std::int64_t end) {
    for (const int other : origins_.of(begin, end)) unite(answer, other);
}

std::vector<int> AnswerBook::versions_in(std::int64_t begin, std::int64_t end) const {
    std::vector<int> versions;
    for (const int answer : origins_.of(begin, end)) versions.push_back(first_of(answer));
    std::sort(versions.begin(), versions.end());
    versions.erase(std::unique(versions.begin(), versions.end()), versions.end());
    return versions;
}

std::vector<Origins::Range> AnswerBook::ranges_of(int version) const {
    std::vector<Origins::Range> ranges;
    for (const auto& range : origins_.all()) {
        if (first_of(range.mirror) == version) ranges.push_back({range.begin, range.end});
    }
    return ranges;
}

std::vector<std::int64_t> AnswerBook::joints(std::int64_t size) const {
    std::vector<std::int64_t> joints;
    std::int64_t end = 0;
    int version = earlier;
    const auto step = [&](std::int64_t begin, int next) {
        if (begin > 0 && next != version) joints.push_back(begin);
        version = next;
    };
    for (const auto& range : origins_.all()) {
        if (range.begin > end) step(end, earlier);
        step(range.begin, first_of(range.mirror));
        end = range.end;
    }
    if (end < size) step(end, earlier);
    return joints;
}

}  // namespace vantlow
