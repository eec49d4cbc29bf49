// The state of a storage: which pieces are good, and by which marks its files are known again.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "storage/storage.h"

namespace vantlow {

/// The mark of a file at the time of a saved state.
struct FileMark {
    static constexpr std::int64_t doubted = -2;
    std::int64_t size = -1;  ///< bytes; -1: it had no file; `doubted`: as no file has, so that all is checked
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    /// It was written to after that, perhaps, which may have changed size and time.
    bool in_work = false;
};

/// The facts that a later run may believe. A plain record.
struct StorageState {
    std::string identity;  ///< of the job's document, for example its info hash
    std::int64_t piece_length = 0;
    StoragePlaces places;
    std::vector<bool> chosen;     ///< one for each file
    std::vector<FileMark> marks;  ///< one for each file
    FileMark parts;               ///< of the part file
    std::vector<bool> good;       ///< one for each piece
    /// When it was saved, by the clock of its disk (nanoseconds since 1970); 0: not known. Not in its bytes.
    std::int64_t saved = 0;

    /// Bytes for save_storage_state(): a head with a version, numbers of 8 bytes (big endian), a SHA-256
    /// digest.
    [[nodiscard]] std::vector<std::byte> encode() const;
    /// None where the bytes are damaged, of another version, or contradict themselves.
    static std::optional<StorageState> decode(std::span<const std::byte> bytes);
};

/// Where the state of a job is saved: beside its folder or its single file.
std::u16string storage_state_path(const std::u16string& target);
/// Puts everything written so far on the disk, then the state that names the pieces in `good`, all of which
/// must have been written before the call. After a power cut the state never promises bytes that are not
/// there. A failure leaves the state that was there, which stays true. The log of the storage hears of it.
/// `is_last`: nothing is written any more before the storage is closed, so that whatever changes a file
/// afterwards is seen.
Result save_storage_state(Storage& storage, const std::string& identity, const std::vector<bool>& good,
                          const std::u16string& path, bool is_last = false);
/// None where there is no state, it is damaged, another user's, or another document's.
std::optional<StorageState> load_storage_state(const std::u16string& path, const std::string& identity);

/// Takes back what a state promises of files that are gone, shorter, or were changed by somebody else: the
/// pieces in them, which are then no longer good and are to be checked. A file that was in work at the last
/// save may have got bytes of ours afterwards: it counts as changed where that was more than two minutes
/// later, because whoever is at work saves much sooner again. The storage is open. Returns those pieces.
std::vector<std::size_t> doubt_changed_files(const Storage& storage, StorageState& state);

/// The pieces that the state does not promise and that may be good all the same, because bytes of theirs came
/// after it was saved, before a kill or onto a disk that had no room for a newer state; ascending, to be
/// checked. None where that would be more than 1 GiB: such a disk does not tell what was written. The storage
/// is open, and doubt_changed_files() has looked at the state.
std::vector<std::size_t> late_pieces(const Storage& storage, const StorageState& state);

}  // namespace vantlow
