// Every setting that the program reads, as people are told of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// One setting, UTF-8.
struct KnownSetting {
    std::string section;
    std::string key;
    std::string standard;
    bool is_number;
    std::optional<std::int64_t> smallest;  ///< none: any number, or a text
    std::optional<std::int64_t> largest;
    std::string meaning;  ///< empty: nothing shows what it changes yet, so nobody is told of it

    [[nodiscard]] std::string name() const { return section + "/" + key; }
    /// " (1 to 64)"; empty without bounds.
    [[nodiscard]] std::string bounds_text() const;
};

/// All of them, by section and key.
std::vector<KnownSetting> known_settings();

/// The setting of this name ("Section/Key", in any letter case); none when there is no such.
std::optional<KnownSetting> find_setting(std::string_view name);
/// "There is no setting NAME.", and which ones it may have been meant for.
std::string no_such_setting(std::string_view name);
/// What is wrong with a value for a setting (both UTF-8): no such setting, or a text where a number is
/// wanted. Nothing for a number out of bounds: its reader takes the nearest one within.
std::optional<std::string> complaint_of(std::string_view name, std::string_view value);

}  // namespace vantlow
