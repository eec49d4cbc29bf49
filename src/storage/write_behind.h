// The write-behind buffer in front of a job's file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/mutex.h"
#include "platform/file.h"

namespace vantlow {

/// Hears which bytes were handed to the operating system. Called from any writing thread, without locks held.
class WrittenListener {
  public:
    WrittenListener() = default;
    WrittenListener(const WrittenListener&) = delete;
    WrittenListener& operator=(const WrittenListener&) = delete;
    virtual ~WrittenListener() = default;
    virtual void written(std::int64_t offset, std::int64_t bytes) = 0;
};

/// Collects small writes and hands them to the file in few large ones, neighbours joined. Any thread may
/// call. Its memory is the size that it was made with, in two halves: one fills while the other is written.
class WriteBehind {
  public:
    WriteBehind(File& file, WrittenListener& listener, std::size_t size);

    /// Takes a copy of the bytes (more than half of the size are written in pieces). Waits for the disk when
    /// both halves are full.
    FileError add(std::int64_t offset, std::span<const std::byte> bytes);
    /// Returns when everything added before is handed to the file, or with the failure of doing so; what
    /// could not be written is dropped, and nobody heard of it as written.
    FileError drain();
    /// Forgets what was not written yet.
    void discard();

  private:
    struct Run {
        std::int64_t offset = 0;
        std::size_t at = 0;  ///< in the buffer
        std::size_t bytes = 0;
    };
    struct Half {
        std::vector<std::byte> buffer;
        std::vector<Run> runs;
        std::size_t used = 0;
    };
    FileError write_half(Half& half);
    void put(std::int64_t offset, std::span<const std::byte> bytes) VANTLOW_REQUIRES(mutex_);

    File& file_;
    WrittenListener& listener_;
    std::size_t capacity_;  ///< of a half
    Mutex mutex_;
    Condition idle_;
    Half filling_ VANTLOW_GUARDED_BY(mutex_);
    Half writing_;  ///< the writer's while writing_now_, else guarded by mutex_
    bool writing_now_ VANTLOW_GUARDED_BY(mutex_) = false;
};

}  // namespace vantlow
