#include "storage/piece_check.h"

#include <algorithm>
#include <utility>

namespace vantlow {
namespace {

// A step is small enough to stay in the processor's own cache between reading and hashing.
constexpr std::size_t step = 256 * 1024;

}  // namespace

Result digest_of_range(CLocalFile& file, DigestKind kind, std::int64_t begin, std::int64_t end,
                       const StopSource& stop, std::vector<std::byte>& digest) {
    Digest running(kind);
    std::vector<std::byte> buffer(step);
    while (begin < end) {
        if (stop.requested()) return stop.reason();
        const auto bytes = std::min<std::int64_t>(end - begin, static_cast<std::int64_t>(step));
        const auto part = std::span(buffer).first(static_cast<std::size_t>(bytes));
        if (Result result = file.read(begin, part); !result.ok()) return result;
        running.update(part);
        begin += bytes;
    }
    digest = running.finish();
    return {};
}

PieceCheck::PieceCheck(const PieceHashes& hashes, std::int64_t size, CLocalFile& file, ThreadPool& threads,
                       const StopSource& stop, Report report)
    : hashes_(hashes), size_(size), file_(file), threads_(threads), stop_(stop), report_(std::move(report)) {}

void PieceCheck::add(std::size_t piece) {
    Result started;
    {
        const MutexLock guard(mutex_);
        if (ending_) return;
        waiting_.push_back(piece);
        if (!started_) started = threads_.start(thread_, [this] { run(); });
        started_ = started.ok();
        if (!started_) waiting_.clear();
    }
    news_.notify_all();
    if (!started.ok())
        report_(piece, {Code::local_file, "The pieces cannot be checked. " + started.message()});
}

void PieceCheck::reset() {
    MutexLock guard(mutex_);
    waiting_.clear();
    news_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return !checking_; });
}

void PieceCheck::stop() {
    {
        const MutexLock guard(mutex_);
        ending_ = true;
        waiting_.clear();
    }
    news_.notify_all();
    thread_.join();
}

bool PieceCheck::is_busy() const {
    const MutexLock guard(mutex_);
    return checking_ || !waiting_.empty();
}

void PieceCheck::run() {
    for (;;) {
        std::size_t piece = 0;
        {
            MutexLock guard(mutex_);
            const auto wanted = [this]() VANTLOW_REQUIRES(mutex_) { return ending_ || !waiting_.empty(); };
            if (!news_.wait(guard, stop_, wanted) || ending_) return;
            piece = waiting_.front();
            waiting_.pop_front();
            checking_ = true;
        }
        const Result result = check(piece);
        if (result.kind() != Kind::stopped) report_(piece, result);
        {
            const MutexLock guard(mutex_);
            checking_ = false;
        }
        news_.notify_all();
    }
}

Result PieceCheck::check(std::size_t piece) {
    std::vector<std::byte> found;
    Result result = digest_of_range(file_, hashes_.kind, begin_of(piece), end_of(piece), stop_, found);
    if (!result.ok()) return result;
    return std::ranges::equal(found, hashes_.hash(piece)) ? Result{} : Result(Code::hash_differs);
}

}  // namespace vantlow
