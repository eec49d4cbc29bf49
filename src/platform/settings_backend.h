// The place where settings are kept: the registry of the current user on Windows, an INI file elsewhere.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/file.h"

namespace vantlow {

/// Named text values in named sections. Any thread may call; each call is atomic. Section and key names are
/// compared without regard to ASCII letter case, on both systems.
class SettingsBackend {
  public:
    SettingsBackend() = default;
    SettingsBackend(const SettingsBackend&) = delete;
    SettingsBackend& operator=(const SettingsBackend&) = delete;
    virtual ~SettingsBackend() = default;

    using Section = std::map<std::u16string, std::u16string, NameLess>;
    using Values = std::map<std::u16string, Section, NameLess>;

    [[nodiscard]] virtual std::optional<std::u16string> read(std::u16string_view section,
                                                             std::u16string_view key) = 0;
    virtual FileError write(std::u16string_view section, std::u16string_view key,
                            std::u16string_view value) = 0;
    virtual FileError erase(std::u16string_view section, std::u16string_view key) = 0;
    [[nodiscard]] virtual Values all() = 0;
    /// Looks whether somebody else changed the store since the last look; true when values may differ now.
    virtual bool refresh() = 0;
    /// False when the store exists but could not be read: nothing may be written over it then.
    [[nodiscard]] virtual bool is_readable() const = 0;
};

/// The store in an INI file: UTF-8, "[section]" and "key=value" lines. It is written by rename; unknown lines
/// and comments stay where they are. The file need not exist; one of more than 1 MiB counts as not readable.
/// A value is written as it is. One with blanks at its ends is written in quotation marks, "value"; one with
/// line breaks or other control characters as %"value", with %XX for these and for the percent sign. Of a key
/// that occurs twice the last one counts. While a change is written, a lock is held on the file name +
/// ".lock".
std::unique_ptr<SettingsBackend> open_settings_file(const std::u16string& path);

/// The user's own store: "Software\Qo\Vantlow" of the current user's registry on Windows (numbers are read
/// from both text and 32-bit values), "vantlow/settings.ini" in the user's configuration folder elsewhere.
std::unique_ptr<SettingsBackend> open_user_settings();

}  // namespace vantlow
