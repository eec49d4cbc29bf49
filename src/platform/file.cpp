#include "platform/file.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "platform/file_marks.h"
#include "platform/file_parts.h"
#include "platform/folder.h"
#include "platform/local_text.h"

namespace vantlow {
namespace {

const char* fault_text(FileFault fault) noexcept {
    switch (fault) {
        case FileFault::none:
            return "No error";
        case FileFault::not_found:
            return "The file does not exist";
        case FileFault::exists:
            return "The file exists";
        case FileFault::access:
            return "Access denied";
        case FileFault::is_folder:
            return "This is a folder";
        case FileFault::no_space:
            return "No space left";
        case FileFault::read_only:
            return "The file system cannot be written";
        case FileFault::name_too_long:
            return "The name is too long";
        case FileFault::in_use:
            return "The file is in use";
        case FileFault::too_large:
            return "The file is too large";
        case FileFault::folder_lost:
            return "The folder was removed or replaced";
        case FileFault::other:
            break;
    }
    return "File error";
}

constexpr std::size_t read_step = 65536;
constexpr std::int64_t copy_step = 1024 * 1024;

// A disk that is given more than this at once makes others wait for seconds.
constexpr std::int64_t flush_step = 4 * 1024 * 1024;

FileError write_whole(const std::u16string& path, std::span<const std::byte> bytes, Privacy privacy) {
    File file;
    if (FileError error = file.open(path, OpenMode::create_new, privacy); !error.ok()) return error;
    if (FileError error = file.write_at(0, bytes); !error.ok()) return error;
    return file.flush();
}

FileError write_pieces(const std::u16string& path, std::span<const std::vector<std::byte>> pieces,
                       Privacy privacy, const std::function<FileError()>& between) {
    File file;
    if (FileError error = file.open(path, OpenMode::create_new, privacy); !error.ok()) return error;
    std::int64_t written = 0;
    std::int64_t flushed = 0;
    for (const std::vector<std::byte>& piece : pieces) {
        if (FileError error = file.write_at(written, piece); !error.ok()) return error;
        written += static_cast<std::int64_t>(piece.size());
        if (between) {
            if (FileError error = between(); !error.ok()) return error;
        }
        if (written - flushed < flush_step) continue;
        if (FileError error = file.flush(); !error.ok()) return error;
        flushed = written;
    }
    return file.flush();
}

// Calls `write` to make the new file under a working name, then puts it in place of the old one.
FileError replace_by(const std::u16string& path, const std::function<FileError(const std::u16string&)>& write,
                     const std::function<FileError()>& between) {
    const std::u16string fresh = path + u".new";
    // An earlier try may have left a file behind, perhaps with other rights or as a link to somewhere.
    if (FileError error = remove_file(fresh); !error.ok() && error.fault != FileFault::not_found)
        return error;
    FileError error = write(fresh);
    if (error.ok() && between) error = between();
    if (error.ok()) error = rename_replace(fresh, path);
    if (!error.ok()) {
        (void)remove_file(fresh);  // the first failure is the one that is reported
        return error;
    }
    return sync_folder(folder_of(path));
}

}  // namespace

FileError File::open_alone(const std::u16string& path, OpenMode mode, Privacy privacy) {
    if (FileError error = open(path, mode, privacy); !error.ok()) return error;
    if (try_lock() && is_at(path)) return {};
    close();
    return {FileFault::in_use, 0};
}

bool File::is_at(const std::u16string& path) const noexcept {
    const FileStamp now = file_stamp(path);
    if (!now.there || now.identity == identity()) return now.there;
    // Some file systems of networks tell another identity at every look: of those only that the path is taken
    // can be known.
    const FileStamp again = file_stamp(path);
    return again.there && again.identity != now.identity;
}

std::string FileError::text() const {
    return system_error != 0 ? system_text(system_error) : fault_text(fault);
}

File::File(File&& other) noexcept
    : native_(std::exchange(other.native_, invalid)), path_(std::move(other.path_)) {}

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        close();
        native_ = std::exchange(other.native_, invalid);
        path_ = std::move(other.path_);
    }
    return *this;
}

File::~File() {
    close();
}

FileError File::copy_through_memory(const File& from, std::int64_t from_offset, std::int64_t to_offset,
                                    std::int64_t count) noexcept {
    const auto room = static_cast<std::size_t>(std::clamp<std::int64_t>(count, 1, copy_step));
    const std::unique_ptr<std::byte[]> space(new (std::nothrow) std::byte[room]);
    if (space == nullptr) return {FileFault::other, 0};
    while (count > 0) {
        const auto part = static_cast<std::size_t>(std::min<std::int64_t>(count, copy_step));
        std::size_t got = 0;
        const std::span<std::byte> bytes(space.get(), part);
        if (FileError error = from.read_at(from_offset, bytes, got); !error.ok()) return error;
        if (got < part) return {FileFault::other, 0};
        if (FileError error = write_at(to_offset, bytes); !error.ok()) return error;
        from_offset += static_cast<std::int64_t>(part);
        to_offset += static_cast<std::int64_t>(part);
        count -= static_cast<std::int64_t>(part);
    }
    return {};
}

FileError make_folders(const std::u16string& path) {
    if (path.empty() || path_kind(path) == PathKind::folder) return {};
    const FileError error = make_one_folder(path);
    const std::u16string above = folder_of(path);
    if (error.fault != FileFault::not_found || above.empty() || above == path) return error;
    if (FileError failed = make_folders(above); !failed.ok()) return failed;
    return make_one_folder(path);
}

bool can_write_below(const std::u16string& folder) {
    std::u16string there = folder;
    while (path_kind(there) == PathKind::none) {
        const std::u16string above = folder_of(there);
        if (above.empty() || above == there) return false;
        there = above;
    }
    return path_kind(there) == PathKind::folder && can_write_folder(there);
}

FileError list_files(const std::u16string& folder, std::u16string_view suffix,
                     std::vector<std::u16string>& names) {
    names.clear();
    std::vector<FolderEntry> entries;
    const FileError error = list_folder(folder, entries);
    for (FolderEntry& entry : entries) {
        if (entry.kind == PathKind::file && entry.name.ends_with(suffix))
            names.push_back(std::move(entry.name));
    }
    return error;
}

FileError read_file(const std::u16string& path, std::size_t at_most, std::vector<std::byte>& bytes) {
    bytes.clear();
    File file;
    if (FileError error = file.open(path, OpenMode::read); !error.ok()) return error;
    // The size is only a hint: a device or a pipe reports none, and files grow.
    const std::int64_t size = file.size();
    std::size_t room = size > 0 ? static_cast<std::size_t>(size) : read_step;
    std::size_t filled = 0;
    for (;;) {
        // One byte over the limit is asked for, to see whether the file is longer.
        room = std::min(room, at_most) + 1;
        bytes.resize(room);
        std::size_t got = 0;
        const auto rest = std::span(bytes).subspan(filled);
        const FileError error = file.read_at(static_cast<std::int64_t>(filled), rest, got);
        filled += got;
        const bool too_long = error.ok() && filled > at_most;
        if (!error.ok() || too_long || got < rest.size()) {
            bytes.resize(error.ok() && !too_long ? filled : 0);
            return too_long ? FileError{FileFault::too_large, 0} : error;
        }
        room = filled + std::max(filled, read_step);
    }
}

FileError write_file_atomically(const std::u16string& path, std::span<const std::byte> bytes,
                                Privacy privacy) {
    return replace_by(path, [&](const std::u16string& fresh) { return write_whole(fresh, bytes, privacy); },
                      {});
}

FileError write_file_atomically(const std::u16string& path, std::span<const std::vector<std::byte>> pieces,
                                Privacy privacy, const std::function<FileError()>& between) {
    return replace_by(
        path, [&](const std::u16string& fresh) { return write_pieces(fresh, pieces, privacy, between); },
        between);
}

}  // namespace vantlow
