// A database image that is made in steps, while the records go on changing.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "store/category.h"
#include "store/store_writer.h"

namespace vantlow {

/// The image of a tree: its categories, and the places of its jobs, as they were at the beginning; each job's
/// own fields as they are when its turn comes, or were when it was removed. So it is always a whole database,
/// and every later change that is missing in it can be replayed on it.
class DatabaseSnapshot {
  public:
    explicit DatabaseSnapshot(const CategoryTree& tree);
    DatabaseSnapshot(const DatabaseSnapshot&) = delete;
    DatabaseSnapshot& operator=(const DatabaseSnapshot&) = delete;

    /// Continues until the image is whole (true) or the time is over; at least a few jobs are written each
    /// time.
    bool go_on(std::chrono::steady_clock::time_point until);
    /// Keeps the bytes of a job that is about to be removed.
    void keep(const CJobNode& job);
    /// Takes the image, once it is whole.
    [[nodiscard]] DatabaseImage take_image() noexcept { return std::move(image_); }

  private:
    /// Bytes that are written first, and the jobs behind them, which one category has.
    struct Section {
        std::vector<std::byte> head;
        Guid category;
        std::size_t end = 0;  ///< of its jobs among all
    };
    std::vector<Section> sections_;
    std::vector<const CJobNode*> jobs_;  ///< null: its bytes are kept
    std::map<std::size_t, std::vector<std::byte>> kept_;
    std::size_t section_ = 0;  ///< the one that is written
    bool head_written_ = false;
    std::size_t next_ = 0;  ///< job
    DatabaseImage image_;
};

}  // namespace vantlow
