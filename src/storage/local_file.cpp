#include "storage/local_file.h"

#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"
#include "platform/file_marks.h"
#include "platform/folder.h"

namespace vantlow {
namespace {

enum : std::int64_t { rule_rename = 0, rule_overwrite = 2 };

bool is_there(const std::u16string& path) {
    return path_kind(path) != PathKind::none;
}

// A link would lead the bytes to wherever somebody had it point.
bool is_file_itself(const std::u16string& path) {
    std::vector<FolderEntry> entries;
    if (path_kind(path) != PathKind::file || !list_folder(folder_of(path), entries).ok()) return false;
    const std::u16string name = name_of(path);
    return std::ranges::none_of(entries,
                                [&](const auto& entry) { return entry.is_link && entry.name == name; });
}

}  // namespace

std::u16string CLocalFile::state_path() const {
    return target_ + std::u16string(state_suffix);
}

Result CLocalFile::failure(const FileError& error, const std::u16string& path) {
    const std::string text =
        std::string(message_text(Message::writing_error)) + " (" + to_utf8(path) + ": " + error.text() + ")";
    log_.line(Direction::error, text);
    return {Code::local_file, text, error.system_error};
}

void CLocalFile::set_up(const FileRules& rules) {
    rules_ = rules;
    behind_.reset();
    // A connection that gathers at least as much as the disk is to see at once writes for itself.
    if (rules.data_buffer < rules.disk_buffer) {
        behind_ = std::make_unique<WriteBehind>(file_, listener_, rules.disk_buffer);
    }
}

// Opens the partial file of target_ for this process alone.
CLocalFile::Claim CLocalFile::claim_partial(FileError& error) {
    error = file_.open_alone(partial_path(), OpenMode::create_new);
    if (error.ok()) {
        // Until it was locked it could be taken for an abandoned one, and somebody's bytes be in it by now.
        if (file_.size() == 0) return Claim::mine;
        file_.close();
        return Claim::taken;
    }
    if (error.fault == FileFault::in_use) return Claim::taken;
    if (error.fault != FileFault::exists) return Claim::failed;
    // The file is somebody's: one at work holds the lock, one that waits to be continued has a state beside
    // it.
    if (is_there(state_path()) || !is_file_itself(partial_path())) return Claim::taken;
    error = file_.open_alone(partial_path(), OpenMode::write_existing);
    if (!error.ok())
        return error.fault == FileFault::in_use || error.fault == FileFault::not_found ? Claim::taken
                                                                                       : Claim::failed;
    if (is_there(state_path())) {
        file_.close();
        return Claim::taken;
    }
    error = file_.resize(0);
    return error.ok() ? Claim::mine : Claim::failed;
}

// Looks for what the server has under the name and under those that earlier runs took beside it, so that a
// run that is repeated makes no copy after the other.
bool CLocalFile::find_existing(const std::u16string& folder, const std::u16string& name) {
    const auto is_same = [this](const std::u16string& path) {
        const FileStamp stamp = file_stamp(path);
        const bool is_older = rules_.server_time && stamp.modified / 1'000'000'000 < *rules_.server_time;
        return !is_older && (rules_.server_size < 0 || stamp.size == rules_.server_size);
    };
    if (is_same(join_path(folder, name))) return true;
    const std::u16string other = free_name(name, [&](const std::u16string& candidate) {
        const std::u16string path = join_path(folder, candidate);
        return is_there(path) && !is_same(path);
    });
    if (!is_there(join_path(folder, other))) return false;
    target_ = join_path(folder, other);
    return true;
}

// Applies the overwrite rule to folder/name and sets target_.
Result CLocalFile::choose_target(const std::u16string& folder, const std::u16string& name) {
    target_ = join_path(folder, name);
    const PathKind kind = path_kind(target_);
    if (kind == PathKind::none) return {};
    if (kind != PathKind::file)
        return failure({kind == PathKind::folder ? FileFault::is_folder : FileFault::exists, 0}, target_);
    if (rules_.skip_existing) {
        skipped_ = find_existing(folder, name);
        log_.line(Direction::note, message_text(skipped_ ? Message::same_file : Message::server_newer));
        if (skipped_) return {Code::cancelled, std::string(message_text(Message::same_file))};
    }
    if (rules_.overwrite == rule_rename) {
        log_.line(Direction::note, message_text(Message::destination_exists));
        const auto is_taken = [&](const std::u16string& candidate) {
            // A partial file without a state may be an abandoned one, which is used again: see
            // claim_partial().
            const std::u16string path = join_path(folder, candidate);
            return is_there(path) || is_there(path + std::u16string(state_suffix));
        };
        target_ = join_path(folder, free_name(name, is_taken));
        log_.line(Direction::note, "The file is saved as " + to_utf8(target_));
        return {};
    }
    if (rules_.overwrite == rule_overwrite) {
        // The old file stays until the new one is whole; that it may be replaced is found out now, not then.
        File probe;
        if (FileError error = probe.open(target_, OpenMode::write_existing); !error.ok())
            return failure(error, target_);
        log_.line(Direction::note, "The file " + to_utf8(target_) + " will be overwritten.");
        return {};
    }
    const std::string text = "The file " + to_utf8(target_) + " exists: cancelled.";
    log_.line(Direction::error, text);
    return {Code::cancelled, text};
}

Result CLocalFile::begin(const std::u16string& folder, const std::u16string& name, const FileRules& rules) {
    set_up(rules);
    if (!folder.empty()) {
        if (FileError error = make_folders(folder); !error.ok()) return failure(error, folder);
    }
    std::u16string wanted = name;
    for (;;) {
        if (Result result = choose_target(folder, wanted); !result.ok()) return result;
        FileError error;
        switch (claim_partial(error)) {
            case Claim::mine:
                return {};
            case Claim::failed:
                return failure(error, partial_path());
            case Claim::taken:
                break;
        }
        if (is_there(state_path())) {
            log_.line(Direction::note, "The unfinished file " + to_utf8(partial_path()) +
                                           " is another download's and is left alone.");
        }
        log_.line(Direction::note, message_text(Message::temporary_exists));
        const auto is_taken = [&](const std::u16string& candidate) {
            const std::u16string path = join_path(folder, candidate);
            return is_there(path) || is_there(path + std::u16string(partial_suffix)) ||
                   candidate == name_of(target_);
        };
        wanted = free_name(name_of(target_), is_taken);
    }
}

Result CLocalFile::resume(const std::u16string& target, std::int64_t needed, const FileRules& rules) {
    set_up(rules);
    target_ = target;
    if (FileError error = file_.open_alone(partial_path(), OpenMode::write_existing); !error.ok())
        return failure(error, partial_path());
    if (file_.size() < needed) {
        close();
        return {Code::local_file,
                "The partial file " + to_utf8(partial_path()) + " is shorter than its state says."};
    }
    return {};
}

Result CLocalFile::allocate(std::int64_t size) {
    if (!rules_.allocate || size <= 0) return {};
    if (FileError error = file_.allocate(size); !error.ok()) return failure(error, partial_path());
    return {};
}

Result CLocalFile::write(std::int64_t offset, std::span<const std::byte> bytes) {
    if (bytes.empty()) return {};
    FileError error = behind_ ? behind_->add(offset, bytes) : write_in_turn(offset, bytes);
    if (!error.ok()) return failure(error, partial_path());
    if (!behind_) listener_.written(offset, static_cast<std::int64_t>(bytes.size()));
    return {};
}

Result CLocalFile::write(std::int64_t offset, Conduit& from, std::size_t bytes) {
    if (bytes == 0) return {};
    FileError error;
    {
        const MutexLock guard(turn_);
        error = from.write_to(file_, offset, bytes);
    }
    if (!error.ok()) return failure(error, partial_path());
    listener_.written(offset, static_cast<std::int64_t>(bytes));
    return {};
}

// The system lets one write at a time into a file, and those that wait for it spin. Here they sleep.
FileError CLocalFile::write_in_turn(std::int64_t offset, std::span<const std::byte> bytes) {
    const MutexLock guard(turn_);
    return file_.write_at(offset, bytes);
}

Result CLocalFile::drain() {
    if (!behind_) return {};
    if (FileError error = behind_->drain(); !error.ok()) return failure(error, partial_path());
    return {};
}

Result CLocalFile::read(std::int64_t offset, std::span<std::byte> into) {
    std::size_t got = 0;
    const FileError error = file_.read_at(offset, into, got);
    if (!error.ok()) return failure(error, partial_path());
    if (got < into.size())
        return {Code::local_file, "The partial file " + to_utf8(partial_path()) + " was cut short."};
    return {};
}

Result CLocalFile::flush() {
    if (FileError error = file_.flush(); !error.ok()) return failure(error, partial_path());
    return {};
}

Result CLocalFile::shrink(std::int64_t size) {
    if (FileError error = file_.resize(size); !error.ok()) return failure(error, partial_path());
    return {};
}

Result CLocalFile::start_over() {
    if (behind_) behind_->discard();
    return shrink(0);
}

// Marks the file before it has its name, under which it could be opened unmarked.
void CLocalFile::mark(const FileOrigin& origin) {
    const FileError error = mark_origin(partial_path(), origin);
    if (error.ok()) return;
    log_.line(Direction::note, "The file could not be marked as coming from the internet: " + error.text());
}

Result CLocalFile::finish(std::int64_t size, std::u16string_view suffix,
                          const std::optional<FileOrigin>& origin,
                          const std::function<void(const std::u16string&)>& before_name) {
    if (Result result = drain(); !result.ok()) return result;
    if (file_.size() != size) {
        if (FileError error = file_.resize(size); !error.ok()) return failure(error, partial_path());
    }
    if (origin) mark(*origin);
    // The bytes are on the disk before the file has its name: a power cut must not leave a whole name with
    // half a file.
    if (Result result = flush(); !result.ok()) return result;
    const std::u16string partial = partial_path();
    std::u16string name = target_ + std::u16string(suffix);
    for (;;) {
        if (before_name) before_name(name);
        FileError error = rules_.overwrite == rule_overwrite ? rename_replace(partial, name)
                                                             : rename_no_replace(partial, name);
        if (error.ok()) break;
        if (error.fault != FileFault::exists || path_kind(name) == PathKind::folder)
            return failure(error, name);
        log_.line(Direction::note, message_text(Message::destination_exists));
        const std::u16string folder = folder_of(name);
        const std::u16string free = free_name(
            name_of(name), [&](const auto& candidate) { return is_there(join_path(folder, candidate)); });
        name = join_path(folder, free);
    }
    file_.close();
    target_ = name;
    return {};
}

void CLocalFile::discard() {
    if (behind_) behind_->discard();
    const bool mine = file_.is_open();
    // As long as it is open it is nobody else's.
    const bool is_gone = mine && remove_file(partial_path()).ok();
    file_.close();
    // A partial file that cannot be removed is only litter, used again by the next job of that name.
    if (mine && !is_gone) static_cast<void>(remove_file(partial_path()));
}

void CLocalFile::close() {
    file_.close();
}

}  // namespace vantlow
