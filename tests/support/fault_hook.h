// A system that fails: hooks in front of what is asked of it.
#pragma once

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/fault_hook.h"
#include "platform/file.h"
#include "platform/socket.h"

namespace vantlow::test {

/// The numbers that this system fails with for such a reason.
int error_number(FileFault fault) noexcept;
int error_number(SocketFault fault) noexcept;
/// Of the name functions, when nobody answers.
int name_error_number() noexcept;

/// Fails one kind of operation from its n-th time on (from 1), for a number of times, where the path holds
/// `part`.
class FailNth : public FaultHook {
  public:
    FailNth(Operation kind, int n, FileFault fault, int times = 1, std::u16string part = {})
        : kind_(kind), first_(n), times_(times), fault_(fault), part_(std::move(part)) {}

    int before(Operation operation, std::u16string_view path, std::int64_t, std::int64_t) noexcept override {
        if (operation != kind_ || path.find(part_) == std::u16string_view::npos) return 0;
        const std::lock_guard guard(mutex_);
        ++seen_;
        const bool fails = seen_ >= first_ && seen_ - first_ < times_;
        if (fails) ++failed_;
        return fails ? error_number(fault_) : 0;
    }
    /// How often an operation was failed: zero means that the test did not reach what it wanted to break.
    [[nodiscard]] int failed() const {
        const std::lock_guard guard(mutex_);
        return failed_;
    }

  private:
    const Operation kind_;
    const int first_;
    const int times_;
    const FileFault fault_;
    const std::u16string part_;
    mutable std::mutex mutex_;
    int seen_ = 0;    ///< guarded by mutex_
    int failed_ = 0;  ///< guarded by mutex_
};

/// A disk with room for so many bytes; what was written counts, wherever it went, and nothing ever frees room
/// but free().
class FullDisk : public FaultHook {
  public:
    explicit FullDisk(std::int64_t room) : room_(room) {}

    int before(Operation operation, std::u16string_view, std::int64_t,
               std::int64_t length) noexcept override {
        if (operation != Operation::write && operation != Operation::resize) return 0;
        const std::lock_guard guard(mutex_);
        if (length > room_) {
            ++refused_;
            return error_number(FileFault::no_space);
        }
        // Space that is promised but not written is not taken off: the writes that follow take it.
        if (operation == Operation::write) room_ -= length;
        return 0;
    }
    void free(std::int64_t bytes) {
        const std::lock_guard guard(mutex_);
        room_ += bytes;
    }
    [[nodiscard]] int refused() const {
        const std::lock_guard guard(mutex_);
        return refused_;
    }

  private:
    mutable std::mutex mutex_;
    std::int64_t room_;  ///< guarded by mutex_
    int refused_ = 0;    ///< guarded by mutex_
};

/// Records the operations and knows which written ranges were not flushed since: what a power cut may take.
class RecordingHook : public FaultHook {
  public:
    struct Entry {
        Operation operation = Operation::open;
        std::u16string path;
        std::int64_t offset = 0;
        std::int64_t length = 0;
    };
    struct Range {
        std::int64_t offset = 0;
        std::int64_t length = 0;
    };

    int before(Operation operation, std::u16string_view path, std::int64_t offset,
               std::int64_t length) noexcept override {
        // What is only looked at changes nothing, and what has no name is no file's.
        if (operation > Operation::mark || operation == Operation::size) return 0;
        const std::lock_guard guard(mutex_);
        entries_.push_back({operation, std::u16string(path), offset, length});
        if (operation == Operation::write) unflushed_[std::u16string(path)].push_back({offset, length});
        if (operation == Operation::flush) unflushed_.erase(std::u16string(path));
        return 0;
    }
    [[nodiscard]] std::vector<Entry> entries() const {
        const std::lock_guard guard(mutex_);
        return entries_;
    }
    [[nodiscard]] std::size_t count(Operation operation, std::u16string_view part = {}) const {
        const std::lock_guard guard(mutex_);
        const auto fits = [&](const Entry& entry) {
            return entry.operation == operation && entry.path.find(part) != std::u16string::npos;
        };
        return static_cast<std::size_t>(std::count_if(entries_.begin(), entries_.end(), fits));
    }
    [[nodiscard]] std::vector<Range> unflushed(const std::u16string& path) const {
        const std::lock_guard guard(mutex_);
        const auto found = unflushed_.find(path);
        return found == unflushed_.end() ? std::vector<Range>{} : found->second;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;                              ///< guarded by mutex_
    std::map<std::u16string, std::vector<Range>> unflushed_;  ///< guarded by mutex_, by the path of the write
};

/// Overwrites the ranges with zeros, as a file looks whose bytes a power cut took. Call it without a hook in
/// place.
inline FileError lose_ranges(const std::u16string& path, const std::vector<RecordingHook::Range>& ranges) {
    File file;
    FileError error = file.open(path, OpenMode::write_existing);
    for (const RecordingHook::Range& range : ranges) {
        if (!error.ok()) break;
        error = file.write_at(range.offset, std::vector<std::byte>(static_cast<std::size_t>(range.length)));
    }
    return error;
}

}  // namespace vantlow::test
