#include "storage/checker.h"

#include <algorithm>
#include <numeric>
#include <thread>
#include <utility>

#include "base/mutex.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

// A step stays in the processor's own cache between reading and hashing.
constexpr std::int64_t step = 256 * 1024;

/// The facts that a check has before it reads: which bytes of the row can be there at all.
class Layout {
  public:
    explicit Layout(const Storage& storage) : storage_(storage) {
        const FileList& files = storage.files();
        shapes_.resize(files.count());
        chosen_.resize(files.count());
        for (std::size_t file = 0; file < files.count(); ++file) {
            const ListedFile& listed = files.at(file);
            shapes_[file] = storage.shape(file);
            chosen_[file] = storage.is_chosen(file);
            if (listed.padding || listed.length == 0) continue;
            if (shapes_[file] == FileShape::absent) {
                // Its bytes may be in the part file.
                if (!chosen_[file]) add({listed.offset, listed.offset + listed.length});
                continue;
            }
            for (const ByteRange& range : storage.data_of(file))
                add({listed.offset + range.begin, listed.offset + std::min(range.end, listed.length)});
        }
    }

    /// A file that the piece needs is not there.
    [[nodiscard]] bool is_missing(std::int64_t piece, const std::vector<FileSpan>& spans) const {
        const FileList& files = storage_.files();
        const auto lacks = [&](const FileSpan& span) {
            return shapes_[span.file] == FileShape::absent && chosen_[span.file] &&
                   !files.at(span.file).padding;
        };
        return std::any_of(spans.begin(), spans.end(), lacks) || !storage_.reaches_parts_of(piece);
    }
    /// Nothing of the range is on the disk.
    [[nodiscard]] bool is_hole(std::int64_t begin, std::int64_t end) const {
        const auto at =
            std::lower_bound(data_.begin(), data_.end(), begin,
                             [](const ByteRange& range, std::int64_t to) { return range.end <= to; });
        return at == data_.end() || at->begin >= end;
    }

  private:
    void add(const ByteRange& range) {
        if (range.begin >= range.end) return;
        if (!data_.empty() && data_.back().end == range.begin) {
            data_.back().end = range.end;
        } else {
            data_.push_back(range);
        }
    }

    const Storage& storage_;
    std::vector<FileShape> shapes_;
    std::vector<bool> chosen_;
    std::vector<ByteRange> data_;  ///< of the row, ascending
};

/// One check by several threads.
class Check {
  public:
    Check(Storage& storage, const PieceHashSource& hashes, const std::vector<std::size_t>& pieces,
          const StopSource& stop, CheckProgress& progress)
        : storage_(storage),
          hashes_(hashes),
          pieces_(pieces),
          stop_(stop),
          progress_(progress),
          layout_(storage),
          found_(pieces.size()) {
        const std::vector<std::byte> zeros(static_cast<std::size_t>(step));
        Digest digest(DigestKind::sha1);
        for (std::int64_t left = storage.piece_length(); left > 0; left -= step)
            digest.update(std::span(zeros).first(static_cast<std::size_t>(std::min(left, step))));
        zero_hash_ = digest.finish();
        zero_root_ = root_of_zeros(storage.piece_length());
    }

    Result run(int threads) {
        const std::size_t most = std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
        const std::size_t wanted =
            std::min(threads > 0 ? static_cast<std::size_t>(threads) : most, pieces_.size());
        std::vector<std::thread> others;
        for (std::size_t i = 1; i < wanted; ++i) {
            std::thread thread;
            // Where the system has no more threads, those that are there do it.
            if (!start_thread(thread, [this] { work(); }).ok()) break;
            others.push_back(std::move(thread));
        }
        work();
        for (std::thread& thread : others) thread.join();
        const MutexLock guard(mutex_);
        return first_failure_;
    }
    [[nodiscard]] bool found(std::size_t i) const { return found_[i] != 0; }

  private:
    void work() {
        std::vector<std::byte> buffer;
        for (;;) {
            const std::size_t i = next_++;
            if (i >= pieces_.size() || failed_) return;
            Result result = stop_.requested()
                                ? Result(stop_.reason())
                                : check(static_cast<std::int64_t>(pieces_[i]), buffer, found_[i]);
            if (result.ok()) {
                ++progress_.pieces;
                continue;
            }
            const MutexLock guard(mutex_);
            if (!failed_.exchange(true)) first_failure_ = std::move(result);
            return;
        }
    }

    Result check(std::int64_t piece, std::vector<std::byte>& buffer, char& good) {
        const std::int64_t begin = piece * storage_.piece_length();
        const std::int64_t end = hashes_.end_of(piece, storage_.piece_length(), storage_.files().size());
        if (layout_.is_missing(piece, storage_.files().spans(begin, end - begin))) return {};
        PieceHash wanted = hashes_.hash_of(piece);
        const bool is_whole = end - begin == storage_.piece_length();
        const bool is_zeros = wanted.merkle ? wanted.merkle == zero_root_ : wanted.sha1 == zero_hash_;
        const bool is_known = wanted.merkle || !wanted.sha1.empty();
        if (!is_known || (is_whole && !is_zeros && layout_.is_hole(begin, end))) return {};
        PieceDigest digest(std::move(wanted));
        for (std::int64_t at = begin; at < end; at += step) {
            if (stop_.requested()) return stop_.reason();
            buffer.resize(static_cast<std::size_t>(std::min(step, end - at)));
            const Result result = storage_.read(at, buffer);
            // A file that is shorter than it should be is no fault of the disk.
            if (!result.ok()) return result.system_error != 0 ? result : Result{};
            progress_.bytes_read += static_cast<std::int64_t>(buffer.size());
            digest.update(buffer);
        }
        good = digest.matches() ? 1 : 0;
        return {};
    }

    Storage& storage_;
    const PieceHashSource& hashes_;
    const std::vector<std::size_t>& pieces_;
    const StopSource& stop_;
    CheckProgress& progress_;
    const Layout layout_;
    std::vector<std::byte> zero_hash_;
    MerkleRoot zero_root_;
    std::vector<char> found_;  ///< one for each of pieces_; each is written by one thread
    std::atomic<std::size_t> next_{0};
    std::atomic<bool> failed_{false};
    Mutex mutex_;
    Result first_failure_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace

Result check_pieces(Storage& storage, const PieceHashSource& hashes, const std::vector<std::size_t>& pieces,
                    int threads, const StopSource& stop, CheckProgress& progress, std::vector<bool>& good) {
    const std::int64_t length = storage.piece_length();
    good.resize(static_cast<std::size_t>((storage.files().size() + length - 1) / length));
    Check check(storage, hashes, pieces, stop, progress);
    Result result = check.run(threads);
    for (std::size_t i = 0; i < pieces.size(); ++i) good[pieces[i]] = check.found(i);
    return result;
}

Result check_all_pieces(Storage& storage, const PieceHashSource& hashes, int threads, const StopSource& stop,
                        CheckProgress& progress, std::vector<bool>& good) {
    const std::int64_t length = storage.piece_length();
    std::vector<std::size_t> all(static_cast<std::size_t>((storage.files().size() + length - 1) / length));
    std::iota(all.begin(), all.end(), std::size_t{0});
    return check_pieces(storage, hashes, all, threads, stop, progress, good);
}

}  // namespace vantlow
