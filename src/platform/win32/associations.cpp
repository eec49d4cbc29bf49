#include "platform/associations.h"

#include <optional>

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/win32/native.h"
// after the system's own
#include <shlobj.h>

namespace vantlow {
namespace {

constexpr std::u16string_view classes = u"Software\\Classes\\";
constexpr std::u16string_view file_class = u"Vantlow";
// Beside each value that this program replaced stand two others: the text that this program wrote, by which
// the value is known as its own, and the text that stood there before, unless there was none. For the default
// value they have these names, for a named value a dot and its name follow.
constexpr std::u16string_view own_text = u"Vantlow";
constexpr std::u16string_view text_before = u"Vantlow.Before";
constexpr const wchar_t* url_protocol = L"URL Protocol";
constexpr std::u16string_view session_starts = u"Software\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr const wchar_t* session_name = L"Vantlow";

std::u16string key_of(std::u16string_view name) {
    return std::u16string(classes).append(name);
}

std::u16string_view scheme_of(Association kind) noexcept {
    return kind == Association::ed2k_links ? u"ed2k" : u"magnet";
}

std::u16string open_command(std::u16string_view program) {
    return u"\"" + std::u16string(program) + u"\" \"%1\"";
}

LSTATUS write_value(const std::u16string& key, const wchar_t* name, const std::u16string& text) noexcept {
    if (const int error = ask_hook(Operation::write_setting, key); error != 0) return error;
    const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(char16_t));
    return RegSetKeyValueW(HKEY_CURRENT_USER, wide(key), name, REG_SZ, text.c_str(), size);
}

std::optional<std::u16string> read_value(const std::u16string& key, const wchar_t* name) {
    if (ask_hook(Operation::read_setting, key) != 0) return std::nullopt;
    std::wstring text(32768, L'\0');
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    const LSTATUS error =
        RegGetValueW(HKEY_CURRENT_USER, wide(key), name, RRF_RT_REG_SZ, nullptr, text.data(), &size);
    if (error != ERROR_SUCCESS) return std::nullopt;
    return from_wide(text.substr(0, text.find(L'\0')));
}

// A missing value counts as removed.
LSTATUS remove_value(const std::u16string& key, const wchar_t* name) noexcept {
    if (const int error = ask_hook(Operation::write_setting, key); error != 0) return error;
    const LSTATUS error = RegDeleteKeyValueW(HKEY_CURRENT_USER, wide(key), name);
    return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

LSTATUS remove_key(const std::u16string& key) noexcept {
    if (const int error = ask_hook(Operation::write_setting, key); error != 0) return error;
    const LSTATUS error = RegDeleteTreeW(HKEY_CURRENT_USER, wide(key));
    return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

// Removes a key with nothing in it, which belongs to nobody.
LSTATUS remove_if_empty(const std::u16string& key) {
    HKEY open = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, wide(key), 0, KEY_READ, &open) != ERROR_SUCCESS)
        return ERROR_SUCCESS;
    DWORD keys = 0;
    DWORD values = 0;
    const LSTATUS error = RegQueryInfoKeyW(open, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values,
                                           nullptr, nullptr, nullptr, nullptr);
    RegCloseKey(open);
    if (error != ERROR_SUCCESS || keys > 0 || values > 0) return error;
    if (const int refused = ask_hook(Operation::write_setting, key); refused != 0) return refused;
    return RegDeleteKeyW(HKEY_CURRENT_USER, wide(key));
}

std::u16string beside(std::u16string_view what, const wchar_t* name) {
    std::u16string text(what);
    return name == nullptr ? text : text + u"." + from_wide(name);
}

// True while the value is as this program wrote it: another program may have taken it over since.
bool is_own(const std::u16string& key, const wchar_t* name) {
    const auto written = read_value(key, wide(beside(own_text, name)));
    return written && read_value(key, name) == written;
}

// Replaces a value, and remembers the text before it unless that was this program's.
LSTATUS take_over(const std::u16string& key, const wchar_t* name, const std::u16string& text) {
    LSTATUS error = ERROR_SUCCESS;
    if (!is_own(key, name)) {
        const std::u16string memory = beside(text_before, name);
        const auto before = read_value(key, name);
        error = before ? write_value(key, wide(memory), *before) : remove_value(key, wide(memory));
    }
    if (error == ERROR_SUCCESS) error = write_value(key, wide(beside(own_text, name)), text);
    return error == ERROR_SUCCESS ? write_value(key, name, text) : error;
}

// Forgets that the value was this program's. The mark goes first: a value without a text before it must not
// be taken for one that was added.
LSTATUS forget(const std::u16string& key, const wchar_t* name) {
    for (const std::u16string& one : {beside(own_text, name), beside(text_before, name)}) {
        if (!read_value(key, wide(one))) continue;
        if (const LSTATUS error = remove_value(key, wide(one)); error != ERROR_SUCCESS) return error;
    }
    return ERROR_SUCCESS;
}

// Puts back the text that stood there before, unless another program has replaced the value since.
LSTATUS give_back(const std::u16string& key, const wchar_t* name) {
    LSTATUS error = ERROR_SUCCESS;
    if (is_own(key, name)) {
        const auto before = read_value(key, wide(beside(text_before, name)));
        error = before ? write_value(key, name, *before) : remove_value(key, name);
    }
    return error == ERROR_SUCCESS ? forget(key, name) : error;
}

LSTATUS take_files(const std::u16string& program) {
    const std::u16string key = key_of(file_class);
    LSTATUS error = write_value(key + u"\\DefaultIcon", nullptr, program + u",0");
    if (error == ERROR_SUCCESS)
        error = write_value(key + u"\\shell\\open\\command", nullptr, open_command(program));
    if (error != ERROR_SUCCESS) return error;
    return take_over(key_of(u".torrent"), nullptr, std::u16string(file_class));
}

LSTATUS take_links(std::u16string_view scheme, const std::u16string& program) {
    const std::u16string key = key_of(scheme);
    LSTATUS error = ERROR_SUCCESS;
    // The description of another program fits this one as well.
    if (!read_value(key, nullptr)) error = take_over(key, nullptr, u"URL:" + std::u16string(scheme));
    if (error == ERROR_SUCCESS) error = take_over(key, url_protocol, u"");
    if (error == ERROR_SUCCESS) error = take_over(key + u"\\DefaultIcon", nullptr, program + u",0");
    if (error != ERROR_SUCCESS) return error;
    return take_over(key + u"\\shell\\open\\command", nullptr, open_command(program));
}

LSTATUS give_back_files() {
    const std::u16string extension = key_of(u".torrent");
    LSTATUS error = give_back(extension, nullptr);
    if (error == ERROR_SUCCESS) error = remove_if_empty(extension);
    return error == ERROR_SUCCESS ? remove_key(key_of(file_class)) : error;
}

LSTATUS give_back_links(std::u16string_view scheme) {
    const std::u16string key = key_of(scheme);
    const std::u16string icon = key + u"\\DefaultIcon";
    const std::u16string command = key + u"\\shell\\open\\command";
    // A program that has taken the command since needs the key's own values, which it may have found as they
    // are.
    const auto end_of = is_own(command, nullptr) ? give_back : forget;
    LSTATUS error = end_of(key, nullptr);
    if (error == ERROR_SUCCESS) error = end_of(key, url_protocol);
    if (error == ERROR_SUCCESS) error = give_back(icon, nullptr);
    // The command is last: by it another call after a failure sees whose the key is.
    if (error == ERROR_SUCCESS) error = give_back(command, nullptr);
    for (const std::u16string& made : {command, key + u"\\shell\\open", key + u"\\shell", icon, key}) {
        if (error == ERROR_SUCCESS) error = remove_if_empty(made);
    }
    return error;
}

}  // namespace

FileError associate(Association kind, const std::u16string& program) {
    const LSTATUS error =
        kind == Association::torrent_files ? take_files(program) : take_links(scheme_of(kind), program);
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
    return file_error(static_cast<DWORD>(error));
}

FileError dissociate(Association kind) {
    const LSTATUS error =
        kind == Association::torrent_files ? give_back_files() : give_back_links(scheme_of(kind));
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
    return file_error(static_cast<DWORD>(error));
}

FileError start_with_session(const std::u16string& program, const std::string& words) {
    const std::u16string command = u"\"" + program + u"\" " + to_utf16(words);
    return file_error(static_cast<DWORD>(write_value(std::u16string(session_starts), session_name, command)));
}

FileError stop_starting_with_session() {
    return file_error(static_cast<DWORD>(remove_value(std::u16string(session_starts), session_name)));
}

std::array<unsigned, link_formats.size()> register_link_formats() noexcept {
    std::array<unsigned, link_formats.size()> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = RegisterClipboardFormatW(reinterpret_cast<const wchar_t*>(link_formats[i].data()));
    }
    return numbers;
}

}  // namespace vantlow
