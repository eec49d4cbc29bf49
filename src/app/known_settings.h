// Every setting that the program reads, as people are told of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vantlow {

/// One setting, UTF-8.
struct KnownSetting {
    std::string section;
    std::string key;
    std::string standard;
    std::optional<std::int64_t> smallest;  ///< none: any number, or a text
    std::optional<std::int64_t> largest;
    std::string meaning;
};

/// All of them, by section and key.
std::vector<KnownSetting> known_settings();

}  // namespace vantlow
