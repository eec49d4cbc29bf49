#include "app/process/data_folder_change.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/folder.h"
#include "platform/stop.h"
#include "storage/relocation.h"
#include "store/data_folder_lock.h"
#include "store/database_files.h"
#include "store/journal.h"

namespace vantlow {
namespace {

// It stands in the new folder and holds the path of the one whose jobs are to come (UTF-8).
constexpr std::u16string_view note_name = u".moved-from";
constexpr std::size_t longest_note = 64 * 1024;
constexpr std::size_t largest_snapshot = std::size_t{1} << 30U;
// A folder of the program is not as deep as this.
constexpr int most_levels = 8;

std::u16string note_path(const std::u16string& folder) {
    return join_path(folder, note_name);
}

// The database itself comes last.
const std::array<std::u16string, 3>& database_names() {
    static const std::u16string name(database_name);
    static const std::array<std::u16string, 3> names{name + std::u16string(copy_suffix),
                                                     name + std::u16string(journal_suffix), name};
    return names;
}

bool has_jobs(const std::u16string& folder) {
    for (const std::u16string& name : database_names()) {
        if (path_kind(join_path(folder, name)) != PathKind::none) return true;
    }
    return false;
}

// Empty where the folder is waited for by nobody.
std::u16string noted_in(const std::u16string& folder) {
    std::vector<std::byte> bytes;
    if (!read_file(note_path(folder), longest_note, bytes).ok()) return {};
    return to_utf16(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

// The files below a folder, by their names in it. The new folder may lie in the old one.
FileError list_below(const std::u16string& folder, const std::u16string& within, const std::u16string& except,
                     int levels, std::vector<std::u16string>& names) {
    std::vector<FolderEntry> entries;
    if (FileError error = list_folder(join_path(folder, within), entries); !error.ok()) return error;
    for (const FolderEntry& entry : entries) {
        const std::u16string name = join_path(within, entry.name);
        const bool is_own = within.empty() && (entry.name == lock_file_name || entry.name == note_name);
        if (is_own || join_path(folder, name) == except) continue;
        if (entry.kind == PathKind::file) names.push_back(name);
        if (entry.kind != PathKind::folder || entry.is_link || levels == 0) continue;
        if (FileError error = list_below(folder, name, except, levels - 1, names); !error.ok()) return error;
    }
    return {};
}

}  // namespace

std::u16string folder_of_jobs(const std::u16string& chosen) {
    std::u16string from = noted_in(chosen);
    return !from.empty() && from != chosen && has_jobs(from) ? from : chosen;
}

FileError announce_data_folder(const std::u16string& from, const std::u16string& to) {
    keep_data_folder(from);  // of a change that was carried out, or is taken back
    const bool is_noted = !noted_in(to).empty();
    if (from == to || (has_jobs(to) && !is_noted)) return {};
    if (FileError error = make_folders(to); !error.ok()) return error;
    const std::string note = to_utf8(from);
    FileError error = write_file_atomically(note_path(to), std::as_bytes(std::span(note)));
    if (!error.ok()) return error;
    // For whoever looks there, and where the old folder is never seen again.
    std::vector<std::byte> database;
    error = read_file(database_path(from), largest_snapshot, database);
    if (error.fault == FileFault::not_found) return {};
    if (error.ok()) error = write_file_atomically(database_path(to), database, Privacy::owner_only);
    return error;
}

void keep_data_folder(const std::u16string& folder) {
    static_cast<void>(remove_file(note_path(folder)));
}

FileError move_data_folder(const std::u16string& from, const std::u16string& to, const std::u16string& stays,
                           LogSink& log) {
    std::vector<std::u16string> names;
    if (FileError error = list_below(from, {}, to, most_levels, names); !error.ok()) return error;
    std::erase(names, std::u16string(name_of(stays)));
    // While the old folder has a database its jobs are those that count.
    for (const std::u16string& name : database_names()) {
        if (std::erase(names, name) == 0) continue;
        names.push_back(name);
        static_cast<void>(remove_file(join_path(to, name)));  // an earlier state of it
    }
    Relocation relocation;
    for (const std::u16string& name : names) {
        const std::u16string target = join_path(to, name);
        if (path_kind(target) == PathKind::none)
            relocation.items.push_back({join_path(from, name), target, false, true});
        else
            log.line(Direction::note, to_utf8(target) + " is there already and stays.");
    }
    const StopSource never;
    std::atomic<std::int64_t> moved{0};
    const RelocationEnd end = relocate(relocation, never, never, moved, log);
    if (end.state != RelocationEnd::State::moved) return end.error;
    return remove_file(note_path(to));
}

}  // namespace vantlow
