#include "storage/relocation.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <utility>

#include "base/safe_name.h"
#include "base/text.h"
#include "platform/desktop.h"
#include "platform/file_copy.h"
#include "platform/file_layout.h"
#include "platform/file_marks.h"
#include "platform/folder.h"

namespace vantlow {
namespace {

using Item = Relocation::Item;
using State = RelocationEnd::State;

constexpr std::int64_t copy_step = 4 * 1024 * 1024;
// FAT keeps times to two seconds.
constexpr std::int64_t coarsest_time = 2'000'000'000;

/// A file that stands at its new place.
struct Placed {
    const Item* item = nullptr;
    bool is_copy = false;  ///< the old one is still there
    FileStamp stamp;       ///< of the old one, when it was copied
};

// The name of a file that is being copied: one that no download is given (safe_file_name()).
std::u16string while_copied(const Item& item) {
    return item.to + std::u16string(partial_suffix) + u".new";
}

// An earlier call made the one of the other.
bool are_twins(const FileStamp& one, const FileStamp& other) {
    return one.size == other.size && std::abs(one.modified - other.modified) < coarsest_time;
}

bool is_unchanged(const FileStamp& before, const FileStamp& now) {
    return now.there && before.size == now.size && before.modified == now.modified;
}

/// One call of relocate().
class Relocating {
  public:
    Relocating(const Relocation& relocation, const StopSource& cut, const StopSource& call_off,
               std::atomic<std::int64_t>& moved, LogSink& log)
        : relocation_(relocation), cut_(cut), call_off_(call_off), moved_(moved), log_(log) {}

    RelocationEnd run();

  private:
    FileError place(const Item& item);
    FileError place_unseen(const Item& item, const FileStamp& to);
    FileError copy(const Item& item, const FileStamp& stamp);
    FileError copy_bytes(const Item& item, const FileStamp& stamp);
    FileError look_at_room(const Item& item);
    FileError make_folder(const std::u16string& folder);
    FileError sync_folders();
    RelocationEnd take_back();
    void leave();
    void note(const std::u16string& path, const std::string& text) {
        log_.line(Direction::note, to_utf8(path) + ": " + text);
    }
    [[nodiscard]] bool is_asked_to_end() const { return cut_.requested() || call_off_.requested(); }
    FileError failed(const FileError& error, const std::u16string& path) {
        failed_at_ = path;
        return error;
    }

    const Relocation& relocation_;
    const StopSource& cut_;
    const StopSource& call_off_;
    std::atomic<std::int64_t>& moved_;
    LogSink& log_;
    std::vector<Placed> placed_;
    std::vector<std::u16string> made_;  ///< folders, the upper ones first
    std::u16string failed_at_;
    bool looked_at_room_ = false;
};

RelocationEnd Relocating::run() {
    FileError error;
    for (const Item& item : relocation_.items) {
        if (is_asked_to_end()) break;
        if (error = place(item); !error.ok()) break;
    }
    if (cut_.requested()) return {State::cut_short};
    if (error.ok() && !call_off_.requested()) error = sync_folders();
    if (error.ok() && !call_off_.requested()) {
        leave();
        return {State::moved};
    }
    RelocationEnd end = take_back();
    // Asked to end, it may have failed for that alone.
    if (end.state == State::unchanged && !call_off_.requested()) {
        end.error = error;
        end.path = failed_at_;
    }
    return end;
}

FileError Relocating::place(const Item& item) {
    const FileStamp from = file_stamp(item.from);
    const FileStamp to = file_stamp(item.to);
    if (!from.there) return place_unseen(item, to);
    if (to.there) {
        const bool is_ours =
            relocation_.goes_on && path_kind(item.to) == PathKind::file && are_twins(from, to);
        if (!is_ours) return failed({FileFault::exists, 0}, item.to);
        placed_.push_back({&item, true, from});
        moved_ += from.size;
        return {};
    }
    if (FileError error = make_folder(folder_of(item.to)); !error.ok()) return error;
    const FileError error = rename_no_replace(item.from, item.to);
    if (error.ok()) {
        placed_.push_back({&item, false, {}});
        moved_ += from.size;
        return {};
    }
    return is_other_disk(error) ? copy(item, from) : failed(error, item.from);
}

// A file that cannot be looked at is not one that is not there: the system is asked to rename it.
FileError Relocating::place_unseen(const Item& item, const FileStamp& to) {
    if (path_kind(item.from) != PathKind::none) return failed({FileFault::access, 0}, item.from);
    const FileError error = rename_no_replace(item.from, item.to);
    // Between two disks the system does not even look.
    const bool is_gone = error.fault == FileFault::not_found || is_other_disk(error);
    if (!error.ok() && !is_gone) return failed(error, item.from);
    // It went a moment ago, or an earlier call took it there.
    if (error.ok() || (relocation_.goes_on && to.there)) {
        placed_.push_back({&item, false, {}});
        moved_ += to.size;
    }
    return {};
}

FileError Relocating::copy(const Item& item, const FileStamp& stamp) {
    if (path_kind(item.from) != PathKind::file) return failed({FileFault::is_folder, 0}, item.from);
    if (FileError error = look_at_room(item); !error.ok()) return failed(error, folder_of(item.to));
    const std::u16string fresh = while_copied(item);
    FileError error = copy_bytes(item, stamp);
    if (error.ok() && !is_unchanged(stamp, file_stamp(item.from)))
        error = failed({FileFault::in_use, 0}, item.from);
    if (error.ok() && !is_asked_to_end()) {
        if (const FileError lost = copy_marks(item.from, fresh); !lost.ok())
            note(item.to, "its time could not be set: " + lost.text());
        error = rename_no_replace(fresh, item.to);
        if (error.ok()) {
            if (item.hidden) hide_file(item.to);
            placed_.push_back({&item, true, stamp});
            return {};
        }
        error = failed(error, item.to);
    }
    static_cast<void>(remove_file(fresh));
    return error;
}

// Only what is there is copied: an unfinished file is mostly holes.
FileError Relocating::copy_bytes(const Item& item, const FileStamp& stamp) {
    const std::u16string fresh = while_copied(item);
    File from;
    if (FileError error = from.open(item.from, OpenMode::read); !error.ok()) return failed(error, item.from);
    File to;
    const Privacy privacy = item.is_state ? Privacy::owner_only : Privacy::shared;
    static_cast<void>(remove_file(fresh));  // of a call that was cut short
    if (FileError error = to.open(fresh, OpenMode::create_new, privacy); !error.ok())
        return failed(error, fresh);
    allow_holes(fresh);
    std::vector<ByteRange> ranges;
    if (!list_data(item.from, ranges).ok()) ranges.assign(1, {0, stamp.size});
    for (const ByteRange& range : ranges) {
        const std::int64_t end = std::min(range.end, stamp.size);
        for (std::int64_t at = range.begin; at < end; at += copy_step) {
            if (is_asked_to_end()) return {};
            const std::int64_t part = std::min(copy_step, end - at);
            if (FileError error = to.copy_from(from, at, at, part); !error.ok())
                return failed(error, item.to);
            moved_ += part;
        }
    }
    FileError error = to.size() < stamp.size ? to.resize(stamp.size) : FileError{};
    if (error.ok()) error = to.flush();
    return error.ok() ? error : failed(error, item.to);
}

// Before the first copy, so that nobody waits for hours to hear that it was in vain.
FileError Relocating::look_at_room(const Item& item) {
    if (std::exchange(looked_at_room_, true)) return {};
    const auto room = free_space(folder_of(item.to));
    if (!room) return {};
    std::int64_t needed = 0;
    const auto& all = relocation_.items;
    for (auto at = std::find_if(all.begin(), all.end(), [&](const Item& one) { return &one == &item; });
         at != all.end(); ++at) {
        std::vector<ByteRange> ranges;
        if (file_stamp(at->to).there || !list_data(at->from, ranges).ok()) continue;
        for (const ByteRange& range : ranges) needed += range.end - range.begin;
    }
    return needed > *room ? FileError{FileFault::no_space, 0} : FileError{};
}

FileError Relocating::make_folder(const std::u16string& folder) {
    std::vector<std::u16string> missing;
    for (std::u16string at = folder; !at.empty() && path_kind(at) == PathKind::none;) {
        missing.push_back(at);
        std::u16string above = folder_of(at);
        if (above.size() >= at.size()) break;
        at = std::move(above);
    }
    if (missing.empty()) return {};
    if (FileError error = make_folders(folder); !error.ok()) return failed(error, folder);
    made_.insert(made_.end(), missing.rbegin(), missing.rend());
    return {};
}

// The new names are on the disk before the old files go.
FileError Relocating::sync_folders() {
    std::set<std::u16string> folders;
    for (const Placed& one : placed_) folders.insert(folder_of(one.item->to));
    for (const std::u16string& folder : made_) folders.insert(folder_of(folder));
    for (const std::u16string& folder : folders) {
        if (FileError error = sync_folder(folder); !error.ok()) return failed(error, folder);
    }
    return {};
}

RelocationEnd Relocating::take_back() {
    RelocationEnd end{State::unchanged};
    for (auto one = placed_.rbegin(); one != placed_.rend(); ++one) {
        const Item& item = *one->item;
        FileError error;
        if (one->is_copy) {
            error = remove_file(item.to);
            if (error.fault == FileFault::not_found) error = {};
        } else {
            error = make_folders(folder_of(item.from));
            if (error.ok()) error = rename_no_replace(item.to, item.from);
        }
        if (error.ok()) continue;
        note(item.to, "it could not be taken back: " + error.text());
        // A copy that stays is only litter, and in the way of the next attempt.
        if (!one->is_copy) end = {State::torn, error, item.to};
    }
    for (auto folder = made_.rbegin(); folder != made_.rend(); ++folder)
        static_cast<void>(remove_folder(*folder));
    return end;
}

void Relocating::leave() {
    std::set<std::u16string> folders;
    for (const Placed& one : placed_) {
        const Item& item = *one.item;
        folders.insert(folder_of(item.from));
        if (!one.is_copy) continue;
        if (!is_unchanged(one.stamp, file_stamp(item.from))) {
            note(item.from, "it was changed while it was copied, and stays.");
            continue;
        }
        if (const FileError error = remove_file(item.from); !error.ok())
            note(item.from, "it is at its new place, too, but could not be removed here: " + error.text());
    }
    for (const std::u16string& folder : folders) static_cast<void>(sync_folder(folder));
    if (relocation_.leaves.empty()) return;
    // The deepest first: a folder's path is longer than that of the one it is in.
    std::vector<std::u16string> deepest_first(folders.begin(), folders.end());
    std::stable_sort(deepest_first.begin(), deepest_first.end(),
                     [](const auto& a, const auto& b) { return a.size() > b.size(); });
    for (std::u16string folder : deepest_first) {
        while (folder.size() >= relocation_.leaves.size() && folder.starts_with(relocation_.leaves) &&
               remove_folder(folder).ok())
            folder = folder_of(folder);
    }
}

}  // namespace

RelocationEnd relocate(const Relocation& relocation, const StopSource& cut, const StopSource& call_off,
                       std::atomic<std::int64_t>& moved, LogSink& log) {
    return Relocating(relocation, cut, call_off, moved, log).run();
}

std::int64_t bytes_of(const Relocation& relocation) {
    std::int64_t bytes = 0;
    for (const Item& item : relocation.items) {
        const FileStamp from = file_stamp(item.from);
        const FileStamp stamp = from.there || !relocation.goes_on ? from : file_stamp(item.to);
        if (stamp.there && path_kind(item.from) != PathKind::folder) bytes += stamp.size;
    }
    return bytes;
}

}  // namespace vantlow
