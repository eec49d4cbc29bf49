// The names of a storage's files: from absent to partial to finished and back, and away.
#include <algorithm>
#include <utility>

#include "base/safe_name.h"
#include "base/text.h"
#include "platform/folder.h"
#include "storage/storage.h"
#include "storage/storage_use.h"

namespace vantlow {

Outcome<std::u16string> make_job_folder(const std::u16string& within, const std::u16string& name) {
    std::u16string wanted = safe_file_name(name);
    for (;;) {
        const std::u16string path = join_path(within, wanted);
        if (path_kind(path) == PathKind::none) {
            if (FileError error = make_folders(path); !error.ok())
                return Result(Code::local_file,
                              "The folder " + to_utf8(path) + " cannot be made: " + error.text(),
                              error.system_error);
            return path;
        }
        wanted = free_name(wanted, [&](const std::u16string& candidate) {
            return path_kind(join_path(within, candidate)) != PathKind::none;
        });
    }
}

std::u16string Storage::name_of_file(std::size_t file) const {
    const MutexLock guard(mutex_);
    const auto renamed = names_.find(file);
    return renamed == names_.end() ? files_.at(file).path : renamed->second;
}

// A name beside the one that is given, under which there is neither a file nor a partial one.
std::u16string Storage::free_name_in(const std::u16string& folder, std::u16string_view name) const {
    const std::u16string within(folder_of(name));
    const std::u16string around = join_path(folder, within);
    const std::u16string free = free_name(name_of(name), [&](const std::u16string& candidate) {
        const std::u16string path = join_path(around, candidate);
        return path_kind(path) != PathKind::none ||
               path_kind(path + std::u16string(partial_suffix)) != PathKind::none;
    });
    return join_path(within, free);
}

// Somebody may have taken the name meanwhile; theirs stays.
Result Storage::rename_to_name(std::size_t file, const std::u16string& from) {
    const std::u16string folder = places().folder;
    std::u16string name = name_of_file(file);
    for (;;) {
        const FileError error = rename_no_replace(from, join_path(folder, name));
        if (error.ok()) break;
        if (error.fault != FileFault::exists) return failure(error, join_path(folder, name));
        name = free_name_in(folder, name);
        log_.line(Direction::note, "The file is saved as " + to_utf8(join_path(folder, name)));
    }
    const MutexLock guard(mutex_);
    places_[file].shape = FileShape::finished;
    if (name != files_.at(file).path) names_[file] = name;
    return {};
}

Result Storage::finish(std::size_t file) {
    const FileShape before = shape(file);
    if (files_.at(file).padding || before == FileShape::finished) return {};
    if (before == FileShape::absent && !is_chosen(file))
        return {Code::unsupported, "The file is not chosen."};
    std::u16string partial;
    {
        const Use use(*this);
        std::shared_ptr<File> opened;
        if (Result result = open_file(file, true, opened); !result.ok()) return result;
        partial = path(file);
        const std::int64_t length = files_.at(file).length;
        bool is_safe = before != FileShape::absent && is_synced(file);
        if (opened->size() != length) {
            is_safe = false;
            if (FileError error = opened->resize(length); !error.ok()) return failure(error, partial);
        }
        // A power cut must not leave a whole name with half a file.
        if (!is_safe) {
            if (FileError error = opened->flush(); !error.ok()) return failure(error, partial);
        }
    }
    const Alone alone(*this);
    if (Result result = rename_to_name(file, partial); !result.ok()) return result;
    const std::u16string folder(folder_of(path(file)));
    const MutexLock guard(mutex_);
    unsynced_.erase(file);
    unsynced_folders_.insert(folder);
    return {};
}

bool Storage::is_synced(std::size_t file) const {
    const MutexLock guard(mutex_);
    return !unsynced_.contains(file);
}

// It gets bytes again, because some that stood under its name were wrong.
Result Storage::make_partial_again(std::size_t file) {
    const Alone alone(*this);
    std::u16string from;
    std::u16string to;
    {
        const MutexLock guard(mutex_);
        if (places_[file].shape != FileShape::finished) return {};
        from = path_of(file);
        to = path_as(FileShape::partial, file);
        open_.erase(file);  // it may be open for reading only
    }
    if (FileError error = rename_no_replace(from, to); !error.ok()) return failure(error, from);
    const MutexLock guard(mutex_);
    places_[file].shape = FileShape::partial;
    return {};
}

/// A range of a file that stands in a piece which it shares.
struct Storage::SharedRange {
    std::int64_t in_parts = 0;  ///< where its bytes are in the part file
    std::int64_t in_file = 0;
    std::int64_t length = 0;
};

std::vector<Storage::SharedRange> Storage::shared_ranges(std::size_t file) const {
    std::vector<SharedRange> ranges;
    const ListedFile& listed = files_.at(file);
    if (listed.length == 0) return ranges;
    const std::int64_t end = listed.offset + listed.length;
    // A file shares its first and its last piece at most.
    const std::set<std::int64_t> pieces{listed.offset / piece_length_, (end - 1) / piece_length_};
    for (const std::int64_t piece : pieces) {
        const std::int64_t slot = slot_of(piece);
        const std::int64_t begin = std::max(listed.offset, piece * piece_length_);
        const std::int64_t length = std::min(end, (piece + 1) * piece_length_) - begin;
        if (slot >= 0)
            ranges.push_back({slot + begin - piece * piece_length_, begin - listed.offset, length});
    }
    return ranges;
}

// Copies what the part file has of a file; `made` stays closed where that is nothing.
Result Storage::copy_from_parts(std::size_t file, const std::u16string& fresh, File& made) {
    std::shared_ptr<File> part;
    std::u16string source;
    {
        const MutexLock guard(mutex_);
        part = part_;
        source = part_path();
    }
    if (!part) return {};
    const std::int64_t there = part->size();
    if (there < 0) return failure({FileFault::other, 0}, source);
    for (const SharedRange& range : shared_ranges(file)) {
        const std::int64_t length = std::min(range.length, there - range.in_parts);
        if (length <= 0) continue;
        FileError error;
        if (!made.is_open()) {
            error = make_folder_of(fresh);
            if (error.ok()) error = made.open(fresh, OpenMode::truncate);
            allow_holes(fresh);
        }
        if (error.ok()) error = made.copy_from(*part, range.in_parts, range.in_file, length);
        if (!error.ok()) return failure(error, fresh);
    }
    return {};
}

// The bytes are put on the disk under another name before the file gets its own: until then the part file is
// where they are looked for, also after a power cut.
Result Storage::take_from_parts(std::size_t file) {
    if (path_kind(path(file)) != PathKind::none) take_free_name(file);
    const std::u16string target = path(file);
    const std::u16string fresh = target + u".new";
    File made;
    Result result = copy_from_parts(file, fresh, made);
    if (result.ok() && !made.is_open()) return {};
    if (result.ok()) {
        FileError error = rules_.allocate ? made.allocate(files_.at(file).length) : FileError{};
        if (error.ok()) error = made.flush();
        made.close();
        if (error.ok()) error = rename_no_replace(fresh, target);
        if (error.ok()) error = sync_folder(std::u16string(folder_of(target)));
        if (!error.ok()) result = failure(error, target);
    }
    if (!result.ok()) {
        made.close();
        static_cast<void>(remove_file(fresh));
        return result;
    }
    const MutexLock guard(mutex_);
    places_[file].shape = FileShape::partial;
    return {};
}

Result Storage::choose(std::size_t file, bool chosen) {
    if (files_.at(file).padding || is_chosen(file) == chosen) return {};
    const Alone alone(*this);
    if (chosen && shape(file) == FileShape::absent) {
        if (Result result = take_from_parts(file); !result.ok()) return result;
    }
    const MutexLock guard(mutex_);
    places_[file].chosen = chosen;
    return {};
}

Result Storage::put_back(std::size_t file) {
    const Alone alone(*this);
    std::shared_ptr<File> part;
    std::u16string path;
    std::u16string parts;
    {
        const MutexLock guard(mutex_);
        const Place& place = places_[file];
        part = part_;
        if (!part || place.chosen || place.shape != FileShape::partial) return {};
        path = path_of(file);
        parts = part_path();
        open_.erase(file);
    }
    File whole;
    if (FileError error = whole.open(path, OpenMode::read); !error.ok()) return failure(error, path);
    for (const SharedRange& range : shared_ranges(file)) {
        const std::int64_t length = std::min(range.length, whole.size() - range.in_file);
        if (length <= 0) continue;
        FileError error = part->copy_from(whole, range.in_file, range.in_parts, length);
        if (!error.ok()) return failure(error, parts);
    }
    if (FileError error = part->flush(); !error.ok()) return failure(error, parts);
    whole.close();
    if (FileError error = remove_file(path); !error.ok()) return failure(error, path);
    {
        const MutexLock guard(mutex_);
        places_[file].shape = FileShape::absent;
        unsynced_.erase(file);
    }
    remove_folders_above(path);
    return {};
}

// As far as they are empty now.
void Storage::remove_folders_above(const std::u16string& path) {
    const std::u16string top = places().folder;
    std::u16string folder(folder_of(path));
    while (folder.size() > top.size() && remove_folder(folder).ok()) folder = folder_of(folder);
}

// Folders in which somebody else has something stay.
void Storage::remove_empty_folders(const std::u16string& top) {
    std::set<std::u16string> folders;
    for (std::size_t file = 0; file < files_.count(); ++file) {
        std::u16string within(folder_of(files_.at(file).path));
        while (!within.empty() && folders.insert(join_path(top, within)).second)
            within = std::u16string(folder_of(within));
    }
    // A folder's path is longer than that of the one it is in.
    std::vector<std::u16string> deepest_first(folders.begin(), folders.end());
    std::stable_sort(deepest_first.begin(), deepest_first.end(),
                     [](const auto& a, const auto& b) { return a.size() > b.size(); });
    if (files_.count() > 1) deepest_first.push_back(top);
    for (const std::u16string& folder : deepest_first) static_cast<void>(remove_folder(folder));
}

Result Storage::remove(const std::function<bool(std::size_t)>& is_own) {
    std::vector<std::u16string> paths;
    const std::u16string folder = places().folder;
    for (std::size_t file = 0; file < files_.count(); ++file) {
        if (shape(file) != FileShape::absent && is_own(file)) paths.push_back(path(file));
    }
    {
        const MutexLock guard(mutex_);
        if (part_) paths.push_back(part_path());
    }
    close();
    Result first;
    for (const std::u16string& path : paths) {
        const FileError error = remove_file(path);
        if (error.ok() || error.fault == FileFault::not_found) continue;
        Result failed = failure(error, path);
        if (first.ok()) first = std::move(failed);
    }
    remove_empty_folders(folder);
    const MutexLock guard(mutex_);
    for (Place& place : places_) place.shape = FileShape::absent;
    return first;
}

}  // namespace vantlow
