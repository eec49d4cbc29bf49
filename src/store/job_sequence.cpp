#include "store/job_sequence.h"

#include <algorithm>
#include <numeric>

namespace vantlow {
namespace {

constexpr std::size_t block_size = 512;

}  // namespace

std::size_t JobSequence::block_at(std::size_t& place) const noexcept {
    std::size_t index = 0;
    while (place >= sizes_[index]) place -= sizes_[index++];
    return index;
}

CJobNode& JobSequence::at(std::size_t place) const noexcept {
    const std::size_t index = block_at(place);
    return *blocks_[index]->jobs[place];
}

std::size_t JobSequence::index_of(const JobBlock& block) const noexcept {
    const auto at =
        std::find_if(blocks_.begin(), blocks_.end(), [&](const auto& one) { return one.get() == &block; });
    return static_cast<std::size_t>(at - blocks_.begin());
}

std::size_t JobSequence::place_of(const CJobNode& job) const noexcept {
    const auto& jobs = job.block_->jobs;
    const auto at =
        std::find_if(jobs.begin(), jobs.end(), [&](const auto& one) { return one.get() == &job; });
    const auto before = sizes_.begin() + static_cast<std::ptrdiff_t>(index_of(*job.block_));
    return std::accumulate(sizes_.begin(), before, static_cast<std::size_t>(at - jobs.begin()));
}

CJobNode& JobSequence::push_back(std::unique_ptr<CJobNode> job) {
    if (blocks_.empty() || sizes_.back() >= block_size) {
        blocks_.push_back(std::make_unique<JobBlock>());
        sizes_.push_back(0);
    }
    CJobNode& added = *blocks_.back()->jobs.emplace_back(std::move(job));
    added.block_ = blocks_.back().get();
    ++sizes_.back();
    ++size_;
    return added;
}

CJobNode& JobSequence::insert(std::size_t place, std::unique_ptr<CJobNode> job) {
    if (place >= size_) return push_back(std::move(job));
    const std::size_t index = block_at(place);
    JobBlock& block = *blocks_[index];
    CJobNode& added = *job;
    added.block_ = &block;
    block.jobs.insert(block.jobs.begin() + static_cast<std::ptrdiff_t>(place), std::move(job));
    ++size_;
    if (++sizes_[index] > block_size) split(index);
    return added;
}

void JobSequence::split(std::size_t index) {
    auto& from = blocks_[index]->jobs;
    auto fresh = std::make_unique<JobBlock>();
    const auto half = from.begin() + static_cast<std::ptrdiff_t>(from.size() / 2);
    fresh->jobs.assign(std::make_move_iterator(half), std::make_move_iterator(from.end()));
    from.erase(half, from.end());
    for (const auto& job : fresh->jobs) job->block_ = fresh.get();
    sizes_[index] = from.size();
    const auto behind = static_cast<std::ptrdiff_t>(index) + 1;
    sizes_.insert(sizes_.begin() + behind, fresh->jobs.size());
    blocks_.insert(blocks_.begin() + behind, std::move(fresh));
}

std::unique_ptr<CJobNode> JobSequence::take(const CJobNode& job) {
    const std::size_t index = index_of(*job.block_);
    auto& jobs = job.block_->jobs;
    const auto at =
        std::find_if(jobs.begin(), jobs.end(), [&](const auto& one) { return one.get() == &job; });
    std::unique_ptr<CJobNode> taken = std::move(*at);
    jobs.erase(at);
    taken->block_ = nullptr;
    --size_;
    if (--sizes_[index] == 0) {
        blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(index));
        sizes_.erase(sizes_.begin() + static_cast<std::ptrdiff_t>(index));
    }
    return taken;
}

void JobSequence::append(JobSequence other) {
    size_ += std::exchange(other.size_, 0);
    for (auto& block : other.blocks_) blocks_.push_back(std::move(block));
    sizes_.insert(sizes_.end(), other.sizes_.begin(), other.sizes_.end());
    other.blocks_.clear();
    other.sizes_.clear();
}

}  // namespace vantlow
