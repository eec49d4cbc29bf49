// Files at rest that go to another place as one: all of them, or none.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "base/log.h"
#include "platform/file.h"
#include "platform/stop.h"

namespace vantlow {

/// The files and where they go. A plain record.
struct Relocation {
    struct Item {
        std::u16string from;
        std::u16string to;
        bool hidden = false;    ///< out of people's sight, where a system wants to be told
        bool is_state = false;  ///< for this user alone, as states beside files are
    };
    /// In the order in which they go; one that is not there is passed over. A folder goes whole, and only
    /// where that takes no copying.
    std::vector<Item> items;
    /// Folders below this one, and itself, that are empty in the end are removed; empty: none are.
    std::u16string leaves;
    /// An earlier call with the same items was cut short: what stands at its new place already is this
    /// one's.
    bool goes_on = false;
};

/// How a relocation ended.
struct RelocationEnd {
    enum class State {
        moved,      ///< all is at its new place
        unchanged,  ///< all is where it was: it failed (`error`), or was called off
        cut_short,  ///< the program ends: some of it is at either place, and the call is to be repeated
        torn        ///< it failed, and what had gone could not come back: likewise
    };
    State state = State::moved;
    FileError error{};
    std::u16string path{};  ///< that the error is about
};

/// Moves files that nobody works on: by their names where the disk stays the same, else as copies, which are
/// on the disk with all of their bytes, times and rights before the first of the old ones is removed. No file
/// is ever replaced: one that is in the way ends it. Until the end every file stands at one of its two
/// places, whatever comes (a kill, a power cut), so that the call can be repeated with `goes_on`. A failure
/// takes back what was done. An old file that somebody changes meanwhile stays beside its copy; so does one
/// that cannot be removed. Both are noted in the log.
///
/// `cut` ends it as it is, `call_off` takes it back; both are looked at every 4 MiB. `moved` counts bytes.
RelocationEnd relocate(const Relocation& relocation, const StopSource& cut, const StopSource& call_off,
                       std::atomic<std::int64_t>& moved, LogSink& log);

/// The bytes of the files, as they are now.
std::int64_t bytes_of(const Relocation& relocation);

}  // namespace vantlow
