#include "bt/torrent_source.h"

#include <algorithm>
#include <limits>
#include <thread>

#include "base/buffer.h"
#include "base/digest.h"
#include "base/mutex.h"
#include "base/text.h"
#include "platform/file.h"
#include "platform/folder.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

constexpr std::int64_t wanted_pieces = 1500;
constexpr std::int64_t shortest_piece = std::int64_t{16} << 10U;
constexpr std::int64_t longest_piece = std::int64_t{16} << 20U;
constexpr std::size_t digest_bytes = 20;
// This much stays in a core's own cache between the copy and the digest.
constexpr std::size_t read_step = 128 * 1024;

Result trouble(const std::u16string& path, const std::string& what, int error = 0) {
    return {Code::local_file, to_utf8(path) + ": " + what, error};
}

struct Folder {
    std::u16string path;
    std::string relative;  ///< with a "/" behind it unless it is the source itself
};

Result add_folder(const Folder& folder, TorrentSource& source, std::vector<Folder>& further) {
    std::vector<FolderEntry> entries;
    if (const FileError error = list_folder(folder.path, entries); !error.ok()) {
        return trouble(folder.path, error.text(), error.system_error);
    }
    for (FolderEntry& entry : entries) {
        std::u16string path = join_path(folder.path, entry.name);
        std::string relative = folder.relative + to_utf8(entry.name);
        if (entry.kind == PathKind::folder && !entry.is_link) {
            further.push_back({std::move(path), relative + "/"});
        } else if (entry.kind == PathKind::file) {
            if (entry.size > std::numeric_limits<std::int64_t>::max() - source.total) {
                return trouble(path, "Together with the files before it is too large.");
            }
            source.total += entry.size;
            source.files.push_back({std::move(path), std::move(relative), entry.size});
        }
    }
    return {};
}

Result add_file(TorrentSource& source) {
    File file;
    if (const FileError error = file.open(source.path, OpenMode::read); !error.ok()) {
        return trouble(source.path, error.text(), error.system_error);
    }
    source.total = file.size();
    if (source.total < 0) return trouble(source.path, "Its size cannot be determined.");
    source.files.push_back({source.path, {}, source.total});
    return {};
}

bool is_separator(char16_t c) noexcept {
    return c == u'/' || (c == u'\\' && path_separator() == u'\\');
}

/// State that the hashing threads share.
struct Hashing {
    const TorrentSource& source;
    std::vector<std::int64_t> starts;  ///< offset of each file among the bytes of all
    std::int64_t piece_length;
    std::size_t pieces;
    const StopSource& stop;
    std::atomic<std::int64_t>& done;
    std::string digests;  ///< each thread writes those of its pieces
    std::atomic<std::size_t> next{0};
    std::atomic<bool> over{false};
    Mutex mutex;
    Result result VANTLOW_GUARDED_BY(mutex);  ///< of the first that failed
};

/// One thread's part: takes the next piece until none is left.
class PieceHasher {
  public:
    explicit PieceHasher(Hashing& shared) : shared_(shared) { buffer_.resize(read_step); }

    void run() {
        for (std::size_t piece = shared_.next++; piece < shared_.pieces; piece = shared_.next++) {
            if (shared_.over) return;
            if (Result result = hash(piece); !result.ok()) {
                const MutexLock guard(shared_.mutex);
                if (!shared_.over.exchange(true)) shared_.result = std::move(result);
                return;
            }
        }
    }

  private:
    Result hash(std::size_t piece) {
        std::int64_t at = static_cast<std::int64_t>(piece) * shared_.piece_length;
        const std::int64_t end =
            std::min(at + std::min(shared_.piece_length, shared_.source.total - at), shared_.source.total);
        Digest digest(DigestKind::sha1);
        while (at < end) {
            if (shared_.stop.requested() || shared_.over) return Code::stopped;
            if (Result result = open_file_of(at); !result.ok()) return result;
            const std::int64_t in_file = at - shared_.starts[open_];
            const std::int64_t most = std::min(end - at, shared_.source.files[open_].size - in_file);
            const auto bytes = static_cast<std::size_t>(std::min<std::int64_t>(most, read_step));
            if (Result result = read(in_file, bytes); !result.ok()) return result;
            digest.update(buffer_.bytes().first(bytes));
            shared_.done += static_cast<std::int64_t>(bytes);
            at += static_cast<std::int64_t>(bytes);
        }
        const std::vector<std::byte> result = digest.finish();
        if (result.size() != digest_bytes) return {Code::unsupported, "SHA-1 is not available."};
        std::copy(result.begin(), result.end(),
                  reinterpret_cast<std::byte*>(shared_.digests.data()) + piece * digest_bytes);
        return {};
    }

    // Opens the file that holds the byte at this offset of all bytes.
    Result open_file_of(std::int64_t at) {
        const auto behind = std::upper_bound(shared_.starts.begin(), shared_.starts.end(), at);
        const auto index = static_cast<std::size_t>(behind - shared_.starts.begin()) - 1;
        if (file_.is_open() && index == open_) return {};
        const SourceFile& wanted = shared_.source.files[index];
        if (const FileError error = file_.open(wanted.path, OpenMode::read); !error.ok()) {
            return trouble(wanted.path, error.text(), error.system_error);
        }
        open_ = index;
        return file_.size() == wanted.size ? Result{} : changed(wanted);
    }

    Result read(std::int64_t offset, std::size_t bytes) {
        const SourceFile& file = shared_.source.files[open_];
        std::size_t got = 0;
        if (const FileError error = file_.read_at(offset, buffer_.bytes().first(bytes), got); !error.ok()) {
            return trouble(file.path, error.text(), error.system_error);
        }
        return got == bytes ? Result{} : changed(file);
    }

    static Result changed(const SourceFile& file) {
        return trouble(file.path, "It changed while it was read.");
    }

    Hashing& shared_;
    PageBuffer buffer_;
    File file_;
    std::size_t open_ = 0;  ///< whose file it is
};

// An empty file gets the start of the file behind it, so that a search by offset never ends at an empty one.
std::vector<std::int64_t> starts_of(const TorrentSource& source) {
    std::vector<std::int64_t> starts;
    std::int64_t at = 0;
    for (const SourceFile& file : source.files) {
        starts.push_back(at);
        at += file.size;
    }
    return starts;
}

}  // namespace

std::u16string TorrentSource::name() const {
    return name_of(path);
}

Outcome<TorrentSource> find_torrent_source(const std::u16string& path, const StopSource& stop) {
    TorrentSource source;
    source.path = absolute_path(path);
    while (!source.path.empty() && is_separator(source.path.back())) source.path.pop_back();
    const std::u16string name = source.name();
    if (path.empty() || name.empty() || name == u"." || name == u"..") {
        return trouble(path, "A torrent needs the name of a file or a folder.");
    }
    const PathKind kind = path_kind(source.path);
    source.is_file = kind == PathKind::file;
    if (source.is_file) {
        if (Result result = add_file(source); !result.ok()) return result;
    } else if (kind != PathKind::folder) {
        return trouble(source.path, "There is no such file or folder.");
    }
    std::vector<Folder> folders;
    if (!source.is_file) folders.push_back({source.path, {}});
    while (!folders.empty()) {
        if (stop.requested()) return Code::stopped;
        const Folder folder = std::move(folders.back());
        folders.pop_back();
        if (Result result = add_folder(folder, source, folders); !result.ok()) return result;
    }
    if (source.total == 0) return trouble(source.path, "There is no data to make a torrent from.");
    std::sort(source.files.begin(), source.files.end(),
              [](const SourceFile& a, const SourceFile& b) { return a.relative < b.relative; });
    return source;
}

std::int64_t choose_piece_length(std::int64_t total) noexcept {
    std::int64_t length = shortest_piece;
    // The nearer length, as a factor: up to 1.4 times as many pieces, down to 0.7 times.
    while (length < longest_piece && total / length > wanted_pieces * 14 / 10) length *= 2;
    return length;
}

Outcome<std::string> hash_pieces(const TorrentSource& source, std::int64_t piece_length, unsigned threads,
                                 const StopSource& stop, std::atomic<std::int64_t>& done) {
    const auto pieces = static_cast<std::size_t>((source.total - 1) / piece_length + 1);
    Hashing shared{source, starts_of(source), piece_length, pieces, stop, done, {}, 0, false, {}, {}};
    shared.digests.resize(pieces * digest_bytes);
    if (threads == 0) threads = std::max(1U, std::thread::hardware_concurrency());
    threads = static_cast<unsigned>(std::min<std::size_t>(threads, pieces));
    {
        // Fewer threads than wanted only make it slower.
        ThreadPool pool;
        std::vector<ThreadPool::Running> workers(threads - 1);
        for (auto& worker : workers) {
            if (!pool.start(worker, [&] { PieceHasher(shared).run(); }).ok()) break;
        }
        PieceHasher(shared).run();
    }
    if (shared.over) {
        const MutexLock guard(shared.mutex);
        return shared.result;
    }
    return std::move(shared.digests);
}

}  // namespace vantlow
