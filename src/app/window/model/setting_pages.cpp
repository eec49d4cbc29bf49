#include "app/window/model/setting_pages.h"

#include <algorithm>
#include <array>
#include <utility>

#include "app/terminal/display_text.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/model/troubles.h"
#include "base/text.h"
#include "engine/schedule_texts.h"
#include "platform/process.h"

namespace vantlow {
namespace {

using Editor = SettingLine::Editor;

struct PageFacts {
    std::string_view title;     ///< English
    std::string_view sections;  ///< whose settings stand here unless they are listed: "A;B"
    std::string_view settings;  ///< "Section/Key;..."
};
constexpr std::array pages_by_subject{
    PageFacts{to_translate("General"), "Settings;Others;Window",
              "Settings/Language;Settings/DataFolder;Others/Start "
              "All;Others/BackupTo;Performance/SaveDatabaseInterval;Window/WatchClipboard;"
              "Window/ClipboardEndings"},
    PageFacts{to_translate("Downloads"), "Download",
              "Performance/MaxJobs;Download/Resume;Download/FileOverwriteRule;Download/MoveCompleted"},
    PageFacts{to_translate("Schedule"), "Schedule", "Schedule/Week;Schedule/StartTime;Schedule/StopTime"},
    PageFacts{to_translate("Connections"), "Connection;RPC",
              "Connection/Limit;Connection/Speed Limit;Connection/MaxPerServer;Connection/ConnectInterval;"
              "Connection/ConnTimeout;Connection/Always;Connection/Retries;Connection/OnlyOwnPart;"
              "Settings/Split Size;Performance/SuspendInterval"},
    PageFacts{to_translate("Proxy"), "", "Connection/Proxy;Connection/ProxyResolve"},
    PageFacts{to_translate("Trust and cookies"), "",
              "Connection/VerifyPeer;Connection/CAFile;Download/GetCookie;Download/CookieFile"},
    PageFacts{to_translate("FTP"), "Transfer", "Logs/TraceLIST"},
    PageFacts{to_translate("BitTorrent"), "Torrent", ""},
    PageFacts{to_translate("Files and links"), "Monitor", ""},
    PageFacts{to_translate("Dial-up"), "Dial Up", "Dial Up/Entry;Dial Up/Username"},
    PageFacts{to_translate("Buffers"), "Performance", ""},
    PageFacts{to_translate("Confirmations"), "Confirmation", ""},
    PageFacts{to_translate("Other"), "", ""},
};

struct EditorFacts {
    std::string_view name;
    Editor editor;
};
constexpr EditorFacts editors[] = {
    {"Settings/DataFolder", Editor::folder},
    {"Others/BackupTo", Editor::folder},
    {"Connection/CAFile", Editor::file},
    {"Download/CookieFile", Editor::file},
    {"Torrent/IPFilterFile", Editor::file},
    {"Dial Up/Password", Editor::password},
    {"Download/FileOverwriteRule", Editor::choice},
    {"Torrent/Crypto", Editor::choice},
    {"Settings/Language", Editor::choice},
    {"RPC/Secret", Editor::password},
    {"Schedule/Week", Editor::weekdays},
    {"Transfer/EnableFEAT", Editor::yes_no},
};

// Labels in place of the meanings that name other settings by their keys, or values of a file, or that begin
// with their unit.
struct LabelFacts {
    std::string_view name;
    std::string_view label;  ///< English
};
constexpr LabelFacts labels[] = {
    {"Connection/Limit", to_translate("the speed limit applies")},
    {"Connection/Retries", to_translate("retries after network failures, where their number has a limit")},
    {"RPC/Enable", to_translate("other programs can steer Vantlow")},
    {"RPC/Secret", to_translate("the secret that other programs have to show; empty: one is made at the "
                                "first use; \"none\": nobody is asked")},
    {"RPC/RequestSize", to_translate("the largest request, such as one that brings a torrent, in KiB")},
    {"Settings/Split Size",
     to_translate("the smallest part of a file that is split for another connection, in bytes")},
    {"Torrent/DefaultTrackers",
     to_translate("the trackers for magnet links that name none, separated by \"|\"")},
    {"Torrent/SeedTime",
     to_translate("the time that a torrent is shared at most after its end, in seconds; 0: no bound")},
    {"Transfer/EnableFEAT", to_translate("servers are asked which features they have")},
    {"Transfer/UseNATinPORT 2",
     to_translate("active mode announces this machine's address on the internet, where that is set")},
};

bool lists(std::string_view list, std::string_view one) {
    const auto all = split(list, ';');
    return !list.empty() && std::ranges::find(all, one) != all.end();
}

std::size_t page_of(const KnownSetting& setting) {
    const auto find = [](const auto& holds) {
        return static_cast<std::size_t>(std::ranges::find_if(pages_by_subject, holds) -
                                        pages_by_subject.begin());
    };
    const std::string name = setting.name();
    const std::size_t listed = find([&](const PageFacts& page) { return lists(page.settings, name); });
    if (listed < pages_by_subject.size()) return listed;
    const std::size_t by_section =
        find([&](const PageFacts& page) { return lists(page.sections, setting.section); });
    return std::min(by_section, pages_by_subject.size() - 1);
}

Editor editor_of(const KnownSetting& setting) {
    const auto* const known = std::ranges::find(editors, setting.name(), &EditorFacts::name);
    if (known != std::end(editors)) return known->editor;
    if (!setting.is_number) return Editor::text;
    return setting.smallest == 0 && setting.largest == 1 ? Editor::yes_no : Editor::number;
}

std::vector<std::pair<std::string, std::string>> choices_of(std::string_view name) {
    if (name == "Download/FileOverwriteRule")
        return {{"0", tr("The new file gets another name")},
                {"2", tr("The old file is replaced")},
                {"1", tr("The job ends")}};
    if (name == "Torrent/Crypto")
        return {{"0", tr("Both, encrypted first")},
                {"1", tr("Plaintext only")},
                {"2", tr("Encrypted only")},
                {"3", tr("Both")}};
    return {};
}

// Leaves out of a label what its editor shows by itself: the number that switches a switch on in front, and
// the choices or the meaning of 0 behind.
std::string label_of(const KnownSetting& setting, Editor editor) {
    if (editor == Editor::weekdays)
        return as_heading(tr("the days on which downloads that start by schedule run"));
    const auto* const own = std::ranges::find(labels, setting.name(), &LabelFacts::name);
    if (own != std::end(labels)) return as_heading(tr(own->label));
    std::string label = tr(setting.meaning);
    if (editor == Editor::yes_no && label.starts_with("1: ")) label.erase(0, 3);
    for (const std::string_view values : {"; 0:", "；0：", "；0:", ": 0 ", "：0 "}) {
        const bool is_own = editor == Editor::yes_no || editor == Editor::choice;
        if (const auto at = label.find(values); is_own && at != std::string::npos) label.resize(at);
    }
    for (const std::string_view colon : {":", "："}) {  // behind it stands how a file has the choice
        if (const auto at = label.find(colon); editor == Editor::choice && at != std::string::npos)
            label.resize(at);
    }
    return as_heading(std::move(label));
}

// A long list has places where a line may end.
std::string breakable(const std::string& list) {
    std::string text;
    for (const char c : list) {
        text += c;
        if (c == ';' || c == '|') text += ' ';
    }
    return text;
}

std::string help_of(const KnownSetting& setting, Editor editor) {
    if (editor == Editor::yes_no || editor == Editor::choice || editor == Editor::password) return {};
    if (editor == Editor::weekdays) return tr("On no day: there is no week plan");
    const std::string standard = setting.standard.empty() ? tr("empty") : breakable(setting.standard);
    std::string help = fill(tr("Default: %1"), {standard});
    if (setting.smallest)
        help += ", " + fill(tr("from %1 to %2"),
                            {std::to_string(*setting.smallest), std::to_string(*setting.largest)});
    return help;
}

// Windows alone dials; of others the meaning says where they are of use.
bool is_of_this_system(const KnownSetting& setting) {
    static const bool is_windows = platform_name().starts_with("Windows");
    if (is_windows) return true;
    return setting.section != "Dial Up" && !setting.meaning.ends_with("(Windows)");
}

}  // namespace

SettingLine SettingPages::line_of(const KnownSetting& setting) const {
    constexpr std::u16string_view nothing(u"\0", 1);  // no store holds a zero
    SettingLine line;
    line.editor = editor_of(setting);
    line.label = label_of(setting, line.editor);
    line.help = help_of(setting, line.editor);
    line.choices = setting.name() == "Settings/Language" ? languages_ : choices_of(setting.name());
    const std::u16string value = settings_.text(to_utf16(setting.section), to_utf16(setting.key), nothing);
    line.is_set = value != nothing;
    line.value = line.is_set ? to_utf8(value) : setting.standard;
    line.setting = setting;
    return line;
}

std::vector<SettingPage> SettingPages::pages() const {
    std::vector<SettingPage> pages(pages_by_subject.size());
    for (std::size_t i = 0; i < pages.size(); ++i) pages[i].title = tr(pages_by_subject[i].title);
    for (const KnownSetting& setting : known_settings()) {
        if (!setting.meaning.empty() && is_of_this_system(setting))
            pages[page_of(setting)].lines.push_back(line_of(setting));
    }
    for (std::size_t i = 0; i < pages.size(); ++i) {
        // Those that a page lists stand in the order of its list, in front of the others.
        const auto order = split(pages_by_subject[i].settings, ';');
        std::ranges::stable_sort(pages[i].lines, {}, [&order](const SettingLine& line) {
            return std::ranges::find(order, line.setting.name()) - order.begin();
        });
    }
    std::erase_if(pages, [](const SettingPage& page) { return page.lines.empty(); });
    return pages;
}

std::vector<SettingLine> SettingPages::find(std::string_view text) const {
    std::vector<SettingLine> found;
    for (SettingPage& page : pages()) {
        for (SettingLine& line : page.lines) {
            const std::u16string all = to_utf16(page.title + " " + line.setting.name() + " " + line.label);
            const auto holds = [&all](std::string_view word) {
                return holds_folded(all, folded(to_utf16(word)));
            };
            if (std::ranges::all_of(split(text, ' '), holds)) found.push_back(std::move(line));
        }
    }
    return found;
}

SettingPages::Fault SettingPages::set(std::string_view name, std::string_view value) {
    const auto setting = find_setting(name);
    if (!setting) return Fault::unknown;
    if (is_time_of_day(*setting) && !parse_time_of_day(value)) return Fault::no_time;
    if (setting->name() == "Window/ClipboardEndings" && !parse_category_rule(value)) return Fault::no_rule;
    if (setting->is_number) {
        const auto number = read_setting_number(to_utf16(value));
        if (!number) return Fault::no_number;
        if (setting->smallest && (*number < *setting->smallest || *number > *setting->largest))
            return Fault::out_of_bounds;
    }
    const std::u16string section = to_utf16(setting->section);
    const std::u16string key = to_utf16(setting->key);
    if (!engine_.set_setting(section, key, to_utf16(value)).ok()) return Fault::not_written;
    if (after_change) after_change(section, key);
    return Fault::none;
}

SettingPages::Fault SettingPages::unset(std::string_view name) {
    const auto setting = find_setting(name);
    if (!setting) return Fault::unknown;
    const std::u16string section = to_utf16(setting->section);
    const std::u16string key = to_utf16(setting->key);
    if (!engine_.unset_setting(section, key).ok()) return Fault::not_written;
    if (after_change) after_change(section, key);
    return Fault::none;
}

std::unique_ptr<Inquiry> SettingPages::test_proxy(std::function<void()> wake) const {
    JobDraft draft;
    draft.links = {"http://www.example.com/"};  // reserved for such uses (RFC 2606)
    return engine_.inquire(draft, std::move(wake));
}

std::string SettingPages::sentence_of_test(const std::optional<ServerSays>& answer,
                                           std::chrono::milliseconds elapsed) {
    if (!answer) return tr("The proxy is being tested ...");
    if (!answer->result.ok())
        return fill(tr("This way nothing can be fetched: %1"), {trouble_text(answer->result.message())});
    return fill(tr("This way works; the answer took %1 ms."), {std::to_string(elapsed.count())});
}

std::string sentence_of(SettingPages::Fault fault) {
    using Fault = SettingPages::Fault;
    switch (fault) {
        case Fault::none:
            return {};
        case Fault::unknown:
            return tr("There is no such setting.");
        case Fault::no_number:
            return tr("This setting takes a number.");
        case Fault::no_time:
            return tr("This setting takes a time of day (22:00).");
        case Fault::no_rule:
            return tr("This setting takes endings and servers, such as \".iso .tar.gz example.org\".");
        case Fault::out_of_bounds:
            return tr("The number is out of its bounds.");
        case Fault::not_written:
            return tr("The settings cannot be written.");
    }
    return {};
}

}  // namespace vantlow
