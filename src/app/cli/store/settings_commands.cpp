// `vantlow settings ...`.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/store_command.h"
#include "app/process/ending.h"
#include "app/process/known_settings.h"
#include "app/process/system_settings.h"
#include "app/terminal/display_text.h"
#include "base/text.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

struct SettingsOptions {
    std::string name;
    std::string value;

    [[nodiscard]] std::u16string section() const { return to_utf16(name.substr(0, name.find('/'))); }
    [[nodiscard]] std::u16string key() const { return to_utf16(name.substr(name.find('/') + 1)); }
};

Complaint check_name(const SettingsOptions& options) {
    const auto slash = options.name.find('/');
    const bool whole = slash != std::string::npos && slash > 0 && slash + 1 < options.name.size();
    if (whole) return std::nullopt;
    return "a setting is named Section/Key, not \"" + options.name + "\".";
}

Exit run_list(CFerrywellApp& app, const GlobalOptions& global) {
    std::string text;
    ordered_json json = ordered_json::object();
    for (const auto& [section, values] : app.settings().all()) {
        for (const auto& [key, value] : values) {
            const std::string value_text = shown_value(section, key, value);
            const std::string name = to_utf8(section) + "/" + to_utf8(key);
            // Rules have the names of their categories.
            const Complaint complaint =
                iequals(section, rules_section) ? std::nullopt : complaint_of(name, to_utf8(value));
            if (complaint) complain(*complaint + " The stored value has no effect.");
            json[to_utf8(section)][to_utf8(key)] = value_text;
            text.append(printable(name + "=" + value_text)).append("\n");
        }
    }
    print_answer(global, json, text);
    return Exit::done;
}

// Describes everything that can be set, whether it is set or not.
Exit run_describe(CFerrywellApp& /*app*/, const GlobalOptions& global) {
    std::string text;
    ordered_json json = ordered_json::array();
    for (const KnownSetting& known : known_settings()) {
        if (known.meaning.empty()) continue;
        const auto bound = [](const auto& number) { return number ? ordered_json(*number) : nullptr; };
        json.push_back({{"section", known.section},
                        {"key", known.key},
                        {"default", known.standard},
                        {"smallest", bound(known.smallest)},
                        {"largest", bound(known.largest)},
                        {"meaning", known.meaning}});
        text += known.name() + "=" + known.standard + "\n    " + known.meaning + known.bounds_text() + "\n";
    }
    print_answer(global, json, text);
    return Exit::done;
}

// The stored value; none where none is stored.
std::optional<std::string> stored(CFerrywellApp& app, const SettingsOptions& options) {
    constexpr std::u16string_view nothing(u"\0", 1);  // no store holds a zero
    const std::u16string value = app.settings().text(options.section(), options.key(), nothing);
    return value == nothing ? std::nullopt : std::optional(to_utf8(value));
}

// Prints the value that counts: the stored one, or else the default.
Exit run_get_setting(CFerrywellApp& app, const GlobalOptions& global, const SettingsOptions& options) {
    std::optional<std::string> value = stored(app, options);
    const auto known = find_setting(options.name);
    if (!value && !known) return complain(no_such_setting(options.name));
    if (!value && !global.quiet) tell(known->name() + " is not set; this is its default.");
    if (!value) value = known->standard;
    print_answer(global, *value, *value + "\n");
    return Exit::done;
}

Exit end_of_write(const FileError& error, const std::string& name) {
    if (error.ok()) return Exit::done;
    complain(name + " cannot be written: " + error.text());
    return Exit::failed;
}

Exit run_set(CFerrywellApp& app, const GlobalOptions& /*global*/, const SettingsOptions& options) {
    if (const Complaint complaint = complaint_of(options.name, options.value))
        return complain(*complaint, Exit::usage);
    const auto known = find_setting(options.name);
    const std::int64_t number = read_setting_number(to_utf16(options.value)).value_or(0);
    if (known->smallest && std::clamp(number, *known->smallest, *known->largest) != number)
        tell(known->name() + known->bounds_text() + ": " + options.value +
             " counts as the nearest of these numbers.");
    FileError error = app.settings().write(options.section(), options.key(), to_utf16(options.value));
    if (error.ok()) error = follow_setting(app, options.section(), options.key());
    return end_of_write(error, options.name);
}

Exit run_unset(CFerrywellApp& app, const GlobalOptions& /*global*/, const SettingsOptions& options) {
    // A stored value goes, whether its setting is known or not.
    if (!find_setting(options.name) && !stored(app, options))
        return complain(no_such_setting(options.name), Exit::usage);
    FileError error = app.settings().erase(options.section(), options.key());
    if (error.ok()) error = follow_setting(app, options.section(), options.key());
    return end_of_write(error, options.name);
}

}  // namespace

void add_settings_commands(CommandSet& commands) {
    CLI::App& group = commands.add_group("settings", "Show and change settings");
    commands.add_below(group, "list", "List the stored settings", run_list);
    commands.add_below(group, "describe", "List everything that can be set: defaults, meanings and bounds",
                       run_describe);
    using Run = Exit (*)(CFerrywellApp&, const GlobalOptions&, const SettingsOptions&);
    const auto add = [&](const char* word, const char* description, Run run, bool has_value) {
        const auto options = std::make_shared<SettingsOptions>();
        CLI::App& added = commands.add_below(
            group, word, description,
            [options, run](CFerrywellApp& app, const GlobalOptions& global) {
                return run(app, global, *options);
            },
            [options] { return check_name(*options); });
        added.add_option("SETTING", options->name, "Section/Key")->required();
        if (has_value) added.add_option("VALUE", options->value, "Its new value")->required();
    };
    add("get", "Print one setting, or its default where it is not set", run_get_setting, false);
    add("set", "Change one setting", run_set, true);
    add("unset", "Return one setting to its default", run_unset, false);
}

}  // namespace vantlow
