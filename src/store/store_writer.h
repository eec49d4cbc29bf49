// The writer of a job store's files: the journal, the database, its copy and its backup.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "base/result.h"
#include "platform/file.h"
#include "store/database_files.h"
#include "store/journal.h"

namespace vantlow {

/// The bytes of a database, in pieces of about a MiB, so that none of them has to be moved when it grows.
using DatabaseImage = std::vector<std::vector<std::byte>>;

/// Writes in the order of the calls, on a thread of its own once start() was called, else at once. An append
/// to the journal does not wait for the end of a long save.
///
/// The journal always stands on an image that is, or will be, on the disk: whenever the process ends, the
/// database or its copy, with the journal's changes since, hold everything that was answered for.
class StoreWriter {
  public:
    using Ticket = std::uint64_t;
    struct Answer {
        Ticket ticket = 0;
        FileError error;   ///< the append, or the database itself
        FileError copy;    ///< of a save
        FileError backup;  ///< of a save
    };
    struct Save {
        DatabaseImage image;
        std::u16string backup;  ///< path of today's backup; empty: none
    };
    /// `in_place` (the writing thread): false once the folder is another one than the one that is owned.
    /// From then on nothing is written into what stands there, or answered for, before forget_folder().
    explicit StoreWriter(const std::u16string& folder, std::function<bool()> in_place = {})
        : path_(database_path(folder)), in_place_(std::move(in_place)) {}
    /// Ends when everything that was asked for is done.
    ~StoreWriter();
    StoreWriter(const StoreWriter&) = delete;
    StoreWriter& operator=(const StoreWriter&) = delete;

    /// From now on a thread writes, and calls `wake` when there are answers. Where the system has no thread
    /// left, the caller goes on writing, and `wake` is called by the caller's thread.
    void start(std::function<void()> wake);
    /// Does everything that was requested and ends the thread; from then on calls write at once.
    void finish();
    /// States that the database in the folder equals the store, so that a journal can build on it.
    void stand_on_database();
    /// False when nothing can be appended before the next save of the database.
    [[nodiscard]] bool can_append() const;
    /// States that the folder is another one now, about which nothing is known.
    void forget_folder();

    /// Appends one batch to the journal; answered when it is on the disk.
    Ticket append(std::span<const std::byte> payload);
    /// States that the making of the next image begins now: it holds all earlier appends.
    void begin_image();
    /// Replaces the database and its copy, and writes the backup; answered when that is on the disk. The
    /// journal then holds only what was appended since begin_image().
    Ticket save(Save what);
    /// Bytes of the journal.
    [[nodiscard]] std::uint64_t journal_size() const;

    [[nodiscard]] std::vector<Answer> take_answers();
    /// Returns when everything that was requested is done.
    void wait() const;

  private:
    struct Task {
        Ticket ticket = 0;
        std::vector<std::byte> payload;  ///< to append; empty: an image begins
        std::unique_ptr<Save> save;
    };
    Ticket ask(Task task);
    void run();
    void do_tasks();
    void do_appends();
    void answer(std::vector<Answer> answers);
    [[nodiscard]] std::vector<Task> take_appends();

    // Of who writes: the thread, or who asks.
    [[nodiscard]] FileError look_at_folder() const;
    FileError append_all(const std::vector<Task>& tasks);
    FileError begin_journal(std::vector<std::vector<std::byte>> payloads);
    FileError write_frames(const std::vector<std::span<const std::byte>>& payloads);
    Answer do_save(Ticket ticket, const Save& save);
    FileError announce(const ImageDigest& digest);
    void trim_journal();
    void break_journal(const FileError& error);
    [[nodiscard]] std::u16string journal_path() const { return path_ + std::u16string(journal_suffix); }

    const std::u16string path_;  ///< of the database
    const std::function<bool()> in_place_;
    std::function<void()> wake_;
    mutable Mutex mutex_;
    mutable Condition changed_;
    std::deque<Task> tasks_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<Answer> answers_ VANTLOW_GUARDED_BY(mutex_);
    Ticket last_ticket_ VANTLOW_GUARDED_BY(mutex_) = 0;
    bool busy_ VANTLOW_GUARDED_BY(mutex_) = false;
    bool can_append_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::uint64_t journal_size_ VANTLOW_GUARDED_BY(mutex_) = 0;
    bool stopping_ VANTLOW_GUARDED_BY(mutex_) = false;

    // Of who writes.
    File journal_;
    std::optional<JournalFrames> frames_;
    std::uint64_t end_ = 0;            ///< of the whole frames in the journal
    std::optional<ImageDigest> base_;  ///< of the database on the disk, once it was looked at
    std::uint64_t number_ = 0;         ///< of the image that is made or was made last
    bool making_image_ = false;
    FileError broken_;                           ///< why nothing can be appended before the next save
    std::vector<std::vector<std::byte>> since_;  ///< the payloads that were appended while the image was made

    std::thread thread_;
};

}  // namespace vantlow
