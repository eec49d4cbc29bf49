// The files of a torrent job: found or begun, checked, saved, finished, removed.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bt/torrent_content.h"
#include "platform/file_marks.h"
#include "platform/stop.h"
#include "storage/checker.h"
#include "storage/relocation.h"
#include "storage/storage.h"

namespace vantlow {

struct StorageState;

/// The place of a torrent's files as the job's record knows it.
struct TorrentPlace {
    /// Of the file or the folder; ends with a separator while nothing but the job's folder is known.
    std::u16string path;
    std::u16string name;  ///< that was asked for; empty: the torrent's own
    bool adopts = false;  ///< files of that name are taken over where they are all of the torrent's
    /// The files were whole then (seconds since 1970), see TorrentSharing::whole_since.
    std::optional<std::int64_t> whole_since{};
    /// Some of them were whole then, and more are chosen now; 0: none were.
    std::int64_t some_since = 0;
};

/// A torrent of one file has it in the job's folder, one of several has a folder of its own there. Beside
/// that stands the state by which a later run continues. One thread calls, but for what storage() may be
/// used for.
class TorrentFiles {
  public:
    /// All outlive the object.
    TorrentFiles(const TorrentContent& content, const PieceHashSource& hashes, LogSink& log,
                 StorageRules rules, bool keeps_state)
        : content_(content), hashes_(hashes), log_(log), rules_(rules), keeps_state_(keeps_state) {}

    /// Opens what an earlier run left there and checks what of it is doubtful, or begins anew under names
    /// that are free; files that were whole are opened or it is said what is wrong with them. The stop's
    /// reason where that comes first.
    Result open(const TorrentPlace& place, const std::vector<bool>& chosen, const StopSource& stop,
                CheckProgress& progress);
    /// Other files are chosen from now on: they get the bytes that the part file has of them. Of those that
    /// are not chosen any more the ones that have a piece of their own, among those that `holds` names, keep
    /// their unfinished file; the others go. Saves which pieces are good in between, so that a crash costs
    /// none of them. On any thread, while nothing is saved.
    Result choose(const std::vector<bool>& chosen, const std::vector<bool>& good,
                  const std::vector<bool>& holds);
    /// Saves which pieces are good, after their bytes. A failure after which the bytes themselves may be lost
    /// sets `is_lost`. `is_last`: nothing is written any more before the files are closed. On any thread, one
    /// call at a time.
    Result save(const std::vector<bool>& good, bool& is_lost, bool is_last = false);
    /// Every file that is whole by the good pieces takes its name, with the mark of its origin where there is
    /// one, and the state goes. target() does not change before take_names(). On any thread,
    /// while nothing is saved.
    Result finish(const std::vector<bool>& good, const std::optional<FileOrigin>& origin,
                  const StopSource& stop);
    void take_names();
    /// The part of files that are not chosen goes, once the others have their names.
    void close(bool keeps_parts = true);

    [[nodiscard]] Storage& storage() noexcept { return *storage_; }
    [[nodiscard]] const Storage& storage() const noexcept { return *storage_; }
    [[nodiscard]] bool is_open() const noexcept { return storage_.has_value(); }
    /// The pieces that were good when it was opened.
    [[nodiscard]] const std::vector<bool>& good() const noexcept { return good_; }
    /// The path of the file or the folder, without the suffix of unfinished ones.
    [[nodiscard]] const std::u16string& target() const noexcept { return target_; }
    /// Bytes of the chosen files.
    [[nodiscard]] std::int64_t chosen_bytes() const;
    /// Those of them that stand in a piece.
    [[nodiscard]] std::int64_t chosen_bytes_of(std::int64_t piece) const;

  private:
    Result make_storage(const std::u16string& name, const std::vector<bool>& chosen);
    Result resume(const TorrentPlace& place, const std::u16string& target, bool is_ours,
                  const std::vector<bool>& chosen, const StopSource& stop, CheckProgress& progress);
    Result check(const std::optional<StorageState>& state, std::int64_t some_since, const StopSource& stop,
                 CheckProgress& progress);
    Result begin(const std::u16string& folder, const std::u16string& name, const std::vector<bool>& chosen);
    Result open_whole(const TorrentPlace& place, const std::vector<bool>& chosen, const StopSource& stop,
                      CheckProgress& progress);
    [[nodiscard]] std::vector<FileSpan> spans_of(std::int64_t piece) const;
    [[nodiscard]] std::vector<std::size_t> doubt(std::int64_t whole_since);
    [[nodiscard]] bool is_whole() const;
    [[nodiscard]] bool are_finished_ones_right() const;
    bool disown_others(const StorageState& state);
    template <class Test>
    [[nodiscard]] bool has_piece(std::size_t file, const Test& test) const;

    const TorrentContent& content_;
    const PieceHashSource& hashes_;
    LogSink& log_;
    const StorageRules rules_;
    const bool keeps_state_;
    std::optional<Storage> storage_;
    std::vector<bool> good_;
    std::u16string target_;
};

/// Removes what a torrent's job has written below `target`, and its state; files of the torrent's names that
/// are not the job's own (`finished` as in torrent_relocation()) stay. The first failure, where there is one.
Result remove_torrent_files(const TorrentContent& content, const std::u16string& target,
                            std::int64_t finished);

/// The way of a torrent's files, with its state, from one target to another: those that are the job's own, as
/// is_anothers_file() knows them (`finished` is the record's time); the log hears which are not. A folder is
/// renamed whole. `goes_on` as in Relocation. On any thread, while no session uses the files.
Outcome<Relocation> torrent_relocation(const TorrentContent& content, const std::u16string& from,
                                       const std::u16string& to, std::int64_t finished, bool goes_on,
                                       LogSink& log);

/// Has the next session of the job that fetched a torrent to `target` check every piece there, and fetch
/// again what is wrong. A session must not use the files meanwhile.
Result doubt_torrent_files(const TorrentContent& content, const std::u16string& target);

/// How much of a torrent is on the disk.
struct TorrentCheck {
    std::int64_t pieces = 0;  ///< of the torrent
    std::int64_t good = 0;    ///< of them, whole and right
    std::int64_t bytes = 0;   ///< in the good ones, padding included
};

/// Holds the torrent's files at `target`, finished or not, against their hashes, on all processors. A target
/// that ends with a separator is a folder in which an earlier run, or somebody else, has put them. Nothing is
/// changed, and a session may use them meanwhile. `local_file` where there is nothing; the stop's reason
/// where it comes.
Outcome<TorrentCheck> check_torrent_files(const TorrentContent& content, const PieceHashSource& hashes,
                                          const std::u16string& target, const StopSource& stop);

}  // namespace vantlow
