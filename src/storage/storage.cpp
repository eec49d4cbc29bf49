#include "storage/storage.h"

#include <algorithm>
#include <utility>

#include "base/safe_name.h"
#include "base/string_table.h"
#include "base/text.h"
#include "platform/file_marks.h"
#include "storage/storage_use.h"

namespace vantlow {
namespace {

constexpr std::size_t many_files = 200;

bool is_there(const std::u16string& path) {
    return path_kind(path) != PathKind::none;
}

std::u16string partial_of(std::u16string path) {
    return path += partial_suffix;
}

}  // namespace

Storage::Storage(FileList files, std::vector<bool> chosen, std::int64_t piece_length, LogSink& log,
                 StorageRules rules)
    : files_(std::move(files)), piece_length_(piece_length), log_(log), rules_(rules) {
    places_.resize(files_.count());
    for (std::size_t file = 0; file < places_.size(); ++file)
        places_[file].chosen = (file >= chosen.size() || chosen[file]) && !files_.at(file).padding;
    find_shared_pieces();
}

// A piece is shared where a file with bytes begins within it and another one ends.
void Storage::find_shared_pieces() {
    std::int64_t last_piece = -1;  // of the last byte of the file before
    for (std::size_t file = 0; file < files_.count(); ++file) {
        const ListedFile& listed = files_.at(file);
        if (listed.length == 0 || listed.padding) continue;
        const std::int64_t piece = listed.offset / piece_length_;
        if (piece == last_piece && (shared_.empty() || shared_.back() != piece)) shared_.push_back(piece);
        last_piece = (listed.offset + listed.length - 1) / piece_length_;
    }
}

// Where a shared piece stands in the part file; -1 for other pieces. It depends on nothing but the list of
// files, so that nobody has to keep it.
std::int64_t Storage::slot_of(std::int64_t piece) const noexcept {
    const auto at = std::lower_bound(shared_.begin(), shared_.end(), piece);
    return at == shared_.end() || *at != piece ? -1 : (at - shared_.begin()) * piece_length_;
}

Result Storage::failure(const FileError& error, const std::u16string& path) const {
    const std::string text =
        std::string(message_text(Message::writing_error)) + " (" + to_utf8(path) + ": " + error.text() + ")";
    log_.line(Direction::error, text);
    return {Code::local_file, text, error.system_error};
}

std::u16string Storage::part_path() const {
    return join_path(folder_, part_name());
}

std::u16string Storage::path_as(FileShape shape, std::size_t file) const {
    const auto renamed = names_.find(file);
    const std::u16string whole =
        join_path(folder_, renamed == names_.end() ? files_.at(file).path : renamed->second);
    return shape == FileShape::finished ? whole : partial_of(whole);
}

std::u16string Storage::path_of(std::size_t file) const {
    return path_as(places_[file].shape, file);
}

Result Storage::begin(const std::u16string& folder) {
    {
        const MutexLock guard(mutex_);
        folder_ = folder;
        names_.clear();
    }
    if (FileError error = make_folders(folder); !error.ok()) return failure(error, folder);
    take_free_names(folder);
    return take_lock(true);
}

Result Storage::resume(const StoragePlaces& places) {
    {
        const MutexLock guard(mutex_);
        folder_ = places.folder;
        names_ = places.names;
        std::erase_if(names_, [this](const auto& name) { return name.first >= files_.count(); });
    }
    if (path_kind(places.folder) != PathKind::folder)
        return failure({FileFault::folder_lost, 0}, places.folder);
    if (Result result = look_for_files(); !result.ok()) return result;
    return take_lock(false);
}

// Files of others keep their names.
void Storage::take_free_names(const std::u16string& folder) {
    std::map<std::size_t, std::u16string> names;
    for (std::size_t file = 0; file < files_.count(); ++file) {
        if (files_.at(file).padding) continue;
        const std::u16string path = join_path(folder, files_.at(file).path);
        if (!is_there(path) && !is_there(partial_of(path))) continue;
        names[file] = free_name_in(folder, files_.at(file).path);
        log_.line(Direction::note, message_text(Message::destination_exists));
    }
    const MutexLock guard(mutex_);
    names_ = std::move(names);
}

Result Storage::look_for_files() {
    std::set<std::uint64_t> seen;
    for (std::size_t file = 0; file < files_.count(); ++file) {
        if (!files_.at(file).padding) find_file(file, seen);
    }
    return {};
}

// While there is an unfinished file, a whole one is somebody else's. `seen`: the files of names with letters
// beyond ASCII, which are one file for some systems where others tell them apart.
void Storage::find_file(std::size_t file, std::set<std::uint64_t>& seen) {
    for (const FileShape shape : {FileShape::partial, FileShape::finished}) {
        std::u16string path;
        {
            const MutexLock guard(mutex_);
            path = path_as(shape, file);
        }
        if (path_kind(path) != PathKind::file) continue;
        const bool is_plain = std::ranges::all_of(files_.at(file).path, [](char16_t c) { return c < 0x80; });
        if (!is_plain) {
            const std::uint64_t identity = file_stamp(path).identity;
            if (identity != 0 && !seen.insert(identity).second) continue;
        }
        const MutexLock guard(mutex_);
        places_[file].shape = shape;
        // The run that wrote it may have ended before its bytes were on the disk.
        if (shape == FileShape::partial) unsynced_.insert(file);
        return;
    }
}

// A storage of one file locks that file, one of several its part file.
Result Storage::take_lock(bool fresh) {
    std::u16string path;
    const bool has_parts = files_.count() > 1;
    const bool finished = !has_parts && shape(0) == FileShape::finished;
    const std::u16string folder = places().folder;
    const std::uint64_t identity = file_stamp(folder).identity;
    {
        const MutexLock guard(mutex_);
        path = has_parts ? part_path() : path_of(0);
        folder_identity_ = identity;
    }
    auto file = std::make_shared<File>();
    if (rules_.looks_only) {
        const bool has_found = has_parts && file->open(path, OpenMode::read).ok();
        const MutexLock guard(mutex_);
        is_open_ = true;
        if (has_found) part_ = std::move(file);
        return {};
    }
    disk_.open(folder);
    const OpenMode mode = finished              ? OpenMode::read
                          : fresh && !has_parts ? OpenMode::create_new
                                                : OpenMode::write;
    FileError error = make_folders(std::u16string(folder_of(path)));
    if (error.ok()) error = file->open_alone(path, mode);
    // Of one torrent, say, that was added twice.
    if (error.fault == FileFault::in_use)
        return {Code::local_file, to_utf8(has_parts ? folder : path) + ": in use by another download."};
    if (!error.ok()) return failure(error, path);
    allow_holes(path);
    if (has_parts) hide_file(path);
    const MutexLock guard(mutex_);
    is_open_ = true;
    if (has_parts) {
        part_ = std::move(file);
        if (!fresh) unsynced_.insert(part_index);
        return {};
    }
    if (places_[0].shape == FileShape::absent) places_[0].shape = FileShape::partial;
    lock_ = std::make_unique<File>(std::move(*file));
    return {};
}

void Storage::close(bool keeps_parts) {
    if (!is_open_) return;
    const Alone alone(*this);
    std::u16string parts;
    std::map<std::size_t, OpenFile> closing;
    std::shared_ptr<File> part;
    bool may_hold_bytes = false;
    {
        const MutexLock guard(mutex_);
        closing.swap(open_);
        part = std::exchange(part_, nullptr);
        for (std::size_t file = 0; file < places_.size(); ++file) {
            const bool is_kept_there = !places_[file].chosen && places_[file].shape == FileShape::absent;
            may_hold_bytes = may_hold_bytes || (is_kept_there && !files_.at(file).padding);
        }
        parts = part_path();
        is_open_ = false;
    }
    // A part file that cannot be removed is litter of no bytes that anybody needs.
    const bool may_go = part && !rules_.looks_only;
    if (may_go && (!keeps_parts || !may_hold_bytes || part->size() == 0))
        static_cast<void>(remove_file(parts));
    lock_.reset();
    disk_.close();
}

void Storage::rest() {
    const Alone alone(*this);
    std::map<std::size_t, OpenFile> closing;
    const MutexLock guard(mutex_);
    closing.swap(open_);
}

// A disk that vanishes leaves its folder's place to another: nothing is made anew there.
FileError Storage::make_folder_of(const std::u16string& path) {
    std::u16string top;
    std::uint64_t identity = 0;
    {
        const MutexLock guard(mutex_);
        top = folder_;
        identity = folder_identity_;
    }
    const FileStamp stamp = file_stamp(top);
    if (!stamp.there || (identity != 0 && stamp.identity != identity)) return {FileFault::folder_lost, 0};
    return make_folders(std::u16string(folder_of(path)));
}

void Storage::keep_open(std::size_t file, const std::shared_ptr<File>& opened) {
    open_[file] = {opened, ++uses_};
    if (open_.size() <= std::max<std::size_t>(rules_.open_files, 1)) return;
    const auto oldest = std::min_element(open_.begin(), open_.end(), [](const auto& a, const auto& b) {
        return a.second.last_use < b.second.last_use;
    });
    open_.erase(oldest);
}

void Storage::take_free_name(std::size_t file) {
    std::u16string name = free_name_in(places().folder, name_of_file(file));
    const MutexLock guard(mutex_);
    names_[file] = std::move(name);
}

void Storage::disown(std::size_t file) {
    const Alone alone(*this);
    take_free_name(file);
    const MutexLock guard(mutex_);
    places_[file].shape = FileShape::absent;
    open_.erase(file);
    unsynced_.erase(file);
}

// A name is taken where it was free when the others were looked for, or where the system tells fewer names
// apart than this program.
Result Storage::create_file(std::size_t file, File& created) {
    std::u16string path = this->path(file);
    FileError error = make_folder_of(path);
    while (error.ok() && (error = created.open(path, OpenMode::create_new)).fault == FileFault::exists) {
        take_free_name(file);
        path = this->path(file);
        error = {};
    }
    if (!error.ok()) return failure(error, path);
    const std::int64_t length = files_.at(file).length;
    if (!rules_.allocate) {
        allow_holes(path);
    } else if (created.size() < length) {
        if (error = created.allocate(length); !error.ok()) {
            created.close();
            static_cast<void>(remove_file(path));
            return failure(error, path);
        }
    }
    const MutexLock guard(mutex_);
    if (places_[file].shape == FileShape::absent) places_[file].shape = FileShape::partial;
    // The names of new files and folders have to survive a power cut too.
    std::u16string folder(folder_of(path));
    while (folder.size() >= folder_.size() && unsynced_folders_.insert(folder).second)
        folder = std::u16string(folder_of(folder));
    return {};
}

Result Storage::open_file(std::size_t file, bool to_write, std::shared_ptr<File>& opened) {
    if (!to_write || shape(file) != FileShape::absent) return open_now(file, to_write, opened);
    // Of several that write its first bytes at once one makes it, and the others open what that one made.
    const MutexLock one_by_one(making_);
    return open_now(file, to_write, opened);
}

Result Storage::open_now(std::size_t file, bool to_write, std::shared_ptr<File>& opened) {
    std::u16string path;
    bool absent = false;
    {
        const MutexLock guard(mutex_);
        if (const auto known = open_.find(file); known != open_.end()) {
            known->second.last_use = ++uses_;
            opened = known->second.file;
            return {};
        }
        path = path_of(file);
        absent = places_[file].shape == FileShape::absent;
    }
    opened = std::make_shared<File>();
    if (absent && to_write) {
        if (Result result = create_file(file, *opened); !result.ok()) return result;
    } else {
        const FileError error =
            opened->open(path, rules_.looks_only ? OpenMode::read : OpenMode::write_existing);
        // A finished file may have been made read-only.
        const bool read_only =
            !to_write && (error.fault == FileFault::access || error.fault == FileFault::read_only);
        const FileError again = read_only ? opened->open(path, OpenMode::read) : error;
        if (!again.ok()) return failure(again, path);
        if (read_only) return {};
    }
    const MutexLock guard(mutex_);
    keep_open(file, opened);
    return {};
}

// The bytes of a file that has no file of its own: in the slots of the pieces that it shares.
Result Storage::locate_part(const FileSpan& span, bool to_write, std::vector<Spot>& spots) {
    std::int64_t position = files_.at(span.file).offset + span.offset;
    const std::int64_t end = position + span.length;
    std::shared_ptr<File> part;
    std::u16string path;
    {
        const MutexLock guard(mutex_);
        part = part_;
        path = part_path();
    }
    while (position < end) {
        const std::int64_t piece = position / piece_length_;
        const std::int64_t next = std::min(end, (piece + 1) * piece_length_);
        const std::int64_t slot = slot_of(piece);
        if (slot < 0 || !part) {
            const Code code = to_write ? Code::unsupported : Code::local_file;
            return {code, "The bytes belong to no file that is chosen."};
        }
        spots.push_back({part, path, slot + position - piece * piece_length_, next - position, part_index});
        position = next;
    }
    return {};
}

Result Storage::locate(const FileSpan& span, bool to_write, std::vector<Spot>& spots) {
    Place place;
    std::u16string path;
    {
        const MutexLock guard(mutex_);
        place = places_[span.file];
        path = path_of(span.file);
    }
    if (place.shape == FileShape::absent && !place.chosen) return locate_part(span, to_write, spots);
    if (place.shape == FileShape::absent && !to_write) return failure({FileFault::not_found, 0}, path);
    Spot spot{nullptr, std::move(path), span.offset, span.length, span.file};
    if (Result result = open_file(span.file, to_write, spot.file); !result.ok()) return result;
    spots.push_back(std::move(spot));
    return {};
}

Result Storage::write(std::int64_t position, std::span<const std::byte> bytes) {
    const std::vector<FileSpan> spans = files_.spans(position, static_cast<std::int64_t>(bytes.size()));
    for (const FileSpan& span : spans) {
        if (shape(span.file) != FileShape::finished) continue;
        if (Result result = make_partial_again(span.file); !result.ok()) return result;
    }
    const Use use(*this);
    for (const FileSpan& span : spans) {
        auto rest = bytes.first(static_cast<std::size_t>(span.length));
        bytes = bytes.subspan(rest.size());
        if (files_.at(span.file).padding) continue;
        std::vector<Spot> spots;
        if (Result result = locate(span, true, spots); !result.ok()) return result;
        for (const Spot& spot : spots) {
            const auto part = rest.first(static_cast<std::size_t>(spot.length));
            const FileError error = spot.file->write_at(spot.offset, part);
            {
                const MutexLock guard(mutex_);
                unsynced_.insert(spot.index);  // also where it failed: some of it may be there
            }
            if (!error.ok()) return failure(error, spot.path);
            rest = rest.subspan(part.size());
        }
    }
    return {};
}

Result Storage::read(std::int64_t position, std::span<std::byte> into) {
    const Use use(*this);
    for (const FileSpan& span : files_.spans(position, static_cast<std::int64_t>(into.size()))) {
        auto rest = into.first(static_cast<std::size_t>(span.length));
        into = into.subspan(rest.size());
        if (files_.at(span.file).padding) {
            std::fill(rest.begin(), rest.end(), std::byte{});
            continue;
        }
        std::vector<Spot> spots;
        if (Result result = locate(span, false, spots); !result.ok()) return result;
        for (const Spot& spot : spots) {
            std::size_t got = 0;
            const auto part = rest.first(static_cast<std::size_t>(spot.length));
            if (FileError error = spot.file->read_at(spot.offset, part, got); !error.ok())
                return failure(error, spot.path);
            if (got < part.size())
                return {Code::local_file, "The file " + to_utf8(spot.path) + " was cut short."};
            rest = rest.subspan(part.size());
        }
    }
    return {};
}

Result Storage::sync() {
    std::set<std::size_t> written;
    std::set<std::u16string> folders;
    {
        const MutexLock guard(mutex_);
        if (sync_failure_) return *sync_failure_;
        written.swap(unsynced_);
        folders.swap(unsynced_folders_);
    }
    Result result;
    if (!sync_at_once(written, result)) {
        for (const std::size_t index : written) {
            if (result = sync_file(index); !result.ok()) break;
        }
        if (result.ok()) result = sync_folders(folders);
    }
    return result.ok() ? result : remember_failure(result);
}

// Thousands of small files cost a second a thousand where each is put on the disk by itself.
bool Storage::sync_at_once(const std::set<std::size_t>& files, Result& result) {
    if (files.size() < many_files) return false;
    std::set<std::u16string> folders;
    std::u16string top;
    {
        const MutexLock guard(mutex_);
        top = folder_;
        for (const std::size_t file : files) {
            const std::u16string path = file == part_index ? part_path() : path_of(file);
            folders.insert(std::u16string(folder_of(path)));
        }
    }
    const Use use(*this);
    const auto covers = [this](const std::u16string& folder) { return disk_.covers(folder); };
    if (!std::all_of(folders.begin(), folders.end(), covers)) return false;
    if (FileError error = disk_.sync(); !error.ok()) result = failure(error, top);
    return true;
}

Result Storage::sync_folders(const std::set<std::u16string>& folders) {
    for (const std::u16string& folder : folders) {
        const Use use(*this);
        // One that a file put back has left empty is gone, and its names with it.
        if (FileError error = sync_folder(folder); !error.ok() && error.fault != FileFault::not_found)
            return failure(error, folder);
    }
    return {};
}

Result Storage::sync_file(std::size_t index) {
    const Use use(*this);
    std::shared_ptr<File> file;
    std::u16string path;
    {
        const MutexLock guard(mutex_);
        if (index == part_index) file = part_;
        path = index == part_index ? part_path() : path_of(index);
    }
    if (!file) {
        if (Result result = open_file(index, false, file); !result.ok()) return result;
    }
    if (FileError error = file->flush(); !error.ok()) return failure(error, path);
    return {};
}

Result Storage::remember_failure(const Result& result) {
    const MutexLock guard(mutex_);
    sync_failure_ = result;
    return result;
}

StoragePlaces Storage::places() const {
    const MutexLock guard(mutex_);
    return {folder_, names_};
}

FileShape Storage::shape(std::size_t file) const {
    const MutexLock guard(mutex_);
    return places_[file].shape;
}

bool Storage::is_chosen(std::size_t file) const {
    const MutexLock guard(mutex_);
    return places_[file].chosen;
}

std::u16string Storage::path(std::size_t file) const {
    const MutexLock guard(mutex_);
    return path_of(file);
}

bool Storage::is_wanted(std::int64_t piece) const {
    const std::int64_t begin = piece * piece_length_;
    const std::vector<FileSpan> spans = files_.spans(begin, std::min(piece_length_, files_.size() - begin));
    const MutexLock guard(mutex_);
    return std::any_of(spans.begin(), spans.end(), [this](const FileSpan& span) VANTLOW_REQUIRES(mutex_) {
        return places_[span.file].chosen;
    });
}

std::int64_t Storage::end_in_parts(std::int64_t piece) const {
    const std::int64_t begin = piece * piece_length_;
    std::int64_t end = 0;
    const MutexLock guard(mutex_);
    for (const FileSpan& span : files_.spans(begin, std::min(piece_length_, files_.size() - begin))) {
        const Place& place = places_[span.file];
        if (place.chosen || place.shape != FileShape::absent || files_.at(span.file).padding) continue;
        end = slot_of(piece) + files_.at(span.file).offset + span.offset + span.length - begin;
    }
    return end;
}

bool Storage::reaches_parts_of(std::int64_t piece) const {
    const std::int64_t end = end_in_parts(piece);
    if (end == 0) return true;
    std::shared_ptr<File> part;
    {
        const MutexLock guard(mutex_);
        part = part_;
    }
    return part && part->size() >= end;
}

FileStamp Storage::part_stamp() const {
    std::u16string path;
    {
        const MutexLock guard(mutex_);
        if (!part_) return {};
        path = part_path();
    }
    return file_stamp(path);
}

std::vector<ByteRange> Storage::data_of(std::size_t file) const {
    if (shape(file) == FileShape::absent) return {};
    std::vector<ByteRange> ranges;
    // Where it cannot be told, reading tells.
    if (!list_data(path(file), ranges).ok()) ranges.assign(1, {0, files_.at(file).length});
    return ranges;
}

}  // namespace vantlow
