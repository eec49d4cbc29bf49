// The files of a job as one row of bytes on the disk: many files, of which one is the simple case.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"
#include "base/mutex.h"
#include "base/result.h"
#include "platform/file.h"
#include "platform/file_layout.h"
#include "platform/file_marks.h"
#include "platform/stop.h"
#include "storage/file_list.h"

namespace vantlow {

struct StorageRules {
    bool allocate = false;        ///< a file gets room for all of its bytes when its first ones are written
    std::size_t open_files = 40;  ///< descriptors at most, but for those of operations in hand
    /// The files that are there are read, also while another storage has them open; nothing is made or
    /// removed.
    bool looks_only = false;
};

/// Where the files of a storage are: what must be kept to open it again.
struct StoragePlaces {
    std::u16string folder;
    std::map<std::size_t, std::u16string> names;  ///< below the folder, of files whose own name was taken
};

/// The shape that a file has on the disk.
enum class FileShape : std::uint8_t {
    absent,   ///< it has no file; where it is not chosen, bytes of shared pieces stand in the part file
    partial,  ///< with the suffix of unfinished files
    finished  ///< under its name
};

/// Positions count from 0 over all files. A chosen file gets a partial file with its first bytes and its name
/// when finish() is called: a name never shows an unfinished file. A file that is not chosen does not appear;
/// its bytes of pieces that it shares with other files are kept in the hidden file ".vantlow-parts" of the
/// folder. While a storage is open no other one, in this process or another, opens the same files.
///
/// read() and write() may be called by any threads at once; so may finish(), choose(), put_back() and sync(),
/// of which each kind is called by one thread at a time. They wait for reads and writes in hand.
/// open(), close() and remove() are called while nothing else is. Failures are `local_file` with a sentence
/// that names the file, and are logged.
class Storage {
  public:
    /// `chosen` has an entry for each file. The log outlives the object. The length of a piece is positive.
    Storage(FileList files, std::vector<bool> chosen, std::int64_t piece_length, LogSink& log,
            StorageRules rules = {});
    ~Storage() { close(); }
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    /// Begins in a folder, which is made where it is missing. Files that are there belong to others: ours
    /// take free names beside them.
    Result begin(const std::u16string& folder);
    /// Opens what an earlier run left; files that are there are this storage's, partial or finished. The
    /// folder must be there.
    Result resume(const StoragePlaces& places);
    /// Waits for operations in hand. A part file that nothing needs is removed; where nobody opens this
    /// storage again, any is: `keeps_parts` false.
    void close(bool keeps_parts = true);

    /// Hands bytes to the system. A finished file that gets other bytes becomes partial again. Bytes of
    /// padding go nowhere; those of a piece that no chosen file shares are refused with `unsupported`.
    Result write(std::int64_t position, std::span<const std::byte> bytes);
    /// Reads bytes; padding is zeros. `local_file` where a file is missing or ends before.
    Result read(std::int64_t position, std::span<std::byte> into);
    /// Returns when everything that was written before the call is on the disk. Once it has failed it fails
    /// until the storage is opened again, because the system may have given up bytes that it had taken: what
    /// was promised before that is all that may be believed then.
    Result sync();
    /// Lets go of the files that are kept open between operations. Some systems tell the time of a file's
    /// last change only then.
    void rest();
    /// The file that stands under the name is somebody else's: ours is absent, and takes a free name.
    void disown(std::size_t file);
    /// The file is whole: it is cut to its length, put on the disk, unless sync() did that after the last
    /// write to it, and takes its name, which the next sync() puts on the disk. A file that somebody else put
    /// there keeps it, and ours takes a free one. A file without bytes is made. Not while sync() runs.
    Result finish(std::size_t file);
    /// A file that is chosen takes its bytes out of the part file, safe on the disk when this returns. One
    /// that is not chosen any more keeps the file that it has until it is put back.
    Result choose(std::size_t file, bool chosen);
    /// The unfinished file of one that is not chosen goes: its bytes of pieces that it shares are in the part
    /// file then, safe on the disk before the file is removed; the others are lost. Ok where it has none.
    Result put_back(std::size_t file);
    /// Closes, and removes every file that this storage made or took over, and folders that are empty then.
    Result remove() {
        return remove([](std::size_t) { return true; });
    }
    /// The same of those that pass the test.
    Result remove(const std::function<bool(std::size_t)>& is_own);
    /// The name of the file that keeps the bytes of files that are not chosen.
    [[nodiscard]] static std::u16string_view part_name() noexcept { return u".vantlow-parts"; }

    [[nodiscard]] const FileList& files() const noexcept { return files_; }
    [[nodiscard]] std::int64_t piece_length() const noexcept { return piece_length_; }
    [[nodiscard]] StoragePlaces places() const;
    [[nodiscard]] FileShape shape(std::size_t file) const;
    [[nodiscard]] bool is_chosen(std::size_t file) const;
    /// The path under which the file's bytes are or would be.
    [[nodiscard]] std::u16string path(std::size_t file) const;
    /// Whether a byte of the piece belongs to a chosen file.
    [[nodiscard]] bool is_wanted(std::int64_t piece) const;
    /// Whether the part file reaches as far as the bytes of the piece that would stand in it.
    [[nodiscard]] bool reaches_parts_of(std::int64_t piece) const;
    /// Whether bytes of the piece would stand in the part file.
    [[nodiscard]] bool uses_parts(std::int64_t piece) const { return end_in_parts(piece) != 0; }
    [[nodiscard]] FileStamp part_stamp() const;
    /// The ranges of the file that are on the disk; what lies between them reads as zeros.
    [[nodiscard]] std::vector<ByteRange> data_of(std::size_t file) const;

  private:
    struct Place {
        FileShape shape = FileShape::absent;
        bool chosen = true;
    };
    /// A piece of an operation: an open file and where in it.
    struct Spot {
        std::shared_ptr<File> file;
        std::u16string path;
        std::int64_t offset = 0;
        std::int64_t length = 0;
        std::size_t index = 0;  ///< of the file; part_index for the part file
    };
    static constexpr std::size_t part_index = static_cast<std::size_t>(-1);
    struct OpenFile {
        std::shared_ptr<File> file;
        std::uint64_t last_use = 0;
    };
    class Use;    ///< one read or write in hand
    class Alone;  ///< nothing is in hand but its owner's work

    // storage.cpp
    Result failure(const FileError& error, const std::u16string& path) const;
    Result take_lock(bool fresh);
    Result look_for_files();
    void find_file(std::size_t file, std::set<std::uint64_t>& seen);
    void take_free_names(const std::u16string& folder);
    /// The end of the piece's bytes in the part file; 0: it has none there.
    [[nodiscard]] std::int64_t end_in_parts(std::int64_t piece) const;
    Result remember_failure(const Result& result);
    Result sync_folders(const std::set<std::u16string>& folders);
    Result sync_file(std::size_t index);
    [[nodiscard]] bool is_synced(std::size_t file) const;
    bool sync_at_once(const std::set<std::size_t>& files, Result& result);
    void find_shared_pieces();
    [[nodiscard]] std::int64_t slot_of(std::int64_t piece) const noexcept;
    Result locate(const FileSpan& span, bool to_write, std::vector<Spot>& spots);
    Result locate_part(const FileSpan& span, bool to_write, std::vector<Spot>& spots);
    Result open_file(std::size_t file, bool to_write, std::shared_ptr<File>& opened);
    Result open_now(std::size_t file, bool to_write, std::shared_ptr<File>& opened);
    Result create_file(std::size_t file, File& created);
    void take_free_name(std::size_t file);
    [[nodiscard]] FileError make_folder_of(const std::u16string& path);
    void keep_open(std::size_t file, const std::shared_ptr<File>& opened) VANTLOW_REQUIRES(mutex_);
    [[nodiscard]] std::u16string path_of(std::size_t file) const VANTLOW_REQUIRES(mutex_);
    [[nodiscard]] std::u16string path_as(FileShape shape, std::size_t file) const VANTLOW_REQUIRES(mutex_);
    [[nodiscard]] std::u16string part_path() const VANTLOW_REQUIRES(mutex_);

    // storage_names.cpp
    Result make_partial_again(std::size_t file);
    Result rename_to_name(std::size_t file, const std::u16string& from);
    struct SharedRange;
    [[nodiscard]] std::vector<SharedRange> shared_ranges(std::size_t file) const;
    Result copy_from_parts(std::size_t file, const std::u16string& fresh, File& made);
    void remove_folders_above(const std::u16string& path);
    Result take_from_parts(std::size_t file);
    [[nodiscard]] std::u16string name_of_file(std::size_t file) const;
    [[nodiscard]] std::u16string free_name_in(const std::u16string& folder, std::u16string_view name) const;
    void remove_empty_folders(const std::u16string& top);

    const FileList files_;
    const std::int64_t piece_length_;
    LogSink& log_;
    const StorageRules rules_;
    std::vector<std::int64_t> shared_;  ///< pieces with bytes of several files, ascending; each has a slot

    Mutex making_;         ///< lets one file be made after the other; guards no datum
    mutable Mutex mutex_;  ///< guards what follows; never held across a file
    Condition free_;
    std::vector<Place> places_ VANTLOW_GUARDED_BY(mutex_);
    std::map<std::size_t, std::u16string> names_ VANTLOW_GUARDED_BY(mutex_);
    std::u16string folder_ VANTLOW_GUARDED_BY(mutex_);
    std::uint64_t folder_identity_ VANTLOW_GUARDED_BY(mutex_) = 0;
    std::map<std::size_t, OpenFile> open_ VANTLOW_GUARDED_BY(mutex_);
    std::uint64_t uses_ VANTLOW_GUARDED_BY(mutex_) = 0;
    std::set<std::size_t> unsynced_ VANTLOW_GUARDED_BY(mutex_);
    std::set<std::u16string> unsynced_folders_ VANTLOW_GUARDED_BY(mutex_);
    std::optional<Result> sync_failure_ VANTLOW_GUARDED_BY(mutex_);
    int in_hand_ VANTLOW_GUARDED_BY(mutex_) = 0;
    bool alone_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::shared_ptr<File> part_ VANTLOW_GUARDED_BY(mutex_);  ///< of a storage of several files: its lock
    std::unique_ptr<File> lock_;                             ///< of a storage of one file
    WholeDisk disk_;                                         ///< the folder's; sync() uses it
    bool is_open_ = false;
};

/// Keeps a folder's name free for a new job: makes a folder of that name, or of "name(N)", below another one.
Outcome<std::u16string> make_job_folder(const std::u16string& within, const std::u16string& name);

}  // namespace vantlow
