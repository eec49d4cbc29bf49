#include "storage/write_behind.h"

#include <algorithm>
#include <cstring>

namespace vantlow {

WriteBehind::WriteBehind(File& file, WrittenListener& listener, std::size_t size)
    : file_(file), listener_(listener), capacity_(std::max<std::size_t>(size / 2, 1)) {
    filling_.buffer.resize(capacity_);
    writing_.buffer.resize(capacity_);
}

// Copies the bytes; there is room in the half.
void WriteBehind::put(std::int64_t offset, std::span<const std::byte> bytes) {
    std::memcpy(filling_.buffer.data() + filling_.used, bytes.data(), bytes.size());
    filling_.runs.push_back({offset, filling_.used, bytes.size()});
    filling_.used += bytes.size();
}

FileError WriteBehind::add(std::int64_t offset, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        MutexLock guard(mutex_);
        const std::size_t piece = std::min(bytes.size(), capacity_ - filling_.used);
        if (piece == 0) {
            guard.unlock();
            if (FileError error = drain(); !error.ok()) return error;
            continue;
        }
        put(offset, bytes.first(piece));
        offset += static_cast<std::int64_t>(piece);
        bytes = bytes.subspan(piece);
    }
    return {};
}

FileError WriteBehind::drain() {
    MutexLock guard(mutex_);
    idle_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return !writing_now_; });
    if (filling_.runs.empty()) return {};
    std::swap(filling_, writing_);
    writing_now_ = true;
    guard.unlock();
    FileError error = write_half(writing_);
    guard.lock();
    writing_.runs.clear();
    writing_.used = 0;
    writing_now_ = false;
    guard.unlock();
    idle_.notify_all();
    return error;
}

FileError WriteBehind::write_half(Half& half) {
    // Runs of one connection follow each other; those of several lie mixed. A stable order by offset joins
    // neighbours.
    std::vector<std::byte> joined;
    std::stable_sort(half.runs.begin(), half.runs.end(),
                     [](const Run& a, const Run& b) { return a.offset < b.offset; });
    for (std::size_t i = 0; i < half.runs.size();) {
        std::size_t next = i + 1;
        std::size_t bytes = half.runs[i].bytes;
        bool in_place = true;  // the neighbours lie next to each other in the buffer too
        while (next < half.runs.size() &&
               half.runs[next].offset == half.runs[i].offset + static_cast<std::int64_t>(bytes)) {
            in_place = in_place && half.runs[next].at == half.runs[i].at + bytes;
            bytes += half.runs[next].bytes;
            ++next;
        }
        std::span<const std::byte> out(half.buffer.data() + half.runs[i].at, bytes);
        if (!in_place) {
            joined.clear();
            for (std::size_t k = i; k < next; ++k) {
                const auto* first = half.buffer.data() + half.runs[k].at;
                joined.insert(joined.end(), first, first + half.runs[k].bytes);
            }
            out = joined;
        }
        if (FileError error = file_.write_at(half.runs[i].offset, out); !error.ok()) return error;
        listener_.written(half.runs[i].offset, static_cast<std::int64_t>(bytes));
        i = next;
    }
    return {};
}

void WriteBehind::discard() {
    MutexLock guard(mutex_);
    idle_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return !writing_now_; });
    filling_.runs.clear();
    filling_.used = 0;
}

}  // namespace vantlow
