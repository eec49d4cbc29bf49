// Files and folders. Paths are UTF-16, absolute or relative to the current folder, with either system's
// separators on Windows and "/" on Linux.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace vantlow {

/// The reasons for a failed file operation, as far as callers tell them apart.
enum class FileFault {
    none,
    not_found,
    exists,
    access,
    is_folder,
    no_space,
    read_only,
    name_too_long,
    in_use,
    too_large,    ///< for its reader, or for the file system
    folder_lost,  ///< its folder was removed or replaced
    other
};

struct [[nodiscard]] FileError {
    FileFault fault = FileFault::none;
    int system_error = 0;
    [[nodiscard]] bool ok() const noexcept { return fault == FileFault::none; }
    /// The system's sentence, UTF-8.
    [[nodiscard]] std::string text() const;
};

enum class OpenMode {
    read,            ///< an existing file, for reading
    write,           ///< an existing file or a new one, for reading and writing; what is in it stays
    write_existing,  ///< an existing file, for reading and writing
    create_new,      ///< a new file; fails with `exists` when there is one
    truncate,        ///< an existing file emptied, or a new one
};

/// Whether a new file may be read by other users of the machine (as far as the umask lets them).
enum class Privacy { shared, owner_only };

/// One open file. Positioned reads and writes may come from several threads at once; the other operations
/// from one. Others may read, write, rename and delete the file meanwhile.
class File {
  public:
    File() = default;
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;
    ~File();

    FileError open(const std::u16string& path, OpenMode mode, Privacy privacy = Privacy::shared);
    /// Opens the file for this process alone, as try_lock() does; `in_use` and closed where another holds it.
    /// So does a path that leads to nothing or to another file by the time of the lock: whoever was at work
    /// on the one that was opened has finished it, and it bears its own name now.
    FileError open_alone(const std::u16string& path, OpenMode mode, Privacy privacy = Privacy::shared);
    void close() noexcept;
    [[nodiscard]] bool is_open() const noexcept { return native_ != invalid; }

    /// Writes all bytes or fails; bytes written before the failure stay.
    FileError write_at(std::int64_t offset, std::span<const std::byte> bytes) noexcept;
    /// Reads up to the end of the file; `got` may be short only there.
    FileError read_at(std::int64_t offset, std::span<std::byte> into, std::size_t& got) const noexcept;
    /// Writes a range of another file at an offset of this one; where the system can do it, the bytes do not
    /// pass through the program. Fails when the other file ends before the range does; bytes written by then
    /// stay.
    FileError copy_from(const File& from, std::int64_t from_offset, std::int64_t to_offset,
                        std::int64_t count) noexcept;
    /// Bytes, or -1 on failure.
    [[nodiscard]] std::int64_t size() const noexcept;
    /// Sets the end of the file.
    FileError resize(std::int64_t size) noexcept;
    /// Makes the file `size` bytes long and reserves room on the disk for every byte; fails with no_space
    /// where there is not enough. A file system that cannot reserve room only sets the length.
    FileError allocate(std::int64_t size) noexcept;
    /// Returns when the bytes written so far are on the disk.
    FileError flush() noexcept;
    /// Takes the file for this process until it is closed or the process ends; false when another holds it.
    /// Two File objects of one process exclude each other too.
    bool try_lock() noexcept;

  private:
    friend class Conduit;
    /// FileStamp::identity of the open file, 0 where the system does not say.
    [[nodiscard]] std::uint64_t identity() const noexcept;
    /// Whether the path leads to this file.
    [[nodiscard]] bool is_at(const std::u16string& path) const noexcept;
    /// Copies a range through a buffer, with read_at and write_at.
    FileError copy_through_memory(const File& from, std::int64_t from_offset, std::int64_t to_offset,
                                  std::int64_t count) noexcept;

    static constexpr std::intptr_t invalid = -1;
    std::intptr_t native_ = invalid;
    std::u16string path_;  ///< as it was opened
};

enum class PathKind { none, file, folder, other };
PathKind path_kind(const std::u16string& path) noexcept;

FileError remove_file(const std::u16string& path) noexcept;
/// Atomic; fails with `exists` when there is something at `to`.
FileError rename_no_replace(const std::u16string& from, const std::u16string& to) noexcept;
/// Atomic; a file at `to` is replaced.
FileError rename_replace(const std::u16string& from, const std::u16string& to) noexcept;
/// Makes the folder and its parents; ok when it exists already.
FileError make_folders(const std::u16string& path);
/// True when the folder, or its nearest parent that exists, can be written. Leaves nothing behind.
bool can_write_below(const std::u16string& folder);
/// Makes renames, new names and removed names in the folder survive a power cut. Does nothing on Windows,
/// whose file systems log them.
FileError sync_folder(const std::u16string& path) noexcept;
/// Lists the names (not paths) of the files in a folder that end with `suffix`, links to files among them, in
/// no order.
FileError list_files(const std::u16string& folder, std::u16string_view suffix,
                     std::vector<std::u16string>& names);
/// Reads the whole file; fails with too_large when it is longer than `at_most` bytes.
FileError read_file(const std::u16string& path, std::size_t at_most, std::vector<std::byte>& bytes);
/// Replaces the file with one that holds these bytes: readers see either the old file or the new one whole,
/// also after a power cut. A failure leaves the old one. Until the end the bytes stand in `path + ".new"`.
FileError write_file_atomically(const std::u16string& path, std::span<const std::byte> bytes,
                                Privacy privacy = Privacy::shared);
/// Does the same with bytes in pieces. `between`, unless it is empty, is called between two pieces and right
/// before the new file gets its name; a failure of it is a failure of the whole.
FileError write_file_atomically(const std::u16string& path, std::span<const std::vector<std::byte>> pieces,
                                Privacy privacy, const std::function<FileError()>& between);

/// The separator that join_path puts in: "/" or "\".
char16_t path_separator() noexcept;
std::u16string join_path(std::u16string_view folder, std::u16string_view name);
/// folder_of: the part before the last separator, empty when there is none; the separator stays only where it
/// is a root's. name_of: the part behind the last separator.
std::u16string folder_of(std::u16string_view path);
std::u16string name_of(std::u16string_view path);
/// Makes a path absolute. A relative one begins at the thread's CurrentFolder, else at the process's current
/// folder.
std::u16string absolute_path(const std::u16string& path);

/// While it lives, relative paths that its thread makes absolute begin at this folder: it is for commands
/// that were given in another process. One at a time in a thread.
class CurrentFolder {
  public:
    explicit CurrentFolder(std::u16string folder);
    ~CurrentFolder();
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;
    /// The folder of the calling thread; empty where it has none.
    static const std::u16string& get() noexcept;
};

}  // namespace vantlow
