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

// True when there was something to give back.
bool give_back(const std::u16string& key) {
    const auto before = read_value(key, before_value);
    if (before) {
        write_value(key, nullptr, *before);
    } else {
        RegDeleteKeyValueW(HKEY_CURRENT_USER, wide(key), nullptr);
    }
    RegDeleteKeyValueW(HKEY_CURRENT_USER, wide(key), before_value);
    return before.has_value();
}

// A default command of this program, whichever folder it stood in.
bool is_own_command(const std::u16string& key) {
    const auto command = read_value(key, nullptr);
    return command && read_value(key, L"Vantlow") == u"1";
}

LSTATUS write_open_keys(const std::u16string& key, const std::u16string& program) {
    const std::u16string command_key = key + u"\\shell\\open\\command";
    LSTATUS error = write_value(key + u"\\DefaultIcon", nullptr, program + u",0");
    if (error == ERROR_SUCCESS)
        error = take_over(command_key, open_command(program), is_own_command(command_key));
    if (error == ERROR_SUCCESS) error = write_value(command_key, L"Vantlow", u"1");
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

}  // namespace

FileError associate(Association kind, const std::u16string& program) {
    const LSTATUS error =
        kind == Association::torrent_files ? take_files(program) : take_links(scheme_of(kind), program);
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
    return file_error(static_cast<DWORD>(error));
}

FileError dissociate(Association kind) {
    if (kind == Association::torrent_files) {
        const std::u16string extension = key_of(u".torrent");
        if (read_value(extension, nullptr) == file_class) give_back(extension);
        RegDeleteTreeW(HKEY_CURRENT_USER, wide(key_of(file_class)));
    } else {
        const std::u16string key = key_of(scheme_of(kind));
        const std::u16string command_key = key + u"\\shell\\open\\command";
        if (!is_own_command(command_key)) return {};
        RegDeleteKeyValueW(HKEY_CURRENT_USER, wide(command_key), L"Vantlow");
        if (!give_back(command_key)) RegDeleteTreeW(HKEY_CURRENT_USER, wide(key));
    }
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
    return {};
}

std::array<unsigned, link_formats.size()> register_link_formats() noexcept {
    std::array<unsigned, link_formats.size()> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = RegisterClipboardFormatW(reinterpret_cast<const wchar_t*>(link_formats[i].data()));
    }
    return numbers;
}

}  // namespace vantlow
