// Moving the files of a storage while they are read and written.
#include <algorithm>
#include <utility>

#include "base/safe_name.h"
#include "base/text.h"
#include "storage/storage.h"
#include "storage/storage_use.h"

namespace vantlow {
namespace {

constexpr std::int64_t copy_step = 4 * 1024 * 1024;
// Others wait while the last changes are copied: at most so many bytes.
constexpr std::int64_t last_changes = 8 * 1024 * 1024;
constexpr int most_rounds = 20;
// Of a file that is being copied.
constexpr std::u16string_view copy_suffix = u".new";

}  // namespace

/// A file that is being copied to the other folder.
struct Storage::Copying {
    std::size_t file = 0;
    std::shared_ptr<File> from;
    std::u16string from_path;
    File to;
    std::u16string to_path;  ///< while it is copied
};

void Storage::begin_move(const std::u16string& folder) {
    const Alone alone(*this);
    {
        const MutexLock guard(mutex_);
        const bool way_back = roots_[0] == folder && !roots_[1].empty();
        if (way_back) {
            std::swap(roots_[0], roots_[1]);
            for (Place& place : places_) place.root ^= 1U;
            part_root_ ^= 1U;
        }
        roots_[1] = folder;
        // A file that is not there yet is begun there.
        for (Place& place : places_) {
            if (place.shape == FileShape::absent) place.root = 1;
        }
    }
    remember_roots();
}

void Storage::end_move() {
    std::u16string left;
    {
        const Alone alone(*this);
        disk_.close();  // it knows nothing of writes to the other one
        const MutexLock guard(mutex_);
        left = std::exchange(roots_[0], std::exchange(roots_[1], {}));
        root_identities_ = {root_identities_[1], 0};
        for (Place& place : places_) place.root = 0;
        part_root_ = 0;
    }
    remove_empty_folders(left);
}

std::vector<std::size_t> Storage::files_to_move() const {
    std::vector<std::size_t> files;
    const MutexLock guard(mutex_);
    for (std::size_t file = 0; file < places_.size(); ++file) {
        if (places_[file].shape != FileShape::absent && places_[file].root == 0) files.push_back(file);
    }
    // The part file is last: it says where the others are looked for first.
    if (part_ && part_root_ == 0) files.push_back(part_index);
    return files;
}

Result Storage::move_to(const std::u16string& folder, const StopSource& stop,
                        std::atomic<std::int64_t>& moved) {
    const StoragePlaces at = places();
    if (at.other_folder.empty() && at.folder == folder) return {};
    if (!at.other_folder.empty() && folder != at.folder && folder != at.other_folder)
        return {Code::unsupported,
                "The files are on their way to another folder: " + to_utf8(at.other_folder)};
    if (FileError error = make_folders(folder); !error.ok()) return failure(error, folder);
    begin_move(folder);
    for (const std::size_t file : files_to_move()) {
        if (stop.requested()) return stop.reason();
        if (Result result = move_file(file, stop, moved); !result.ok()) return result;
    }
    end_move();
    return {};
}

Result Storage::move_file(std::size_t file, const StopSource& stop, std::atomic<std::int64_t>& moved) {
    FileError error;
    if (Result result = rename_file(file, error); !result.ok()) return result;
    if (is_other_disk(error)) return copy_file(file, stop, moved);
    if (file != part_index) moved += files_.at(file).length;
    return {};
}

// Open files stay open under their new names, on both systems. `error` is that of two disks, or none.
Result Storage::rename_file(std::size_t file, FileError& error) {
    const Alone alone(*this);
    std::u16string from;
    std::u16string to;
    {
        const MutexLock guard(mutex_);
        from = file == part_index ? part_path(0) : path_of(file);
        to = file == part_index ? part_path(1) : path_in(1, file, places_[file].shape);
    }
    error = make_folder_of(1, to);
    if (!error.ok()) return failure(error, to);
    std::u16string name;
    error = rename_over(file, from, name);
    if (is_other_disk(error)) return {};
    if (!error.ok()) return failure(error, to);
    const MutexLock guard(mutex_);
    if (file == part_index) {
        part_root_ = 1;
    } else {
        places_[file].root = 1;
        if (name != files_.at(file).path) names_[file] = name;
    }
    unsynced_folders_.insert(std::u16string(folder_of(to)));
    unsynced_folders_.insert(std::u16string(folder_of(from)));
    return {};
}

// Gives a file its place in the other folder, under a free name where its own is taken there.
FileError Storage::rename_over(std::size_t file, const std::u16string& from, std::u16string& name) {
    const std::u16string root = places().other_folder;
    if (file == part_index) {
        name = std::u16string(name_of(from));
        if (name.ends_with(copy_suffix)) name.resize(name.size() - copy_suffix.size());
        return rename_no_replace(from, join_path(root, name));
    }
    const bool partial = shape(file) != FileShape::finished;
    name = name_of_file(file);
    for (;;) {
        std::u16string to = join_path(root, name);
        if (partial) to += partial_suffix;
        FileError error = rename_no_replace(from, to);
        if (error.fault != FileFault::exists) return error;
        name = free_name_in(root, name);
    }
}

Result Storage::copy_file(std::size_t file, const StopSource& stop, std::atomic<std::int64_t>& moved) {
    Copying copy;
    copy.file = file;
    {
        const Alone alone(*this);
        if (file != part_index) {
            if (Result result = open_file(file, false, copy.from); !result.ok()) return result;
        }
        const MutexLock guard(mutex_);
        if (file == part_index) copy.from = part_;
        copy.from_path = file == part_index ? part_path(0) : path_of(file);
        copy.to_path = (file == part_index ? part_path(1) : path_in(1, file, FileShape::partial));
        copy.to_path += copy_suffix;
        copying_ = file;
        changed_.clear();
    }
    Result result;
    if (FileError error = copy.to.open(copy.to_path, OpenMode::truncate); !error.ok())
        result = failure(error, copy.to_path);
    allow_holes(copy.to_path);
    if (result.ok()) result = copy_all(copy, stop, moved);
    if (result.ok()) result = switch_to_copy(copy);
    if (!result.ok()) {
        copy.to.close();
        static_cast<void>(remove_file(copy.to_path));
    }
    const MutexLock guard(mutex_);
    copying_ = no_file;
    changed_.clear();
    return result;
}

// Copies what is there, then what changed meanwhile, until little is left.
Result Storage::copy_all(Copying& copy, const StopSource& stop, std::atomic<std::int64_t>& moved) {
    std::vector<ByteRange> ranges;
    if (!list_data(copy.from_path, ranges).ok()) ranges.assign(1, {0, copy.from->size()});
    const std::int64_t size = copy.from->size();
    if (size < 0) return failure({FileFault::other, 0}, copy.from_path);
    if (rules_.allocate && copy.file != part_index) {
        if (FileError error = copy.to.allocate(size); !error.ok()) return failure(error, copy.to_path);
    }
    for (const ByteRange& range : ranges) {
        const std::int64_t end = std::min(range.end, size);
        for (std::int64_t at = range.begin; at < end; at += copy_step) {
            if (stop.requested()) return stop.reason();
            const std::int64_t part = std::min(copy_step, end - at);
            if (FileError error = copy.to.copy_from(*copy.from, at, at, part); !error.ok())
                return failure(error, copy.to_path);
            moved += part;
        }
    }
    for (int round = 0; round < most_rounds; ++round) {
        if (FileError error = copy.to.flush(); !error.ok()) return failure(error, copy.to_path);
        std::int64_t changed = 0;
        {
            const MutexLock guard(mutex_);
            for (const ByteRange& range : changed_) changed += range.end - range.begin;
        }
        if (changed <= last_changes) break;
        if (stop.requested()) return stop.reason();
        if (Result result = copy_changes(copy); !result.ok()) return result;
    }
    return {};
}

Result Storage::copy_changes(Copying& copy) {
    std::vector<ByteRange> ranges;
    {
        const MutexLock guard(mutex_);
        ranges.swap(changed_);
    }
    const std::int64_t size = copy.from->size();
    for (const ByteRange& range : ranges) {
        const std::int64_t end = std::min(range.end, size);  // a write that failed may not have come so far
        if (end <= range.begin) continue;
        if (FileError error = copy.to.copy_from(*copy.from, range.begin, range.begin, end - range.begin);
            !error.ok())
            return failure(error, copy.to_path);
    }
    return {};
}

Result Storage::switch_to_copy(Copying& copy) {
    const Alone alone(*this);
    if (Result result = copy_changes(copy); !result.ok()) return result;
    const std::int64_t size = copy.from->size();
    FileError error = size < 0 ? FileError{FileFault::other, 0} : copy.to.resize(size);
    if (error.ok()) error = copy.to.flush();
    const bool is_part = copy.file == part_index;
    if (error.ok() && (is_part || files_.count() == 1) && !copy.to.try_lock()) error = {FileFault::in_use, 0};
    const std::u16string from = is_part ? copy.from_path : path(copy.file);
    std::u16string name;
    if (error.ok()) error = rename_over(copy.file, copy.to_path, name);
    if (error.ok()) error = sync_folder(std::u16string(folder_of(copy.to_path)));
    if (!error.ok()) return failure(error, copy.to_path);  // the old one stays the one that counts
    {
        const MutexLock guard(mutex_);
        unsynced_.erase(copy.file);
        if (is_part) {
            part_ = std::make_shared<File>(std::move(copy.to));
            part_root_ = 1;
            name = part_path(1);
        } else {
            places_[copy.file].root = 1;
            open_.erase(copy.file);
            if (name != files_.at(copy.file).path) names_[copy.file] = name;
        }
    }
    copy.from.reset();
    if (!is_part && files_.count() == 1) lock_ = std::make_unique<File>(std::move(copy.to));
    // Both hold the same bytes: one that cannot be removed is only litter.
    if (const FileError left = remove_file(from); !left.ok())
        log_.line(Direction::note, "The file " + to_utf8(from) + " could not be removed: " + left.text());
    if (is_part) hide_file(name);
    return {};
}

}  // namespace vantlow
