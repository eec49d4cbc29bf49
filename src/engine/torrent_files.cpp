#include "engine/torrent_files.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "base/codes.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "bt/swarm/storage_disk.h"
#include "engine/recovery.h"
#include "platform/folder.h"
#include "storage/storage_state.h"
#include "store/job_log.h"

namespace vantlow {
namespace {

// States that are looked at in a folder.
constexpr std::size_t most_states = 10'000;

std::u16string partial_of(const std::u16string& path) {
    return path + std::u16string(partial_suffix);
}

bool is_there(const TorrentContent& content, const std::u16string& target) {
    if (content.is_folder) return path_kind(target) == PathKind::folder;
    return path_kind(target) == PathKind::file || path_kind(partial_of(target)) == PathKind::file;
}

// The target that an earlier run has fetched this torrent to; empty where there is none.
std::u16string find_target(const std::u16string& folder, const std::string& identity) {
    std::vector<FolderEntry> entries;
    static_cast<void>(list_folder(folder, entries));
    std::size_t looked_at = 0;
    for (const FolderEntry& entry : entries) {
        if (entry.kind != PathKind::file || !entry.name.ends_with(state_suffix)) continue;
        if (++looked_at > most_states) break;
        const std::u16string path = join_path(folder, entry.name);
        if (load_storage_state(path, identity)) return path.substr(0, path.size() - state_suffix.size());
    }
    return {};
}

StoragePlaces places_of(const TorrentContent& content, const std::u16string& target,
                        const std::optional<StorageState>& state) {
    StoragePlaces places;
    // Where somebody has moved the folder along with its state, the state is wrong about the folder alone.
    places.folder = content.is_folder ? target : std::u16string(folder_of(target));
    if (content.is_folder && state) places.names = state->places.names;
    return places;
}

// The list of a torrent of one file has the name that the file was given.
Outcome<FileList> list_of(const TorrentContent& content, const std::u16string& name) {
    std::vector<NamedFile> files = content.files;
    if (!content.is_folder && !name.empty()) files.front().path = name;
    return FileList::make(files);
}

// The chosen files that are there. Where one is chosen after the others have their names, its bytes of shared
// pieces are in the part file, and are found there as long as it is not chosen.
std::vector<bool> those_there(const TorrentContent& content, const std::u16string& target,
                              std::vector<bool> chosen) {
    const auto list = list_of(content, {});
    for (std::size_t file = 0; list && content.is_folder && file < chosen.size(); ++file) {
        const std::u16string path = join_path(target, list->at(file).path);
        const bool is_file =
            path_kind(path) == PathKind::file || path_kind(partial_of(path)) == PathKind::file;
        chosen[file] = chosen[file] && is_file;
    }
    return chosen;
}

// Opens what stands at a target, as its state says where it has one.
Outcome<std::unique_ptr<Storage>> open_storage(const TorrentContent& content, const std::u16string& target,
                                               LogSink& log, StorageRules rules = {}) {
    const auto state = load_storage_state(storage_state_path(target), to_hex(content.info_hash));
    auto list = list_of(content, content.is_folder ? std::u16string() : std::u16string(name_of(target)));
    if (!list) return list.failure();
    const std::vector<bool> all(content.files.size(), true);
    const bool fits = state && state->chosen.size() == content.files.size();
    auto storage = std::make_unique<Storage>(*std::move(list), fits ? state->chosen : all,
                                             content.piece_length, log, rules);
    if (Result result = storage->resume(places_of(content, target, state)); !result.ok()) return result;
    return storage;
}

}  // namespace

Result TorrentFiles::make_storage(const std::u16string& name, const std::vector<bool>& chosen) {
    auto list = list_of(content_, name);
    if (!list) return list.failure();
    storage_.emplace(*std::move(list), chosen, content_.piece_length, log_, rules_);
    return {};
}

Result TorrentFiles::open(const TorrentPlace& place, const std::vector<bool>& chosen, const StopSource& stop,
                          CheckProgress& progress) {
    if (place.whole_since) return open_whole(place, chosen, stop, progress);
    const std::u16string folder(folder_of(place.path));
    const std::u16string known =
        name_of(place.path).empty() ? find_target(folder, to_hex(content_.info_hash)) : place.path;
    if (!known.empty() && is_there(content_, known)) {
        if (Result result = resume(place, known, true, chosen, stop, progress); !result.ok()) return result;
        if (storage_) return {};
    } else if (known.empty() && place.adopts) {
        const std::u16string name = place.name.empty() ? content_.name : place.name;
        const std::u16string other = join_path(folder, safe_file_name(name));
        const PathKind kind = content_.is_folder ? PathKind::folder : PathKind::file;
        if (path_kind(other) == kind) {
            if (Result result = resume(place, other, false, chosen, stop, progress); !result.ok())
                return result;
            if (storage_) return {};
        }
    } else if (!known.empty()) {
        log_.line(Direction::note, "The unfinished files are gone. The download starts over.");
        static_cast<void>(remove_file(storage_state_path(known)));
    }
    return begin(folder, place.name, chosen);
}

// Leaves the storage closed where the files are not this job's after all.
Result TorrentFiles::resume(const TorrentPlace& place, const std::u16string& target, bool is_ours,
                            const std::vector<bool>& chosen, const StopSource& stop,
                            CheckProgress& progress) {
    auto state = load_storage_state(storage_state_path(target), to_hex(content_.info_hash));
    const bool fits = state && state->chosen.size() == content_.files.size();
    const std::u16string name = content_.is_folder ? std::u16string() : std::u16string(name_of(target));
    const std::vector<bool> until_now = fits      ? state->chosen
                                        : is_ours ? those_there(content_, target, chosen)
                                                  : chosen;
    if (Result result = make_storage(name, until_now); !result.ok()) return result;
    if (Result result = storage_->resume(places_of(content_, target, state)); !result.ok()) return result;
    target_ = target;
    if (Result result = check(state, place.some_since, stop, progress); !result.ok()) return result;
    const bool is_replaced = state && !disown_others(*state);
    if (is_replaced) static_cast<void>(remove_file(storage_state_path(target)));
    if ((state && !is_replaced) || is_whole() || (is_ours && are_finished_ones_right()))
        return choose(chosen, good_, good_);
    // Files under whole names that nothing says are this job's, and that are not what it fetches: somebody
    // else put them there.
    log_.line(Direction::note, "The files at " + to_utf8(target) + " are others, and stay as they are.");
    storage_->close();
    storage_.reset();
    return {};
}

// A file under its whole name of which no piece is right, where the state knows an unfinished one, or none,
// or another one, is somebody else's, put there meanwhile. False where it stands in the place of the only
// file.
bool TorrentFiles::disown_others(const StorageState& state) {
    const auto is_good = [this](std::int64_t piece) { return good_[static_cast<std::size_t>(piece)]; };
    for (std::size_t file = 0; file < storage_->files().count(); ++file) {
        const ListedFile& listed = storage_->files().at(file);
        const bool is_known = file < state.marks.size() && state.marks[file].size != FileMark::doubted;
        if (!is_known || listed.length == 0 || listed.padding) continue;
        if (storage_->shape(file) != FileShape::finished || has_piece(file, is_good)) continue;
        if (!content_.is_folder) return false;
        log_.line(Direction::note, to_utf8(storage_->path(file)) + " is another file, and stays as it is.");
        storage_->disown(file);
    }
    return true;
}

Result TorrentFiles::open_whole(const TorrentPlace& place, const std::vector<bool>& chosen,
                                const StopSource& stop, CheckProgress& progress) {
    const std::string where = to_utf8(place.path);
    if (name_of(place.path).empty() || !is_there(content_, place.path))
        return {Code::local_file, where + ": the torrent's files are not there any more."};
    const std::u16string name = content_.is_folder ? std::u16string() : std::u16string(name_of(place.path));
    if (Result result = make_storage(name, chosen); !result.ok()) return result;
    if (Result result = storage_->resume(places_of(content_, place.path, std::nullopt)); !result.ok())
        return result;
    target_ = place.path;
    good_.assign(static_cast<std::size_t>(content_.piece_count()), false);
    const std::vector<std::size_t> doubted = doubt(*place.whole_since);
    Result result = check_pieces(*storage_, hashes_, doubted, 0, stop, progress, good_);
    if (!result.ok()) return result;
    // Of a piece that ends in a file that is not chosen that end may be gone: it is not given to others then.
    const auto is_chosen = [this](const FileSpan& span) {
        return storage_->is_chosen(span.file) || storage_->files().at(span.file).padding;
    };
    std::int64_t wrong = 0;
    for (std::int64_t piece = 0; piece < content_.piece_count(); ++piece) {
        const auto spans = spans_of(piece);
        const bool must_be_good = std::all_of(spans.begin(), spans.end(), is_chosen);
        if (must_be_good && !good_[static_cast<std::size_t>(piece)]) ++wrong;
    }
    if (wrong == 0) return {};
    return {Code::local_file, where + ": " + std::to_string(wrong) + " of " +
                                  std::to_string(content_.piece_count()) +
                                  " pieces are missing or were changed."};
}

// The pieces of files that were written to since then, or are not whole. The others are good.
std::vector<std::size_t> TorrentFiles::doubt(std::int64_t whole_since) {
    constexpr std::int64_t nanoseconds_of_a_second = 1'000'000'000;
    std::vector<bool> is_believed(storage_->files().count(), false);
    for (std::size_t file = 0; file < is_believed.size(); ++file) {
        const ListedFile& listed = storage_->files().at(file);
        const FileStamp stamp = file_stamp(storage_->path(file));
        is_believed[file] =
            listed.padding || (storage_->is_chosen(file) && storage_->shape(file) == FileShape::finished &&
                               stamp.there && stamp.size == listed.length && whole_since > 0 &&
                               stamp.modified / nanoseconds_of_a_second <= whole_since);
    }
    std::vector<std::size_t> doubted;
    for (std::size_t piece = 0; piece < good_.size(); ++piece) {
        const auto spans = spans_of(static_cast<std::int64_t>(piece));
        good_[piece] = std::all_of(spans.begin(), spans.end(),
                                   [&](const FileSpan& span) { return is_believed[span.file]; });
        if (!good_[piece]) doubted.push_back(piece);
    }
    return doubted;
}

std::vector<FileSpan> TorrentFiles::spans_of(std::int64_t piece) const {
    const std::int64_t begin = piece * content_.piece_length;
    return storage_->files().spans(begin, std::min(content_.piece_length, content_.total - begin));
}

Result TorrentFiles::check(const std::optional<StorageState>& state, std::int64_t some_since,
                           const StopSource& stop, CheckProgress& progress) {
    good_.assign(static_cast<std::size_t>(content_.piece_count()), false);
    std::vector<std::size_t> doubted;
    if (state) {
        StorageState believed = *state;
        doubted = doubt_changed_files(*storage_, believed);
        // Those that were taken back a moment ago are among both.
        const std::vector<std::size_t> late = late_pieces(*storage_, believed);
        doubted.insert(doubted.end(), late.begin(), late.end());
        std::ranges::sort(doubted);
        doubted.erase(std::unique(doubted.begin(), doubted.end()), doubted.end());
        good_ = std::move(believed.good);
    } else {
        doubted = doubt(some_since);
    }
    if (doubted.empty()) return {};
    return check_pieces(*storage_, hashes_, doubted, 0, stop, progress, good_);
}

Result TorrentFiles::begin(const std::u16string& folder, const std::u16string& name,
                           const std::vector<bool>& chosen) {
    if (Result result = make_storage(name, chosen); !result.ok()) return result;
    std::u16string root = folder;
    if (content_.is_folder) {
        auto made = make_job_folder(folder, name.empty() ? content_.name : name);
        if (!made) return made.failure();
        root = *std::move(made);
    }
    if (Result result = storage_->begin(root); !result.ok()) return result;
    target_ = root;
    if (!content_.is_folder) {
        target_ = storage_->path(0);
        if (target_.ends_with(partial_suffix)) target_.resize(target_.size() - partial_suffix.size());
    }
    good_.assign(static_cast<std::size_t>(content_.piece_count()), false);
    bool is_lost = false;
    return save(good_, is_lost);
}

bool TorrentFiles::is_whole() const {
    for (std::size_t piece = 0; piece < good_.size(); ++piece) {
        if (!good_[piece] && storage_->is_wanted(static_cast<std::int64_t>(piece))) return false;
    }
    return true;
}

// No piece is wrong that stands in files with their names alone.
bool TorrentFiles::are_finished_ones_right() const {
    const auto is_finished = [this](const FileSpan& span) {
        return storage_->files().at(span.file).padding || storage_->shape(span.file) == FileShape::finished;
    };
    for (std::size_t piece = 0; piece < good_.size(); ++piece) {
        if (good_[piece]) continue;
        const auto spans = spans_of(static_cast<std::int64_t>(piece));
        if (std::all_of(spans.begin(), spans.end(), is_finished)) return false;
    }
    return true;
}

// Some piece of the file passes the test.
template <class Test>
bool TorrentFiles::has_piece(std::size_t file, const Test& test) const {
    const ListedFile& listed = storage_->files().at(file);
    if (listed.length == 0) return false;
    const std::int64_t last = (listed.offset + listed.length - 1) / content_.piece_length;
    for (std::int64_t piece = listed.offset / content_.piece_length; piece <= last; ++piece) {
        if (test(piece)) return true;
    }
    return false;
}

Result TorrentFiles::choose(const std::vector<bool>& chosen, const std::vector<bool>& good,
                            const std::vector<bool>& holds) {
    bool is_changed = false;
    std::vector<std::size_t> leaving;
    const auto is_needed = [&](std::int64_t piece) {
        const auto is_of_a_file = [this](const FileSpan& span) {
            return !storage_->files().at(span.file).padding;
        };
        const auto spans = spans_of(piece);
        return holds[static_cast<std::size_t>(piece)] &&
               std::count_if(spans.begin(), spans.end(), is_of_a_file) == 1;
    };
    for (std::size_t file = 0; file < chosen.size(); ++file) {
        is_changed = is_changed || storage_->is_chosen(file) != chosen[file];
        if (Result result = storage_->choose(file, chosen[file]); !result.ok()) return result;
        const bool has_part = !chosen[file] && storage_->shape(file) == FileShape::partial;
        if (has_part && !has_piece(file, is_needed)) leaving.push_back(file);
    }
    if (!is_changed && leaving.empty()) return {};
    bool is_lost = false;
    if (Result result = save(good, is_lost); !result.ok()) return result;
    for (const std::size_t file : leaving) {
        if (Result result = storage_->put_back(file); !result.ok()) return result;
    }
    return {};
}

Result TorrentFiles::save(const std::vector<bool>& good, bool& is_lost, bool is_last) {
    if (!keeps_state_) return {};
    Result result =
        save_storage_state(*storage_, to_hex(content_.info_hash), good, storage_state_path(target_), is_last);
    // That of the bytes stays once it has come, that of the state's own file does not.
    if (!result.ok()) is_lost = !storage_->sync().ok();
    return result;
}

Result TorrentFiles::finish(const std::vector<bool>& good, const std::optional<FileOrigin>& origin,
                            const StopSource& stop) {
    // Two waits for the disk instead of two for each file: for the bytes, and then for the names.
    if (Result result = storage_->sync(); !result.ok()) return result;
    for (std::size_t file = 0; file < storage_->files().count(); ++file) {
        if (stop.requested()) return stop.reason();
        const auto is_missing = [&good](std::int64_t piece) {
            return !good[static_cast<std::size_t>(piece)];
        };
        const bool has_part = storage_->is_chosen(file) || storage_->shape(file) == FileShape::partial;
        if (!has_part || has_piece(file, is_missing)) continue;
        if (origin && storage_->shape(file) == FileShape::partial) {
            const FileError error = mark_origin(storage_->path(file), *origin);
            if (!error.ok()) log_.line(Direction::error, "The file could not be marked: " + error.text());
        }
        if (Result result = storage_->finish(file); !result.ok()) return result;
    }
    if (Result result = storage_->sync(); !result.ok()) return result;
    static_cast<void>(remove_file(storage_state_path(target_)));
    return {};
}

void TorrentFiles::take_names() {
    if (!content_.is_folder) target_ = storage_->path(0);
}

void TorrentFiles::close(bool keeps_parts) {
    if (storage_) storage_->close(keeps_parts);
}

std::int64_t TorrentFiles::chosen_bytes() const {
    std::int64_t bytes = 0;
    for (std::size_t file = 0; file < storage_->files().count(); ++file) {
        if (storage_->is_chosen(file)) bytes += storage_->files().at(file).length;
    }
    return bytes;
}

std::int64_t TorrentFiles::chosen_bytes_of(std::int64_t piece) const {
    std::int64_t bytes = 0;
    for (const FileSpan& span : spans_of(piece)) {
        if (storage_->is_chosen(span.file)) bytes += span.length;
    }
    return bytes;
}

namespace {

// Nobody writes into a finished file for its job: one of another size, or that was written to long after the
// end, has taken its place.
bool is_own(const std::u16string& path, std::int64_t length, std::int64_t finished) {
    const FileStamp stamp = file_stamp(path);
    return stamp.size == length && !was_written_since(stamp, finished);
}

constexpr std::size_t most_told = 50;

}  // namespace

Result remove_torrent_files(const TorrentContent& content, const std::u16string& target,
                            std::int64_t finished) {
    CJobLog silent;
    Result result;
    if (is_there(content, target)) {
        auto opened = open_storage(content, target, silent);
        if (!opened) return opened.failure();
        Storage& storage = **opened;
        result = storage.remove([&](std::size_t file) {
            return storage.shape(file) != FileShape::finished ||
                   is_own(storage.path(file), storage.files().at(file).length, finished);
        });
    }
    const FileError error = remove_file(storage_state_path(target));
    if (result.ok() && !error.ok() && error.fault != FileFault::not_found)
        result = {Code::local_file, to_utf8(storage_state_path(target)) + ": " + error.text(),
                  error.system_error};
    return result;
}

Outcome<Relocation> torrent_relocation(const TorrentContent& content, const std::u16string& from,
                                       const std::u16string& to, std::int64_t finished, bool goes_on,
                                       LogSink& log) {
    Relocation relocation;
    relocation.goes_on = goes_on;
    const Relocation::Item state{storage_state_path(from), storage_state_path(to), false, true};
    if (!content.is_folder || folder_of(from) == folder_of(to)) {
        // Beside the name of a finished one they may be those of another download.
        const std::string identity = to_hex(content.info_hash);
        const bool has_own = finished <= 0 || goes_on || load_storage_state(state.from, identity);
        if (!content.is_folder && has_own) relocation.items.push_back({partial_of(from), partial_of(to)});
        relocation.items.push_back({from, to});
        if (has_own) relocation.items.push_back(state);
        return relocation;
    }
    const auto list = list_of(content, {});
    if (!list) return list.failure();
    auto saved = load_storage_state(state.from, to_hex(content.info_hash));
    if (!saved && goes_on) saved = load_storage_state(state.to, to_hex(content.info_hash));
    std::size_t others = 0;
    for (std::size_t file = 0; file < list->count(); ++file) {
        if (list->at(file).padding) continue;
        std::u16string name = list->at(file).path;
        if (saved && saved->places.names.contains(file)) name = saved->places.names.at(file);
        const std::u16string path = join_path(from, name);
        const bool is_at_rest = path_kind(path) != PathKind::none;
        if (is_at_rest && !is_own(path, list->at(file).length, finished)) {
            if (++others <= most_told)
                log.line(Direction::note, to_utf8(path) +
                                              ": this is not the file that was downloaded, or it was changed "
                                              "since: it stays where it is.");
        } else if (is_at_rest || goes_on) {
            relocation.items.push_back({path, join_path(to, name)});
        }
        if (goes_on || path_kind(partial_of(path)) != PathKind::none)
            relocation.items.push_back({partial_of(path), partial_of(join_path(to, name))});
    }
    if (others > most_told)
        log.line(Direction::note, "So it is with " + std::to_string(others - most_told) + " more files.");
    relocation.items.push_back(
        {join_path(from, Storage::part_name()), join_path(to, Storage::part_name()), true});
    relocation.items.push_back(state);
    relocation.leaves = from;
    return relocation;
}

Result doubt_torrent_files(const TorrentContent& content, const std::u16string& target) {
    if (!is_there(content, target))
        return {Code::local_file, to_utf8(target) + ": there are no files of this torrent."};
    const std::u16string path = storage_state_path(target);
    auto state = load_storage_state(path, to_hex(content.info_hash));
    if (!state || state->chosen.size() != content.files.size()) {
        state.emplace();
        state->identity = to_hex(content.info_hash);
        state->piece_length = content.piece_length;
        state->places = places_of(content, target, std::nullopt);
        state->chosen = those_there(content, target, std::vector<bool>(content.files.size(), true));
    }
    // A state that promises everything of files that have changed since.
    constexpr FileMark none_has{.size = FileMark::doubted};
    state->marks.assign(content.files.size(), none_has);
    state->parts = none_has;
    state->good.assign(static_cast<std::size_t>(content.piece_count()), true);
    const FileError error = write_file_atomically(path, state->encode(), Privacy::owner_only);
    return error.ok() ? Result() : Result(Code::local_file, error.text(), error.system_error);
}

Outcome<TorrentCheck> check_torrent_files(const TorrentContent& content, const PieceHashSource& hashes,
                                          const std::u16string& target, const StopSource& stop) {
    std::u16string found = target;
    if (name_of(target).empty()) {
        const std::u16string folder(folder_of(target));
        found = find_target(folder, to_hex(content.info_hash));
        if (found.empty()) found = join_path(folder, safe_file_name(content.name));
    }
    if (!is_there(content, found))
        return Result(Code::local_file, to_utf8(found) + ": there are no files of this torrent.");
    CJobLog silent;
    StorageRules rules;
    rules.looks_only = true;
    auto storage = open_storage(content, found, silent, rules);
    if (!storage) return storage.failure();
    CheckProgress progress;
    std::vector<bool> good(static_cast<std::size_t>(content.piece_count()), false);
    const Result result = check_all_pieces(**storage, hashes, 0, stop, progress, good);
    if (!result.ok()) return result;
    TorrentCheck check;
    check.pieces = content.piece_count();
    for (std::int64_t piece = 0; piece < check.pieces; ++piece) {
        if (!good[static_cast<std::size_t>(piece)]) continue;
        ++check.good;
        check.bytes += std::min(content.piece_length, content.total - piece * content.piece_length);
    }
    return check;
}

}  // namespace vantlow
