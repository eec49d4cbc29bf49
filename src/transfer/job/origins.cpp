#include "transfer/job/origins.h"

#include <algorithm>

namespace vantlow {

// Cuts the range that reaches across `at`.
void Origins::cut(std::int64_t at) {
    auto next = ranges_.upper_bound(at);
    if (next == ranges_.begin()) return;
    const auto range = std::prev(next);
    if (range->first == at || range->second.end <= at) return;
    ranges_.emplace_hint(next, at, range->second);
    range->second.end = at;
}

void Origins::forget(std::int64_t begin, std::int64_t end) {
    if (begin >= end) return;
    cut(begin);
    cut(end);
    ranges_.erase(ranges_.lower_bound(begin), ranges_.lower_bound(end));
}

void Origins::add(std::int64_t begin, std::int64_t end, int mirror) {
    if (begin >= end) return;
    forget(begin, end);
    auto at = ranges_.emplace(begin, Piece{end, mirror}).first;
    const auto next = std::next(at);
    if (next != ranges_.end() && next->first == end && next->second.mirror == mirror) {
        at->second.end = next->second.end;
        ranges_.erase(next);
    }
    if (at == ranges_.begin()) return;
    const auto before = std::prev(at);
    if (before->second.end != begin || before->second.mirror != mirror) return;
    before->second.end = at->second.end;
    ranges_.erase(at);
}

std::vector<int> Origins::of(std::int64_t begin, std::int64_t end) const {
    std::vector<int> mirrors;
    auto at = ranges_.upper_bound(begin);
    if (at != ranges_.begin()) at = std::prev(at);
    for (std::int64_t known = begin; known < end; ++at) {
        if (at != ranges_.end() && at->second.end <= known) continue;
        if (at == ranges_.end() || at->first > known) mirrors.push_back(unknown);
        if (at == ranges_.end() || at->first >= end) break;
        mirrors.push_back(at->second.mirror);
        known = at->second.end;
    }
    std::sort(mirrors.begin(), mirrors.end());
    mirrors.erase(std::unique(mirrors.begin(), mirrors.end()), mirrors.end());
    return mirrors;
}

std::vector<Origins::Owned> Origins::all() const {
    std::vector<Owned> found;
    for (const auto& [begin, piece] : ranges_) found.push_back({begin, piece.end, piece.mirror});
    return found;
}

std::vector<Origins::Range> Origins::from(int mirror) const {
    std::vector<Range> found;
    for (const auto& [begin, piece] : ranges_) {
        if (piece.mirror == mirror) found.push_back({begin, piece.end});
    }
    return found;
}

std::vector<Origins::Range> Origins::from(int mirror, std::int64_t size) const {
    if (mirror != unknown) return from(mirror);
    std::vector<Range> found;
    std::int64_t at = 0;
    for (const auto& [begin, piece] : ranges_) {
        if (at < begin) found.push_back({at, begin});
        at = piece.end;
    }
    if (at < size) found.push_back({at, size});
    return found;
}

}  // namespace vantlow
