// The settings store: named values in named sections, read at the moment of use.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/mutex.h"
#include "platform/settings_backend.h"
#include "store/setting_table.h"

namespace vantlow {

/// A number as settings hold it: decimal, with "-" in front of one below 0. None for any other text; a number
/// too large for 64 bits is the largest one of its sign.
std::optional<std::int64_t> read_setting_number(std::u16string_view text);

/// The settings store, overlaid with the run's own values. Any thread may call.
class Settings {
  public:
    /// A store of nothing but overrides, for tests and tools: writing fails.
    Settings();
    explicit Settings(std::unique_ptr<SettingsBackend> backend);

    [[nodiscard]] std::u16string text(std::u16string_view section, std::u16string_view key,
                                      std::u16string_view standard = {}) const;
    [[nodiscard]] std::u16string text(const TextSetting& setting) const {
        return text(setting.section, setting.key, setting.standard);
    }
    /// The number (read_setting_number); the default when there is none or it cannot be read.
    [[nodiscard]] std::int64_t number(std::u16string_view section, std::u16string_view key,
                                      std::int64_t standard) const;
    /// The number within its bounds.
    [[nodiscard]] std::int64_t number(const NumberSetting& setting) const;
    [[nodiscard]] bool flag(const NumberSetting& setting) const { return number(setting) != 0; }

    FileError write(std::u16string_view section, std::u16string_view key, std::u16string_view value);
    FileError erase(std::u16string_view section, std::u16string_view key);

    /// A value for this run only: it hides the stored one and is never written. Changes take effect at once.
    void override_value(std::u16string_view section, std::u16string_view key, std::u16string_view value);

    /// True when this run has a value of its own.
    [[nodiscard]] bool is_overridden(const NumberSetting& setting) const;

    /// Looks whether somebody else changed the store, and takes the new values.
    void refresh();
    /// A number that grows with every change that this object knows of: readers on a hot path keep a value
    /// until it grows.
    [[nodiscard]] std::uint64_t version() const noexcept { return version_.load(std::memory_order_acquire); }

    /// Everything that is stored or overridden.
    [[nodiscard]] SettingsBackend::Values all() const;

  private:
    [[nodiscard]] std::optional<std::u16string> find(std::u16string_view section,
                                                     std::u16string_view key) const;

    std::unique_ptr<SettingsBackend> backend_;
    mutable Mutex mutex_;
    SettingsBackend::Values overrides_ VANTLOW_GUARDED_BY(mutex_);
    std::atomic<std::uint64_t> version_{1};
};

}  // namespace vantlow
