// `vantlow browser install`, `remove` and `list`: the manifests by which browsers find `vantlow native-host`.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

#include "app/browser/browser.h"
#include "app/cli/command_set.h"
#include "app/cli/report.h"
#include "app/process/application.h"
#include "base/text.h"
#include "platform/browsers.h"
#include "platform/console.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_manifest = 64U << 10U;

// The program that browsers start: of the two that stand beside each other the one without a window, so that
// both say the same of it.
std::u16string host_program(const CFerrywellApp& app) {
    constexpr std::u16string_view with_window = u"vantlow-desktop";
    const std::u16string& own = app.program_file();
    const std::u16string name = name_of(own);
    if (!name.starts_with(with_window)) return own;
    const std::u16string other = join_path(folder_of(own), u"vantlow" + name.substr(with_window.size()));
    return path_kind(other) == PathKind::file ? other : own;
}

enum class Entry {
    none,
    own,      ///< names this program
    earlier,  ///< names another copy of it, or another extension
    foreign,  ///< is not Vantlow's, or cannot be read
};

std::string manifest_for(const Browser& browser, const std::u16string& program) {
    nlohmann::ordered_json manifest{{"name", to_utf8(native_host_name)},
                                    {"description", "Vantlow takes downloads over from the browser"},
                                    {"path", to_utf8(program)},
                                    {"type", "stdio"}};
    const char* const callers = browser.is_firefox ? "allowed_extensions" : "allowed_origins";
    manifest[callers] = {browser.is_firefox ? extension_id : extension_origin};
    return manifest.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

Entry entry_of(const Browser& browser, const std::u16string& program) {
    if (!is_host_registered(browser, native_host_name)) return Entry::none;
    std::vector<std::byte> bytes;
    const FileError error = read_file(host_manifest(browser, native_host_name), largest_manifest, bytes);
    if (error.fault == FileFault::not_found) return Entry::earlier;  // an entry that leads nowhere
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (error.ok() && text == manifest_for(browser, program)) return Entry::own;
    const auto manifest = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    const bool is_ours = error.ok() && manifest.is_object() &&
                         manifest.value("name", nlohmann::json()) == to_utf8(native_host_name);
    return is_ours ? Entry::earlier : Entry::foreign;
}

std::string_view word_of(Entry entry) {
    switch (entry) {
        case Entry::own:
            return "installed";
        case Entry::earlier:
            return "another copy";
        case Entry::foreign:
            return "not Vantlow's";
        default:
            return "not installed";
    }
}

using Browsers = std::vector<const Browser*>;

// Prints how it stands with these browsers.
void show(const GlobalOptions& global, const Browsers& chosen, const std::u16string& program) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    std::string lines;
    for (const Browser* const browser : chosen) {
        const Entry entry = entry_of(*browser, program);
        const std::string manifest = to_utf8(host_manifest(*browser, native_host_name));
        const bool is_there = has_browser(*browser);
        nlohmann::ordered_json& one = list.emplace_back();
        one = {{"browser", browser->name}, {"title", browser->title}, {"present", is_there},
               {"entry", word_of(entry)},  {"manifest", manifest},    {"confined", confined_forms(*browser)}};
        lines += std::string(browser->name) + ": " + std::string(word_of(entry));
        if (entry != Entry::none) lines += " (" + manifest + ")";
        if (!is_there) lines += "; this user has no " + std::string(browser->title);
        lines += "\n";
    }
    print_answer(global, list, lines);
}

// Says of browsers in a sandbox what cannot be done for them here, and what can be done instead.
void tell_of_confined(const Browsers& chosen) {
    for (const Browser* const browser : chosen) {
        for (const std::string_view form : confined_forms(*browser)) {
            const std::string title(browser->title);
            tell(title + " is also here as a " + std::string(form) +
                 ", which may start no program of the system. There its extension reaches Vantlow over the "
                 "control API only: docs/browser.md says how. A " +
                 title + " from the system's packages or from its maker needs none of that.");
        }
    }
}

Browsers named_or(const std::vector<std::string>& names, bool (*wanted)(const Browser&)) {
    Browsers chosen;
    for (const Browser& browser : known_browsers) {
        const bool is_named = std::find(names.begin(), names.end(), browser.name) != names.end();
        if (names.empty() ? wanted(browser) : is_named) chosen.push_back(&browser);
    }
    return chosen;
}

Exit complain_of(const Browser& browser, const FileError& error) {
    return complain(std::string(browser.title) + ": " + to_utf8(host_manifest(browser, native_host_name)) +
                    ": " + error.text());
}

Exit complain_of_foreign(const Browser& browser) {
    return complain(std::string(browser.title) + ": " + to_utf8(host_manifest(browser, native_host_name)) +
                    " is not Vantlow's, and stays as it is.");
}

Exit install(CFerrywellApp& app, const GlobalOptions& global, const std::vector<std::string>& names) {
    const Browsers chosen = named_or(names, has_browser);
    tell_of_confined(named_or(names, [](const Browser&) { return true; }));
    if (chosen.empty()) return complain("No browser was found. Name one: vantlow browser install firefox");
    Exit status = Exit::done;
    for (const Browser* const browser : chosen) {
        const Entry entry = entry_of(*browser, host_program(app));
        if (entry == Entry::own) continue;
        if (entry == Entry::foreign) {
            status = complain_of_foreign(*browser);
            continue;
        }
        const std::string manifest = manifest_for(*browser, host_program(app));
        const FileError error = register_host(*browser, native_host_name, std::as_bytes(std::span(manifest)));
        if (!error.ok()) status = complain_of(*browser, error);
    }
    show(global, chosen, host_program(app));
    const std::u16string extension = join_path(folder_of(host_program(app)), u"browser");
    if (!global.quiet && path_kind(extension) == PathKind::folder)
        tell("The extension itself is loaded in the browser, from " + to_utf8(extension) +
             "; docs/browser.md says how.");
    return status;
}

Exit remove(CFerrywellApp& app, const GlobalOptions& global, const std::vector<std::string>& names) {
    const Browsers chosen =
        named_or(names, [](const Browser& browser) { return is_host_registered(browser, native_host_name); });
    Exit status = Exit::done;
    for (const Browser* const browser : chosen) {
        const Entry entry = entry_of(*browser, host_program(app));
        if (entry == Entry::foreign) {
            status = complain_of_foreign(*browser);
        } else if (entry != Entry::none) {
            const FileError error = unregister_host(*browser, native_host_name);
            if (!error.ok()) status = complain_of(*browser, error);
        }
    }
    show(global, chosen, host_program(app));
    return status;
}

Exit list(CFerrywellApp& app, const GlobalOptions& global, const std::vector<std::string>& names) {
    const Browsers chosen = named_or(names, [](const Browser&) { return true; });
    show(global, chosen, host_program(app));
    tell_of_confined(chosen);
    return Exit::done;
}

}  // namespace

void add_browser_commands(CommandSet& commands) {
    using Action = Exit (*)(CFerrywellApp&, const GlobalOptions&, const std::vector<std::string>&);
    CLI::App& group = commands.add_group("browser", "Take downloads over from browsers, by an extension");
    std::vector<std::string> known;
    for (const Browser& browser : known_browsers) known.emplace_back(browser.name);
    const auto add = [&](const char* word, const char* description, const char* which, Action work) {
        const auto names = std::make_shared<std::vector<std::string>>();
        CLI::App& added = commands.add_below(group, word, description,
                                             [names, work](CFerrywellApp& app, const GlobalOptions& global) {
                                                 return work(app, global, *names);
                                             });
        added.add_option("NAME,--browser", *names, which)->check(CLI::IsMember(known));
    };
    add("install", "Let the extension of these browsers start Vantlow, for this user",
        "The browsers (default: those that this user has)", &install);
    add("remove", "Take that back", "The browsers (default: all that know Vantlow)", &remove);
    add("list", "Print which browsers know Vantlow", "The browsers (default: all)", &list);
}

}  // namespace vantlow
