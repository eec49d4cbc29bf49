#include "support/temp_folder.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "base/codes.h"
#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"

namespace vantlow::test {
namespace {

constexpr std::size_t most_read = std::size_t{1} << 30U;

std::u16string unique_name() {
    unsigned char bytes[16];
    random_guid(bytes);
    return u"vantlow-" + to_utf16(to_hex(std::as_bytes(std::span(bytes)))).substr(0, 16);
}

}  // namespace

TempFolder::TempFolder(Name name) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / unique_name();
    path_ = folder.u16string();
    if (name == Name::foreign) path_ += u" Gr\u00fc\u00dfe \u65e5\u672c \U0001F4C1";
    if (FileError error = make_folders(path_); !error.ok()) throw std::runtime_error(error.text());
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    // Read-only entries resist on Windows, folders without write access elsewhere.
    if (!std::filesystem::exists(path_, ignored)) return;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_, ignored)) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all, ignored);
    }
    std::filesystem::remove_all(path_, ignored);
}

std::u16string TempFolder::path(std::u16string_view name) const {
    return std::filesystem::path(join_path(path_, name)).make_preferred().u16string();
}

std::string TempFolder::utf8_path(std::string_view name) const {
    return to_utf8(name.empty() ? path_ : path(to_utf16(name)));
}

std::u16string TempFolder::write(std::u16string_view name, std::string_view text) const {
    std::u16string where = path(name);
    File file;
    FileError error = file.open(where, OpenMode::truncate);
    if (error.ok()) error = file.write_at(0, std::as_bytes(std::span(text)));
    if (!error.ok()) throw std::runtime_error(to_utf8(where) + ": " + error.text());
    return where;
}

std::string TempFolder::read(std::u16string_view name) const {
    std::vector<std::byte> bytes;
    if (FileError error = read_file(path(name), most_read, bytes); !error.ok()) {
        throw std::runtime_error(to_utf8(path(name)) + ": " + error.text());
    }
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool TempFolder::has(std::u16string_view name) const {
    return path_kind(path(name)) != PathKind::none;
}

std::vector<std::u16string> TempFolder::names() const {
    std::vector<std::u16string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        found.push_back(entry.path().filename().u16string());
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace vantlow::test
