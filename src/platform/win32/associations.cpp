#include "platform/associations.h"

#include <optional>

#include "platform/fault_hook.h"
#include "platform/win32/native.h"
// after the system's own
#include <shlobj.h>

namespace vantlow {
namespace {

constexpr std::u16string_view classes = u"Software\\Classes\\";
constexpr std::u16string_view file_class = u"Vantlow";
// Beside a default value that was replaced: what it was.
constexpr const wchar_t* before_value = L"Vantlow.Before";
// Beside a default command of this program: 1.
constexpr const wchar_t* own_mark = L"Vantlow";

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

// Replaces a default value and remembers what it was, unless it is this program's already.
LSTATUS take_over(const std::u16string& key, const std::u16string& text, bool own) {
    const auto before = read_value(key, nullptr);
    if (before && !own) write_value(key, before_value, *before);
    return write_value(key, nullptr, text);
}

// What is not there needs no removal.
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

// A key in which nothing stands is nobody's.
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

// What was before is the default value again, or there is none. The memory of it goes last, and behind the
// mark: a key that is this program's and remembers nothing would be removed.
LSTATUS give_back(const std::u16string& key, const std::optional<std::u16string>& before) {
    LSTATUS error = before ? write_value(key, nullptr, *before) : remove_value(key, nullptr);
    if (error == ERROR_SUCCESS) error = remove_value(key, own_mark);
    return error == ERROR_SUCCESS ? remove_value(key, before_value) : error;
}

// A default command of this program, whichever folder it stood in.
bool is_own_command(const std::u16string& key) {
    const auto command = read_value(key, nullptr);
    return command && read_value(key, own_mark) == u"1";
}

LSTATUS write_open_keys(const std::u16string& key, const std::u16string& program) {
    const std::u16string command_key = key + u"\\shell\\open\\command";
    LSTATUS error = write_value(key + u"\\DefaultIcon", nullptr, program + u",0");
    if (error == ERROR_SUCCESS)
        error = take_over(command_key, open_command(program), is_own_command(command_key));
    if (error == ERROR_SUCCESS) error = write_value(command_key, own_mark, u"1");
    return error;
}

LSTATUS take_files(const std::u16string& program) {
    const std::u16string extension = key_of(u".torrent");
    const LSTATUS error = write_open_keys(key_of(file_class), program);
    if (error != ERROR_SUCCESS) return error;
    return take_over(extension, std::u16string(file_class), read_value(extension, nullptr) == file_class);
}

LSTATUS take_links(std::u16string_view scheme, const std::u16string& program) {
    const std::u16string key = key_of(scheme);
    if (!read_value(key, nullptr)) write_value(key, nullptr, u"URL:" + std::u16string(scheme));
    const LSTATUS error = write_value(key, L"URL Protocol", u"");
    return error == ERROR_SUCCESS ? write_open_keys(key, program) : error;
}

LSTATUS give_back_files() {
    const std::u16string extension = key_of(u".torrent");
    if (read_value(extension, nullptr) == file_class) {
        const LSTATUS error = give_back(extension, read_value(extension, before_value));
        if (error != ERROR_SUCCESS) return error;
    }
    if (const LSTATUS error = remove_if_empty(extension); error != ERROR_SUCCESS) return error;
    return remove_key(key_of(file_class));
}

LSTATUS give_back_links(std::u16string_view scheme) {
    const std::u16string key = key_of(scheme);
    const std::u16string command_key = key + u"\\shell\\open\\command";
    if (!is_own_command(command_key)) return ERROR_SUCCESS;
    const auto before = read_value(command_key, before_value);
    if (!before) return remove_key(key);
    return give_back(command_key, before);
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

std::array<unsigned, link_formats.size()> register_link_formats() noexcept {
    std::array<unsigned, link_formats.size()> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = RegisterClipboardFormatW(reinterpret_cast<const wchar_t*>(link_formats[i].data()));
    }
    return numbers;
}

}  // namespace vantlow
