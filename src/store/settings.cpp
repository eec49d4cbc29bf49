#include "store/settings.h"

#include <algorithm>
#include <limits>

#include "base/text.h"

namespace vantlow {

std::optional<std::int64_t> read_setting_number(std::u16string_view text) {
    const std::string narrow = to_utf8(text);
    std::string_view digits = trim(narrow);
    const bool negative = !digits.empty() && digits[0] == '-';
    if (negative) digits.remove_prefix(1);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    const std::int64_t value = parse_decimal(digits).value_or(largest);
    return negative ? -value : value;
}

Settings::Settings() = default;
Settings::Settings(std::unique_ptr<SettingsBackend> backend) : backend_(std::move(backend)) {}

std::optional<std::u16string> Settings::find(std::u16string_view section, std::u16string_view key) const {
    {
        const MutexLock guard(mutex_);
        if (const auto own = overrides_.find(section); own != overrides_.end()) {
            if (const auto at = own->second.find(key); at != own->second.end()) return at->second;
        }
    }
    return backend_ ? backend_->read(section, key) : std::nullopt;
}

std::u16string Settings::text(std::u16string_view section, std::u16string_view key,
                              std::u16string_view standard) const {
    auto value = find(section, key);
    return value ? *std::move(value) : std::u16string(standard);
}

std::int64_t Settings::number(std::u16string_view section, std::u16string_view key,
                              std::int64_t standard) const {
    const auto value = find(section, key);
    return value ? read_setting_number(*value).value_or(standard) : standard;
}

std::int64_t Settings::number(const NumberSetting& setting) const {
    return std::clamp(number(setting.section, setting.key, setting.standard), setting.smallest,
                      setting.largest);
}

FileError Settings::write(std::u16string_view section, std::u16string_view key, std::u16string_view value) {
    if (!backend_) return {FileFault::read_only, 0};
    const FileError error = backend_->write(section, key, value);
    if (error.ok()) version_.fetch_add(1, std::memory_order_acq_rel);
    return error;
}

FileError Settings::erase(std::u16string_view section, std::u16string_view key) {
    if (!backend_) return {FileFault::read_only, 0};
    const FileError error = backend_->erase(section, key);
    if (error.ok()) version_.fetch_add(1, std::memory_order_acq_rel);
    return error;
}

void Settings::override_value(std::u16string_view section, std::u16string_view key,
                              std::u16string_view value) {
    const MutexLock guard(mutex_);
    overrides_[std::u16string(section)][std::u16string(key)] = value;
    version_.fetch_add(1, std::memory_order_acq_rel);
}

bool Settings::is_overridden(const NumberSetting& setting) const {
    const MutexLock guard(mutex_);
    const auto own = overrides_.find(setting.section);
    return own != overrides_.end() && own->second.contains(setting.key);
}

void Settings::refresh() {
    if (backend_ && backend_->refresh()) version_.fetch_add(1, std::memory_order_acq_rel);
}

SettingsBackend::Values Settings::all() const {
    SettingsBackend::Values values;
    if (backend_) values = backend_->all();
    const MutexLock guard(mutex_);
    for (const auto& [section, own] : overrides_) {
        for (const auto& [key, value] : own) values[section][key] = value;
    }
    return values;
}

}  // namespace vantlow
