#include "app/process/system_settings.h"

#include <array>
#include <utility>

#include "app/process/ending.h"
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
}

FileError follow_setting(CFerrywellApp& app, std::u16string_view section, std::u16string_view key) {
    for (const auto& [wish, kind] : monitored) {
        if (!iequals(section, wish.section) || !iequals(key, wish.key)) continue;
        return app.settings().flag(wish) ? associate(kind, app.program_file()) : dissociate(kind);
    }
    return {};
}

}  // namespace vantlow
