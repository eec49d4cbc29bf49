// The jobs of one category, in display order.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "store/job.h"

namespace vantlow {

/// Some neighbours of a sequence.
struct JobBlock {
    std::vector<std::unique_ptr<CJobNode>> jobs;
};

/// Owns its jobs. Putting one in, taking one out and finding its place cost hardly more with 100,000 jobs
/// than with ten, since they stand in blocks and each job knows its block. Null is no job, except one that
/// was moved out of front() or back(), after which only the destructor may follow.
class JobSequence {
  public:
    JobSequence() = default;
    JobSequence(JobSequence&&) noexcept = default;
    JobSequence& operator=(JobSequence&&) noexcept = default;

    class const_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = std::unique_ptr<CJobNode>;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = const value_type&;
        const_iterator() = default;
        reference operator*() const { return (**block_).jobs[at_]; }
        pointer operator->() const { return &**this; }
        const_iterator& operator++() {
            if (++at_ == (**block_).jobs.size()) {
                ++block_;
                at_ = 0;
            }
            return *this;
        }
        const_iterator operator++(int) {
            const const_iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const const_iterator&) const = default;

      private:
        friend class JobSequence;
        using Place = std::vector<std::unique_ptr<JobBlock>>::const_iterator;
        explicit const_iterator(Place block) : block_(block) {}
        Place block_;
        std::size_t at_ = 0;
    };
    /// Putting in or taking out a job invalidates iterators.
    [[nodiscard]] const_iterator begin() const noexcept { return const_iterator(blocks_.begin()); }
    [[nodiscard]] const_iterator end() const noexcept { return const_iterator(blocks_.end()); }

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
    [[nodiscard]] std::unique_ptr<CJobNode>& front() noexcept { return blocks_.front()->jobs.front(); }
    [[nodiscard]] std::unique_ptr<CJobNode>& back() noexcept { return blocks_.back()->jobs.back(); }
    /// The job at a place, which must be below size().
    [[nodiscard]] CJobNode& at(std::size_t place) const noexcept;
    /// The place of a job, which must be in it.
    [[nodiscard]] std::size_t place_of(const CJobNode& job) const noexcept;

    CJobNode& push_back(std::unique_ptr<CJobNode> job);
    /// Inserts a job before the one at this place, or last where there are fewer.
    CJobNode& insert(std::size_t place, std::unique_ptr<CJobNode> job);
    /// Takes out a job, which must be in it.
    std::unique_ptr<CJobNode> take(const CJobNode& job);
    /// Appends all jobs of another sequence.
    void append(JobSequence other);

  private:
    /// The block that a place is in; `place` becomes the one within that block.
    [[nodiscard]] std::size_t block_at(std::size_t& place) const noexcept;
    [[nodiscard]] std::size_t index_of(const JobBlock& block) const noexcept;
    void split(std::size_t index);

    std::vector<std::unique_ptr<JobBlock>> blocks_;  ///< none of them empty
    std::vector<std::size_t>
        sizes_;  ///< the sizes of the blocks, so that a walk need not look at the blocks themselves
    std::size_t size_ = 0;
};

}  // namespace vantlow
