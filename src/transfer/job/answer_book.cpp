#include "transfer/job/answer_book.h"

#include <algorithm>
#include <map>
#include <numeric>

namespace vantlow {

void AnswerBook::clear() {
    origins_.clear();
    same_as_.assign(1, earlier);
    surely_ = same_as_;
}

int AnswerBook::open() {
    const int answer = static_cast<int>(same_as_.size());
    same_as_.push_back(answer);
    surely_.push_back(answer);
    return answer;
}

int AnswerBook::first_in(const Links& links, int answer) {
    if (answer < 0) return earlier;  // bytes that nobody wrote down are an earlier run's
    while (links[static_cast<std::size_t>(answer)] != answer)
        answer = links[static_cast<std::size_t>(answer)];
    return answer;
}

int AnswerBook::first_of(int answer) const {
    return first_in(same_as_, answer);
}

void AnswerBook::unite(int one, int other, bool is_sure) {
    const auto link = [one, other](Links& links) {
        const auto [first, second] = std::minmax({first_in(links, one), first_in(links, other)});
        links[static_cast<std::size_t>(second)] = first;
    };
    link(same_as_);
    if (is_sure) link(surely_);
}

void AnswerBook::part_all() {
    std::iota(same_as_.begin(), same_as_.end(), 0);
    surely_ = same_as_;
}

void AnswerBook::agreed(int answer, std::int64_t begin, std::int64_t end, bool is_plain) {
    for (const int other : origins_.of(begin, end)) unite(answer, other, !is_plain);
}

std::vector<std::vector<Origins::Range>> AnswerBook::unsure_parts(std::int64_t size) const {
    std::map<int, std::vector<Origins::Range>> parts;
    for (const auto& range : origins_.all())
        parts[first_in(surely_, range.mirror)].push_back({range.begin, range.end});
    for (const auto& range : origins_.from(Origins::unknown, size)) parts[earlier].push_back(range);
    std::vector<std::vector<Origins::Range>> found;
    if (parts.size() < 2) return found;
    for (auto& [version, ranges] : parts) found.push_back(std::move(ranges));
    return found;
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
