#include "app/monitor.h"

#include <array>
#include <utility>

#include "app/store_command.h"
#include "base/text.h"
#include "platform/associations.h"

namespace vantlow {
namespace {

constexpr std::u16string_view section_name = u"Monitor";
constexpr std::array<std::pair<std::u16string_view, Association>, 3> monitored{{
    {u".torrent", Association::torrent_files},
    {u"ed2k", Association::ed2k_links},
    {u"magnet", Association::magnet_links},
}};

bool is_asked_for(CFerrywellApp& app, std::u16string_view key) {
    return app.settings().number(section_name, key, 0) != 0;
}

}  // namespace

void associate_as_set(CFerrywellApp& app) {
    for (const auto& [key, kind] : monitored) {
        if (!is_asked_for(app, key)) continue;
        const FileError error = associate(kind, app.program_file());
        if (!error.ok()) complain("Monitor/" + to_utf8(key) + ": " + error.text());
    }
}

FileError follow_setting(CFerrywellApp& app, std::u16string_view section, std::u16string_view key) {
    if (!iequals(section, section_name)) return {};
    for (const auto& [name, kind] : monitored) {
        if (!iequals(key, name)) continue;
        return is_asked_for(app, name) ? associate(kind, app.program_file()) : dissociate(kind);
    }
    return {};
}

}  // namespace vantlow
