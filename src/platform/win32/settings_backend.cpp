#include "platform/settings_backend.h"

#include <cstring>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

constexpr std::u16string_view root_path = u"Software\\Qo\\Vantlow";
constexpr std::size_t longest_name = 255;          // of a key, by the system
constexpr std::size_t longest_value_name = 16383;  // by the system

class RegistryKey {
  public:
    /// Opens a key of the current user; `error` says how that went.
    RegistryKey(const std::u16string& path, REGSAM access, bool create, LSTATUS& error) {
        error = ask_hook(create ? Operation::write_setting : Operation::read_setting, path);
        if (error != ERROR_SUCCESS) return;
        error = create ? RegCreateKeyExW(HKEY_CURRENT_USER, wide(path), 0, nullptr, 0, access, nullptr, &key_,
                                         nullptr)
                       : RegOpenKeyExW(HKEY_CURRENT_USER, wide(path), 0, access, &key_);
        if (error != ERROR_SUCCESS) key_ = nullptr;
    }
    ~RegistryKey() {
        if (key_ != nullptr) RegCloseKey(key_);
    }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    [[nodiscard]] HKEY get() const noexcept { return key_; }

  private:
    HKEY key_ = nullptr;
};

std::u16string section_path(std::u16string_view section) {
    std::u16string path(root_path);
    return section.empty() ? path : path.append(u"\\").append(section);
}

bool can_be_section(std::u16string_view section) noexcept {
    constexpr std::u16string_view refused(u"\\\0", 2);
    return section.size() <= longest_name && section.find_first_of(refused) == std::u16string_view::npos;
}

bool can_be_key(std::u16string_view key) noexcept {
    return !key.empty() && key.size() <= longest_value_name && key.find(u'\0') == std::u16string_view::npos;
}

template <class Number>
std::u16string decimal(const std::vector<std::byte>& data) {
    Number number = 0;
    std::memcpy(&number, data.data(), sizeof number);
    return to_utf16(std::to_string(number));
}

// A value as text; none for a kind that no setting has.
std::optional<std::u16string> text_of(DWORD type, const std::vector<std::byte>& data) {
    if (type == REG_DWORD && data.size() >= sizeof(std::int32_t)) return decimal<std::int32_t>(data);
    if (type == REG_QWORD && data.size() >= sizeof(std::int64_t)) return decimal<std::int64_t>(data);
    if (type != REG_SZ && type != REG_EXPAND_SZ) return std::nullopt;
    std::u16string text(data.size() / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), data.data(), text.size() * sizeof(char16_t));
    text.resize(std::min(text.find(u'\0'), text.size()));
    return text;
}

std::optional<std::u16string> query(HKEY key, const std::u16string& name) {
    if (ask_hook(Operation::read_setting, name) != 0) return std::nullopt;
    std::vector<std::byte> data(512);
    for (;;) {
        DWORD type = 0;
        auto size = static_cast<DWORD>(data.size());
        const LSTATUS error =
            RegQueryValueExW(key, wide(name), nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &size);
        if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) return std::nullopt;
        data.resize(size);
        if (error == ERROR_SUCCESS) return text_of(type, data);
    }
}

std::vector<std::u16string> value_names(HKEY key) {
    std::vector<std::u16string> names;
    std::wstring space(longest_value_name + 1, L'\0');
    for (DWORD i = 0;; ++i) {
        auto size = static_cast<DWORD>(space.size());
        if (RegEnumValueW(key, i, space.data(), &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.push_back(from_wide(std::wstring_view(space).substr(0, size)));
    }
    return names;
}

// The names of the keys below and when each was last changed.
using Stamps = std::vector<std::pair<std::u16string, std::uint64_t>>;

std::uint64_t number_of(const FILETIME& time) noexcept {
    return (std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime;
}

Stamps sections_below(HKEY key) {
    Stamps sections;
    for (DWORD i = 0;; ++i) {
        wchar_t name[longest_name + 1];
        DWORD size = std::size(name);
        FILETIME changed{};
        if (RegEnumKeyExW(key, i, name, &size, nullptr, nullptr, nullptr, &changed) != ERROR_SUCCESS) break;
        sections.emplace_back(from_wide({name, size}), number_of(changed));
    }
    return sections;
}

Stamps take_stamps() {
    LSTATUS error = ERROR_SUCCESS;
    const RegistryKey root(std::u16string(root_path), KEY_READ, false, error);
    if (error != ERROR_SUCCESS) return {};
    Stamps stamps = sections_below(root.get());
    FILETIME changed{};
    RegQueryInfoKeyW(root.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr, nullptr, &changed);
    stamps.emplace_back(u"", number_of(changed));
    return stamps;
}

class RegistrySettings final : public SettingsBackend {
  public:
    std::optional<std::u16string> read(std::u16string_view section, std::u16string_view key) override;
    FileError write(std::u16string_view section, std::u16string_view key, std::u16string_view value) override;
    FileError erase(std::u16string_view section, std::u16string_view key) override;
    Values all() override;
    bool refresh() override;
    [[nodiscard]] bool is_readable() const override;

  private:
    Mutex mutex_;  // also lets one change after the other in
    Stamps stamps_ VANTLOW_GUARDED_BY(mutex_) = take_stamps();
};

std::optional<std::u16string> RegistrySettings::read(std::u16string_view section, std::u16string_view key) {
    if (!can_be_section(section) || !can_be_key(key)) return std::nullopt;
    LSTATUS error = ERROR_SUCCESS;
    const RegistryKey opened(section_path(section), KEY_QUERY_VALUE, false, error);
    return error == ERROR_SUCCESS ? query(opened.get(), std::u16string(key)) : std::nullopt;
}

FileError RegistrySettings::write(std::u16string_view section, std::u16string_view key,
                                  std::u16string_view value) {
    if (!can_be_section(section) || !can_be_key(key)) return file_error(ERROR_INVALID_NAME);
    const MutexLock own(mutex_);
    LSTATUS error = ERROR_SUCCESS;
    const RegistryKey opened(section_path(section), KEY_SET_VALUE, true, error);
    if (error != ERROR_SUCCESS) return file_error(static_cast<DWORD>(error));
    const std::u16string name(key);
    const std::u16string text(value.substr(0, value.find(u'\0')));
    const auto* bytes = reinterpret_cast<const BYTE*>(text.c_str());
    const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(char16_t));
    error = ask_hook(Operation::write_setting, key);
    if (error == ERROR_SUCCESS) error = RegSetValueExW(opened.get(), wide(name), 0, REG_SZ, bytes, size);
    stamps_ = take_stamps();
    return file_error(static_cast<DWORD>(error));
}

FileError RegistrySettings::erase(std::u16string_view section, std::u16string_view key) {
    if (!can_be_section(section) || !can_be_key(key)) return {};
    const MutexLock own(mutex_);
    LSTATUS error = ERROR_SUCCESS;
    const RegistryKey opened(section_path(section), KEY_SET_VALUE, false, error);
    if (error == ERROR_SUCCESS) error = ask_hook(Operation::write_setting, key);
    if (error == ERROR_SUCCESS) error = RegDeleteValueW(opened.get(), wide(std::u16string(key)));
    stamps_ = take_stamps();
    return error == ERROR_FILE_NOT_FOUND ? FileError{} : file_error(static_cast<DWORD>(error));
}

SettingsBackend::Values RegistrySettings::all() {
    const MutexLock own(mutex_);
    Values values;
    for (const auto& [section, changed] : take_stamps()) {
        LSTATUS error = ERROR_SUCCESS;
        const RegistryKey opened(section_path(section), KEY_QUERY_VALUE, false, error);
        if (error != ERROR_SUCCESS) continue;
        for (const std::u16string& name : value_names(opened.get())) {
            if (auto value = query(opened.get(), name)) values[section][name] = *std::move(value);
        }
    }
    return values;
}

bool RegistrySettings::refresh() {
    const MutexLock own(mutex_);
    Stamps now = take_stamps();
    if (now == stamps_) return false;
    stamps_ = std::move(now);
    return true;
}

bool RegistrySettings::is_readable() const {
    LSTATUS error = ERROR_SUCCESS;
    const RegistryKey root(std::u16string(root_path), KEY_READ, false, error);
    return error == ERROR_SUCCESS || error == ERROR_FILE_NOT_FOUND;
}

}  // namespace

std::unique_ptr<SettingsBackend> open_user_settings() {
    return std::make_unique<RegistrySettings>();
}

}  // namespace vantlow
