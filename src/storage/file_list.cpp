#include "storage/file_list.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "base/safe_name.h"
#include "base/text.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::size_t most_files = 1'000'000;
constexpr std::int64_t most_bytes = std::int64_t{1} << 62U;
constexpr std::size_t most_parts = 64;

// Letter case as Windows sees it, for the alphabets that have it: Latin, Greek, Cyrillic. Whatever is folded
// too much only costs a "(1)" in a name.
char16_t fold(char16_t c) noexcept {
    if (c < 0x80) return ascii_lower(c);
    if ((c >= 0xC0 && c <= 0xDE && c != 0xD7) || (c >= 0x391 && c <= 0x3A9) || (c >= 0x410 && c <= 0x42F))
        return static_cast<char16_t>(c + 0x20);
    if (c >= 0x400 && c <= 0x40F) return static_cast<char16_t>(c + 0x50);
    if (c == 0x178) return 0xFF;
    // The pairs of these two stretches begin odd.
    if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return static_cast<char16_t>(c + (c & 1U));
    const bool in_pairs =
        (c >= 0x100 && c <= 0x17F) || (c >= 0x460 && c <= 0x52F) || (c >= 0x1E00 && c <= 0x1EFF);
    if (in_pairs) return static_cast<char16_t>(c | 1U);
    return c;
}

std::u16string fold(std::u16string_view name) {
    std::u16string folded(name);
    std::transform(folded.begin(), folded.end(), folded.begin(), [](char16_t c) { return fold(c); });
    return folded;
}

std::vector<std::u16string> safe_parts(std::u16string_view path) {
    std::vector<std::u16string> parts;
    while (!path.empty() && parts.size() < most_parts) {
        const auto end = path.find_first_of(u"/\\");
        const std::u16string_view part = path.substr(0, end);
        path = end == std::u16string_view::npos ? std::u16string_view{} : path.substr(end + 1);
        if (part.empty() || part == u"." || part == u"..") continue;
        parts.push_back(safe_file_name(part, u"_"));
    }
    if (parts.empty()) parts.emplace_back(u"_");
    return parts;
}

/// The names that are taken: folders stay what they are for all of their files, files have one name each.
class Names {
  public:
    std::u16string place(const std::vector<std::u16string>& parts) {
        std::u16string path;
        for (std::size_t i = 0; i + 1 < parts.size(); ++i) path = folder_in(path, parts[i]);
        const std::u16string name = free_in(path, parts.back());
        std::u16string whole = join_path(path, name);
        taken_.insert(fold(whole));
        return whole;
    }

  private:
    std::u16string folder_in(const std::u16string& above, const std::u16string& name) {
        const std::u16string key = fold(join_path(above, name));
        if (const auto known = folders_.find(key); known != folders_.end()) return known->second;
        std::u16string path = join_path(above, free_in(above, name));
        folders_.emplace(key, path);
        folders_.emplace(fold(path), path);
        taken_.insert(fold(path));
        return path;
    }

    std::u16string free_in(const std::u16string& folder, const std::u16string& name) {
        const std::u16string key = fold(join_path(folder, name));
        if (!taken_.contains(key)) return name;
        // Thousands of files of one name go on counting where the last one ended.
        std::u16string& last = last_[key];
        last = free_name(last.empty() ? name : last, [&](const std::u16string& candidate) {
            return taken_.contains(fold(join_path(folder, candidate)));
        });
        return last;
    }

    std::unordered_set<std::u16string> taken_;  ///< folded paths
    std::unordered_map<std::u16string, std::u16string>
        folders_;  ///< by folded path, as asked for and as placed
    std::unordered_map<std::u16string, std::u16string> last_;
};

}  // namespace

Outcome<FileList> FileList::make(std::span<const NamedFile> named) {
    if (named.empty() || named.size() > most_files)
        return Result(Code::unsupported, "There are no files, or more than a million.");
    FileList list;
    list.files_.reserve(named.size());
    Names names;
    for (const NamedFile& file : named) {
        if (file.length < 0 || file.length > most_bytes - list.size_)
            return Result(Code::unsupported, "The files are larger than can be.");
        ListedFile listed{{}, list.size_, file.length, file.padding};
        if (!file.padding) listed.path = names.place(safe_parts(file.path));
        list.size_ += file.length;
        list.files_.push_back(std::move(listed));
    }
    return list;
}

std::size_t FileList::file_at(std::int64_t position) const noexcept {
    // The last file that begins at or before the position: those without bytes stand before it.
    const auto behind =
        std::upper_bound(files_.begin(), files_.end(), position,
                         [](std::int64_t at, const ListedFile& file) { return at < file.offset; });
    return static_cast<std::size_t>(behind - files_.begin()) - 1;
}

std::vector<FileSpan> FileList::spans(std::int64_t position, std::int64_t length) const {
    std::vector<FileSpan> found;
    if (length <= 0) return found;
    for (std::size_t file = file_at(position); length > 0 && file < files_.size(); ++file) {
        const ListedFile& listed = files_[file];
        const std::int64_t offset = position - listed.offset;
        const std::int64_t part = std::min(length, listed.length - offset);
        if (part <= 0) continue;
        found.push_back({file, offset, part});
        position += part;
        length -= part;
    }
    return found;
}

}  // namespace vantlow
