// A desktop entry in the user's applications and the defaults of mimeapps.list (freedesktop.org's desktop
// entry and MIME applications specifications).
#include "platform/associations.h"

#include <algorithm>
#include <vector>

#include "base/text.h"
#include "platform/ini_text.h"
#include "platform/process.h"

namespace vantlow {
namespace {

constexpr std::u16string_view entry_name = u"vantlow.desktop";
constexpr std::u16string_view defaults_section = u"Default Applications";
constexpr std::size_t largest_list = 1U << 20U;
constexpr std::array<std::u16string_view, 3> types{u"application/x-bittorrent", u"x-scheme-handler/ed2k",
                                                   u"x-scheme-handler/magnet"};

std::u16string_view type_of(Association kind) noexcept {
    return types[static_cast<std::size_t>(kind)];
}

std::u16string entry_path() {
    return join_path(join_path(folder_of(user_data_folder()), u"applications"), entry_name);
}

std::u16string defaults_path() {
    return join_path(user_config_folder(), u"mimeapps.list");
}

std::u16string session_start_path() {
    return join_path(join_path(user_config_folder(), u"autostart"), entry_name);
}

FileError load(const std::u16string& path, IniText& text) {
    std::vector<std::byte> bytes;
    const FileError error = read_file(path, largest_list, bytes);
    if (error.fault == FileFault::not_found) return {};
    if (!error.ok()) return error;
    const bool readable = text.parse({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return readable ? FileError{} : FileError{FileFault::other, 0};
}

FileError store(const std::u16string& path, const IniText& text) {
    if (FileError error = make_folders(folder_of(path)); !error.ok()) return error;
    const std::string bytes = text.bytes();
    return write_file_atomically(path, std::as_bytes(std::span(bytes)));
}

// The entries of a list "a;b;" without this program's own.
std::u16string others(std::u16string_view list) {
    std::u16string rest;
    while (!list.empty()) {
        const auto end = std::min(list.find(u';'), list.size());
        const std::u16string_view entry = list.substr(0, end);
        if (!entry.empty() && entry != entry_name) rest += std::u16string(entry) + u";";
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return rest;
}

// Writes a word of "Exec": in quotation marks, with the characters escaped that mean something within them,
// and "%" doubled.
std::u16string exec_word(std::u16string_view program) {
    std::u16string word = u"\"";
    for (const char16_t c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            word += u"\\\\";  // escaped twice: as a string too
        if (c == u'%') word.push_back(u'%');
        word.push_back(c);
    }
    return word + u"\"";
}

bool is_own(const IniText& defaults, std::u16string_view type) {
    const std::u16string* const list = defaults.find(defaults_section, type);
    if (list == nullptr) return false;
    const std::u16string fenced = u";" + *list + u";";
    return fenced.find(u";" + std::u16string(entry_name) + u";") != std::u16string::npos;
}

// Reads the entry's lines without the one of its types.
FileError read_entry(std::string& text) {
    std::vector<std::byte> bytes;
    if (FileError error = read_file(entry_path(), largest_list, bytes); !error.ok()) return error;
    const std::string_view whole(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (const std::string_view line : split(whole, '\n')) {
        if (!line.empty() && !line.starts_with("MimeType=")) text.append(line).append("\n");
    }
    return {};
}

// Writes the entry, which names the types that the defaults give this program; without any it is removed.
FileError write_entry(const IniText& defaults, const std::u16string* program) {
    std::u16string mine;
    for (const std::u16string_view type : types) {
        if (is_own(defaults, type)) mine += std::u16string(type) + u";";
    }
    if (mine.empty()) {
        const FileError error = remove_file(entry_path());
        return error.fault == FileFault::not_found ? FileError{} : error;
    }
    // The lines are not written in the settings' own notation, where a value in quotation marks means
    // something else.
    std::string text;
    if (program != nullptr) {
        text = "[Desktop Entry]\nType=Application\nName=Vantlow\nNoDisplay=true\nExec=" +
               to_utf8(exec_word(*program)) + " %U\n";
    } else if (FileError error = read_entry(text); !error.ok()) {
        return error;
    }
    text += "MimeType=" + to_utf8(mine) + "\n";
    if (FileError error = make_folders(folder_of(entry_path())); !error.ok()) return error;
    return write_file_atomically(entry_path(), std::as_bytes(std::span(text)));
}

}  // namespace

FileError associate(Association kind, const std::u16string& program) {
    IniText defaults;
    if (FileError error = load(defaults_path(), defaults); !error.ok()) return error;
    const std::u16string* const before = defaults.find(defaults_section, type_of(kind));
    const std::u16string rest = before != nullptr ? others(*before) : std::u16string();
    if (!defaults.set(defaults_section, type_of(kind), std::u16string(entry_name) + u";" + rest))
        return {FileFault::other, 0};
    if (FileError error = write_entry(defaults, &program); !error.ok()) return error;
    return store(defaults_path(), defaults);
}

FileError dissociate(Association kind) {
    IniText defaults;
    if (FileError error = load(defaults_path(), defaults); !error.ok()) return error;
    if (!is_own(defaults, type_of(kind))) return {};
    const std::u16string rest = others(*defaults.find(defaults_section, type_of(kind)));
    if (rest.empty()) {
        defaults.erase(defaults_section, type_of(kind));
    } else {
        defaults.set(defaults_section, type_of(kind), rest);
    }
    if (FileError error = store(defaults_path(), defaults); !error.ok()) return error;
    return write_entry(defaults, nullptr);
}

FileError start_with_session(const std::u16string& program, const std::string& words) {
    const std::string text =
        "[Desktop Entry]\nType=Application\nName=Vantlow\nExec=" + to_utf8(exec_word(program)) + " " + words +
        "\n";
    if (FileError error = make_folders(folder_of(session_start_path())); !error.ok()) return error;
    return write_file_atomically(session_start_path(), std::as_bytes(std::span(text)));
}

FileError stop_starting_with_session() {
    const FileError error = remove_file(session_start_path());
    return error.fault == FileFault::not_found ? FileError{} : error;
}

std::array<unsigned, link_formats.size()> register_link_formats() noexcept {
    return {};
}

}  // namespace vantlow
