#include "app/cli/get/list_memory.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <span>
#include <vector>

#include "base/codes.h"
#include "base/digest.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "platform/file_marks.h"
#include "store/address.h"

namespace vantlow {
namespace {

using nlohmann::json;

constexpr std::size_t largest_memory = 64U << 20U;
constexpr std::string_view file_begin = ".list-";
constexpr std::size_t link_digits = 16;

std::string digest_of(std::string_view text) {
    Digest digest(DigestKind::sha256);
    digest.update(std::as_bytes(std::span(text)));
    return to_hex(digest.finish());
}

// The asked name counts beside the address: one address under two names means two files.
// Short ones: a list is known by all of its links together.
std::vector<std::string> digests_of(const std::vector<std::string>& links) {
    std::vector<std::string> digests;
    for (const std::string& link : links) digests.push_back(digest_of(link).substr(0, link_digits));
    return digests;
}

std::string key_of(const std::u16string& address, const std::u16string& name) {
    return digest_of(to_utf8(without_credentials(address)) + "\n" + to_utf8(name));
}

std::vector<std::string_view> whole_lines(std::span<const std::byte> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    std::vector<std::string_view> lines = split(text, '\n');
    lines.pop_back();  // empty, or cut off
    return lines;
}

// True where the first line of a list without a file names all of these links.
bool has_all(std::string_view first_line, const std::vector<std::string>& digests) {
    const json line = json::parse(first_line, nullptr, false);
    if (!line.is_object() || !line.contains("links") || !line["links"].is_array()) return false;
    std::set<std::string> known;
    for (const json& one : line["links"]) {
        if (one.is_string()) known.insert(one.get<std::string>());
    }
    return std::ranges::all_of(digests, [&](const std::string& one) { return known.contains(one); });
}

}  // namespace

ListMemory::ListMemory(const std::u16string& folder, const List& list) : folder_(folder) {
    std::string all = list.file;
    std::vector<std::string> digests;
    if (list.file.empty()) {
        for (const std::string& link : list.links) all += link + "\n";
        digests = digests_of(list.links);
        first_line_ = json{{"links", digests}}.dump() + "\n";
    }
    // No file from a server gets a name with this end.
    const std::string name = std::string(file_begin) + digest_of(all).substr(0, 16);
    path_ = join_path(folder, to_utf16(name) + std::u16string(state_suffix));
    const MutexLock guard(mutex_);
    if (path_kind(path_) == PathKind::file) {
        read();
    } else if (list.file.empty() && list.may_be_rest) {
        read_longer(digests);
    }
}

void ListMemory::read_line(std::string_view text, Lines& lines) const {
    const json line = json::parse(text, nullptr, false);
    if (!line.is_object() || !line.contains("key") || !line["key"].is_string()) return;
    if (!line.contains("file") || !line["file"].is_string() || !line.contains("size")) return;
    if (!line["size"].is_number_integer()) return;
    Line read{
        {join_path(folder_, to_utf16(line["file"].get<std::string>())), line["size"].get<std::int64_t>()}};
    const std::string key = line["key"].get<std::string>();
    if (line.contains("partial") && line["partial"].is_string()) {
        read.partial = join_path(folder_, to_utf16(line["partial"].get<std::string>()));
        // The name of a line before was taken: what stands there is somebody else's.
        const auto [first, last] = lines.equal_range(key);
        for (auto before = first; before != last;)
            before = before->second.partial == read.partial ? lines.erase(before) : std::next(before);
    }
    lines.emplace(key, std::move(read));
}

void ListMemory::read() {
    failure_ = file_.open_alone(path_, OpenMode::write_existing);
    others_ = failure_.fault == FileFault::in_use;
    if (others_) failure_ = {};
    if (others_ || !failure_.ok()) return;
    std::vector<std::byte> bytes;
    failure_ = read_file(path_, largest_memory, bytes);
    if (!failure_.ok()) return file_.close();
    // A line that was cut off is written over.
    std::size_t at = 0;
    for (const std::string_view line : whole_lines(bytes)) {
        read_line(line, finished_);
        at += line.size() + 1;
    }
    end_ = static_cast<std::int64_t>(at);
}

// Takes over what lists have finished that had all of these links and more, unless one is being fetched now.
void ListMemory::read_longer(const std::vector<std::string>& digests) {
    std::vector<std::u16string> names;
    if (!list_files(folder_, state_suffix, names).ok()) return;
    for (const std::u16string& name : names) {
        File other;
        std::vector<std::byte> bytes;
        const std::u16string path = join_path(folder_, name);
        if (!name.starts_with(to_utf16(file_begin)) ||
            !other.open_alone(path, OpenMode::write_existing).ok() ||
            !read_file(path, largest_memory, bytes).ok())
            continue;
        const auto lines = whole_lines(bytes);
        if (lines.empty() || !has_all(lines.front(), digests)) continue;
        Lines read;
        for (const std::string_view line : lines) read_line(line, read);
        for (const auto& [key, line] : read) write(line_of(key, line, line.partial));
        finished_.merge(read);
    }
}

std::optional<ListMemory::Finished> ListMemory::take(const CJobNode& job) {
    const MutexLock guard(mutex_);
    if (finished_.empty()) return std::nullopt;
    const std::string key = key_of(job.address, job.file_name);
    for (auto at = finished_.find(key); at != finished_.end(); at = finished_.find(key)) {
        Line file = std::move(at->second);
        finished_.erase(at);
        if (!file.partial.empty() && path_kind(file.partial) != PathKind::none) continue;
        const FileStamp stamp = file_stamp(file.path);
        // The folder of a torrent is named here only once all of its files are whole.
        const bool is_folder = path_kind(file.path) == PathKind::folder;
        if (is_folder || (stamp.there && stamp.size == file.size)) return file;
    }
    return std::nullopt;
}

void ListMemory::forget() {
    const MutexLock guard(mutex_);
    finished_.clear();
    end_ = 0;
    if (file_.is_open()) failure_ = file_.resize(0);
}

void ListMemory::naming(const NameKeeper::Naming& naming) {
    const std::string key = key_of(naming.address, naming.asked_name);
    MutexLock guard(mutex_);
    // Until it has a name that is free, the partial file stands beside the first one.
    const std::u16string partial =
        partial_files_.emplace(naming.job, naming.path + std::u16string(partial_suffix)).first->second;
    guard.unlock();
    const std::string line = line_of(key, {naming.path, naming.size}, partial);
    guard.lock();
    write(line);
}

void ListMemory::add(const CJobNode& job, const Finished& file) {
    MutexLock guard(mutex_);
    if (partial_files_.contains(job.identity)) return;
    guard.unlock();
    const std::string line = line_of(key_of(job.address, job.file_name), file, {});
    guard.lock();
    write(line);
}

// From the folder on, which may be moved between two runs.
std::optional<std::u16string> ListMemory::below_folder(const std::u16string& path) const {
    const std::u16string above = join_path(folder_, u"x");
    if (!path.starts_with(std::u16string_view(above).substr(0, above.size() - 1))) return std::nullopt;
    return path.substr(above.size() - 1);
}

// Empty for a file outside the folder, which is not remembered.
std::string ListMemory::line_of(const std::string& key, const Finished& file,
                                const std::u16string& partial) const {
    const auto name = below_folder(file.path);
    if (!name) return {};
    json line{{"key", key}, {"file", to_utf8(*name)}, {"size", file.size}};
    if (const auto before = below_folder(partial)) line["partial"] = to_utf8(*before);
    return line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

void ListMemory::write(const std::string& line) {
    if (line.empty() || others_ || !failure_.ok()) return;
    if (!file_.is_open()) {
        failure_ = file_.open_alone(path_, OpenMode::create_new, Privacy::owner_only);
        others_ = failure_.fault == FileFault::exists || failure_.fault == FileFault::in_use;
        if (others_) failure_ = {};
        if (others_ || !failure_.ok()) return;
    }
    const std::string text = end_ == 0 ? first_line_ + line : line;
    failure_ = file_.write_at(end_, std::as_bytes(std::span(text)));
    if (!failure_.ok()) return;
    end_ += static_cast<std::int64_t>(text.size());
    unsaved_ = true;
}

void ListMemory::save() {
    const MutexLock guard(mutex_);
    if (!unsaved_ || !failure_.ok()) return;
    failure_ = file_.flush();
    unsaved_ = false;
}

FileError ListMemory::close(bool is_through) {
    if (!is_through) save();
    const MutexLock guard(mutex_);
    // It goes while it is still held: behind its end another process could have begun to write into it.
    FileError error = failure_;
    if (is_through && file_.is_open()) error = remove_file(path_);
    file_.close();
    return is_through && error.fault == FileFault::not_found ? FileError{} : error;
}

}  // namespace vantlow
