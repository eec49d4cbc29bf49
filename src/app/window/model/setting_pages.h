// The options dialog without the dialog: every setting, by subject.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/process/known_settings.h"
#include "engine/engine.h"
#include "store/settings.h"

namespace vantlow {

/// One setting as a dialog edits it.
struct SettingLine {
    enum class Editor : std::uint8_t { yes_no, number, text, folder, file, password, choice, weekdays };
    KnownSetting setting;
    Editor editor = Editor::text;
    std::string label;    ///< in the user's language: what it does, with the unit
    std::string help;     ///< default and bounds, in the user's language
    std::string value;    ///< UTF-8: the one that counts
    bool is_set = false;  ///< false: the default counts
    std::vector<std::pair<std::string, std::string>> choices{};  ///< value, label; of Editor::choice
};

struct SettingPage {
    std::string title;  ///< in the user's language
    std::vector<SettingLine> lines;
};

/// Belongs to the engine's thread. Values are read when pages are asked for and take effect when they are
/// set.
class SettingPages {
  public:
    SettingPages(Engine& engine, const Settings& settings) : engine_(engine), settings_(settings) {}

    /// The choices of the setting "Language": file name and title of each.
    void set_languages(std::vector<std::pair<std::string, std::string>> languages) {
        languages_ = std::move(languages);
    }
    /// Called when a setting was set or unset, for those that the system has to follow.
    std::function<void(std::u16string_view section, std::u16string_view key)> after_change;

    /// The value of a switch.
    [[nodiscard]] bool flag(const NumberSetting& setting) const { return settings_.flag(setting); }
    [[nodiscard]] std::int64_t number(const NumberSetting& setting) const {
        return settings_.number(setting);
    }
    [[nodiscard]] std::vector<SettingPage> pages() const;
    /// The lines of all pages that hold each word of the text in their label, name or page, letter case
    /// ignored.
    [[nodiscard]] std::vector<SettingLine> find(std::string_view text) const;

    enum class Fault : std::uint8_t {
        none,
        unknown,
        no_number,
        no_time,
        no_rule,
        out_of_bounds,
        not_written
    };
    /// Sets a value (UTF-8) of "Section/Key". Nothing is set but with `none`.
    Fault set(std::string_view name, std::string_view value);
    /// Goes back to the default.
    Fault unset(std::string_view name);
    /// Asks a server of the internet for an answer through the proxy that is set; `wake` as in Inquiry. Null
    /// where nothing runs.
    [[nodiscard]] std::unique_ptr<Inquiry> test_proxy(std::function<void()> wake) const;
    /// A sentence on the answer, which took so long; none: it is not there yet.
    static std::string sentence_of_test(const std::optional<ServerSays>& answer,
                                        std::chrono::milliseconds elapsed);

  private:
    [[nodiscard]] SettingLine line_of(const KnownSetting& setting) const;
    Engine& engine_;
    const Settings& settings_;
    std::vector<std::pair<std::string, std::string>> languages_;
};
std::string sentence_of(SettingPages::Fault fault);

}  // namespace vantlow
