#include "store/database_files.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "base/text.h"

namespace vantlow {
namespace {

std::u16string database_path(const std::u16string& folder) {
    return join_path(folder, database_name);
}

struct OneFile {
    FileError error;
    bool there = false;
    CategoryTree tree;
    DatabaseLoad load;
};

OneFile load_one(const std::u16string& path) {
    OneFile file;
    std::vector<std::byte> bytes;
    file.error = read_file(path, std::numeric_limits<std::int32_t>::max(), bytes);
    file.there = file.error.fault != FileFault::not_found;
    if (file.error.ok()) file.load = load_database(bytes, file.tree);
    // An empty file is what a first start finds.
    if (file.error.ok() && bytes.empty()) file.load.complete = true;
    return file;
}

// Rights and locks may be mended; what the disk itself cannot read is damage.
bool is_refused(const FileError& error) noexcept {
    return !error.ok() && error.fault != FileFault::not_found && error.fault != FileFault::other;
}

bool is_newer(const OneFile& file) noexcept {
    return file.load.status == DatabaseLoad::Status::newer;
}

bool holds_more(const OneFile& a, const OneFile& b) noexcept {
    if (a.load.status != DatabaseLoad::Status::loaded) return false;
    if (a.load.jobs != b.load.jobs) return a.load.jobs > b.load.jobs;
    if (a.load.categories != b.load.categories) return a.load.categories > b.load.categories;
    return a.load.complete && !b.load.complete;
}

std::string held(const DatabaseLoad& load) {
    return std::to_string(load.jobs) + (load.jobs == 1 ? " job" : " jobs");
}

std::u16string time_text() {
    const std::time_t now = std::time(nullptr);
    char text[32] = {};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): called by the one thread that owns the data folder
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", std::gmtime(&now));
    return to_utf16(text);
}

void take(StoredDatabase& stored, OneFile& from) {
    stored.tree = std::move(from.tree);
    stored.status = from.load.status;
}

}  // namespace

StoredDatabase load_database_files(const std::u16string& folder) {
    StoredDatabase stored;
    const std::u16string path = database_path(folder);
    OneFile main = load_one(path);
    if (is_refused(main.error)) {
        stored.error = main.error;
        return stored;
    }
    stored.status = main.load.status;
    if (is_newer(main)) return stored;
    stored.damaged = main.there && !main.load.complete;
    const bool whole = main.load.complete && main.load.status == DatabaseLoad::Status::loaded;
    if (whole) {
        take(stored, main);
        return stored;
    }
    OneFile copy = load_one(path + std::u16string(copy_suffix));
    // Written over by the next save, so it must not be what a newer program needs.
    if (is_newer(copy)) {
        stored.status = copy.load.status;
        return stored;
    }
    if (stored.damaged) stored.notes.push_back("The job database " + to_utf8(path) + " is damaged.");
    if (holds_more(copy, main)) {
        stored.from_copy = true;
        if (!stored.damaged) stored.notes.push_back("The job database " + to_utf8(path) + " is missing.");
        stored.notes.push_back("Its copy was taken, with " + held(copy.load) + ".");
        take(stored, copy);
        return stored;
    }
    if (stored.damaged)
        stored.notes.push_back("What could be read of it was taken: " + held(main.load) + ".");
    take(stored, main);
    return stored;
}

FileError keep_damaged_database(const std::u16string& folder, std::u16string& kept_as) {
    const std::u16string path = database_path(folder);
    const std::u16string name = path + u".damaged-" + time_text();
    constexpr int most_names = 100;
    FileError error;
    for (int i = 1; i <= most_names; ++i) {
        kept_as = i == 1 ? name : name + u"-" + to_utf16(std::to_string(i));
        error = rename_no_replace(path, kept_as);
        if (error.fault != FileFault::exists) return error;
    }
    return error;
}

FileError save_database_files(const std::u16string& folder, std::span<const std::byte> image,
                              FileError& copy) {
    copy = {};
    if (FileError error = make_folders(folder); !error.ok()) return error;
    const std::u16string path = database_path(folder);
    if (FileError error = write_file_atomically(path, image, Privacy::owner_only); !error.ok()) return error;
    copy = write_file_atomically(path + std::u16string(copy_suffix), image, Privacy::owner_only);
    return {};
}

std::u16string backup_path(const std::u16string& folder, std::u16string date) {
    constexpr std::u16string_view refused = u"/\\:*?\"<>|";
    std::replace_if(
        date.begin(), date.end(), [&](char16_t c) { return c < 0x20 || refused.find(c) != refused.npos; },
        u'-');
    return join_path(folder, date + std::u16string(database_name));
}

}  // namespace vantlow
