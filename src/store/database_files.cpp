#include "store/database_files.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "base/text.h"
#include "store/journal.h"

namespace vantlow {
namespace {

struct OneFile {
    FileError error;
    bool there = false;
    bool is_empty = false;  ///< it is there, without a byte
    CategoryTree tree;
    DatabaseLoad load;
    ImageDigest digest{};  ///< where it is wanted
};

OneFile load_one(const std::u16string& path, bool with_digest) {
    OneFile file;
    std::vector<std::byte> bytes;
    file.error = read_file(path, std::numeric_limits<std::int32_t>::max(), bytes);
    file.there = file.error.fault != FileFault::not_found;
    if (file.error.ok()) file.load = load_database(bytes, file.tree);
    if (file.error.ok() && with_digest) file.digest = digest_of(bytes);
    // An empty file is what a first start finds.
    file.is_empty = file.error.ok() && bytes.empty();
    if (file.is_empty) file.load.complete = true;
    return file;
}

// Rights and locks may be mended; a file that the disk itself cannot read is damaged.
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

/// The journal beside the database, as far as it is whole.
struct StoredJournal {
    FileError error;
    std::vector<std::byte> bytes;
    std::vector<std::span<const std::byte>> payloads;  ///< of `bytes`
    bool has_any = false;                              ///< changes, for whatever image
};

StoredJournal load_journal(const std::u16string& folder) {
    StoredJournal journal;
    const std::u16string path = database_path(folder) + std::u16string(journal_suffix);
    journal.error = read_file(path, std::numeric_limits<std::int32_t>::max(), journal.bytes);
    if (journal.error.fault == FileFault::not_found) journal.error = {};
    journal.payloads = JournalFrames::read(journal.bytes);
    journal.has_any = has_changes(journal.payloads);
    return journal;
}

void take(StoredDatabase& stored, OneFile& from, const StoredJournal& journal) {
    stored.tree = std::move(from.tree);
    stored.status = from.load.status;
    if (!journal.has_any || stored.status != DatabaseLoad::Status::loaded) return;
    const auto changes = journal_since(journal.payloads, from.digest);
    stored.from_journal = changes && has_changes(*changes);
    if (stored.from_journal) replay(*changes, stored.tree);
}

}  // namespace

std::u16string database_path(const std::u16string& folder) {
    return join_path(folder, database_name);
}

StoredDatabase load_database_files(const std::u16string& folder) {
    StoredDatabase stored;
    const std::u16string path = database_path(folder);
    StoredJournal journal = load_journal(folder);
    OneFile main = load_one(path, journal.has_any);
    // There is only one journal, so one that cannot be read must not be ignored.
    stored.error = is_refused(main.error) ? main.error : journal.error;
    if (!stored.error.ok()) return stored;
    stored.status = main.load.status;
    if (is_newer(main)) return stored;
    stored.damaged = main.there && !main.load.complete;
    const bool whole = main.load.complete && main.load.status == DatabaseLoad::Status::loaded;
    if (whole) {
        take(stored, main, journal);
        return stored;
    }
    OneFile copy = load_one(path + std::u16string(copy_suffix), journal.has_any);
    // The next save overwrites the copy, so it must not be one that a newer program needs.
    if (is_newer(copy)) {
        stored.status = copy.load.status;
        return stored;
    }
    const bool is_nothing_left = (main.is_empty || !main.there) && (copy.is_empty || !copy.there);
    if (is_nothing_left && (copy.is_empty || (main.is_empty && journal.has_any))) {
        // No first start leaves these.
        stored.damaged = main.there;
        stored.notes.push_back("The job database " + to_utf8(path) +
                               " and its copy are empty: their jobs are lost" +
                               (journal.has_any ? ", but for those in its journal." : "."));
        stored.left_journal = std::move(journal.bytes);
        return stored;
    }
    if (stored.damaged) stored.notes.push_back("The job database " + to_utf8(path) + " is damaged.");
    if (holds_more(copy, main)) {
        stored.from_copy = true;
        if (!stored.damaged) stored.notes.push_back("The job database " + to_utf8(path) + " is missing.");
        stored.notes.push_back("Its copy was used, with " + held(copy.load) + ".");
        take(stored, copy, journal);
        return stored;
    }
    if (stored.damaged) stored.notes.push_back("The readable part of it was used: " + held(main.load) + ".");
    take(stored, main, journal);
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

std::u16string backup_path(const std::u16string& folder, std::u16string date) {
    constexpr std::u16string_view refused = u"/\\:*?\"<>|";
    std::replace_if(
        date.begin(), date.end(), [&](char16_t c) { return c < 0x20 || refused.find(c) != refused.npos; },
        u'-');
    return join_path(folder, date + std::u16string(database_name));
}

}  // namespace vantlow
