#include "app/process/system_settings.h"

#include <array>
#include <utility>

#include "app/process/ending.h"
#include "app/process/known_settings.h"
#include "base/text.h"
#include "platform/associations.h"
#include "platform/system_services.h"

namespace vantlow {
namespace {

constexpr std::array<std::pair<NumberSetting, Association>, 3> monitored{{
    {setting::monitor_torrent, Association::torrent_files},
    {setting::monitor_ed2k, Association::ed2k_links},
    {setting::monitor_magnet, Association::magnet_links},
}};

// The words of the command line with which the desktop starts this program.
constexpr const char* session_words = "--minimized";

}  // namespace

Result dial_as_set(CFerrywellApp& app, LogSink& log) {
    DialUpPlan plan;
    plan.entry = app.settings().text(setting::dial_up_entry);
    if (plan.entry.empty()) return {};
    plan.user = app.settings().text(setting::dial_up_user);
    plan.password = app.settings().text(setting::dial_up_password);
    const RasTable& ras = app.libraries().ras;
    const DialUpOperations operations{ras.RasEnumConnectionsW, ras.RasGetEntryDialParamsW, ras.RasDialW,
                                      ras.RasHangUpW, ras.RasGetErrorStringW};
    return dial_up(operations, plan, app.stop(), log);
}

void associate_as_set(CFerrywellApp& app) {
    for (const auto& [wish, kind] : monitored) {
        if (!app.settings().flag(wish)) continue;
        const FileError error = associate(kind, app.program_file());
        if (!error.ok()) complain("Monitor/" + to_utf8(wish.key) + ": " + error.text());
    }
    if (!app.settings().flag(setting::start_with_session)) return;
    const FileError error = start_with_session(app.program_file(), session_words);
    if (!error.ok()) complain("Window/StartWithSession: " + error.text());
}

FileError follow_setting(CFerrywellApp& app, std::u16string_view section, std::u16string_view key) {
    for (const auto& [wish, kind] : monitored) {
        if (!iequals(section, wish.section) || !iequals(key, wish.key)) continue;
        return app.settings().flag(wish) ? associate(kind, app.program_file()) : dissociate(kind);
    }
    const TextSetting& folder = setting::data_folder;
    if (iequals(section, folder.section) && iequals(key, folder.key)) return app.follow_data_folder();
    const NumberSetting& session = setting::start_with_session;
    if (!iequals(section, session.section) || !iequals(key, session.key)) return {};
    return app.settings().flag(session) ? start_with_session(app.program_file(), session_words)
                                        : stop_starting_with_session();
}

}  // namespace vantlow
