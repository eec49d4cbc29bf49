// `vantlow media show`: the metadata of media files.
#include "app/cli/tools/tools.h"

#include <memory>

#include "app/cli/command_set.h"
#include "app/cli/report.h"
#include "app/process/ending.h"
#include "app/terminal/display_text.h"
#include "base/text.h"
#include "media/media_show.h"
#include "platform/console.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

ordered_json json_of(const std::vector<MediaProperty>& properties, bool is_list);

ordered_json json_of(const MediaProperty& property) {
    if (property.is_container) return json_of(property.children, property.is_list);
    if (property.number) return *property.number;
    return property.text;
}

ordered_json json_of(const std::vector<MediaProperty>& properties, bool is_list) {
    ordered_json json = is_list ? ordered_json::array() : ordered_json::object();
    for (const MediaProperty& property : properties) {
        if (is_list) {
            json.push_back(json_of(property));
        } else {
            json[property.name] = json_of(property);
        }
    }
    return json;
}

void add_lines(const std::vector<MediaProperty>& properties, const std::string& indent, std::string& lines) {
    for (const MediaProperty& property : properties) {
        lines += indent;
        if (!property.name.empty()) lines += printable(property.name) + (property.is_container ? ":" : ": ");
        lines += printable(property.text) + "\n";
        add_lines(property.children, indent + "  ", lines);
    }
}

Exit run_show(const GlobalOptions& global, const std::string& path) {
    const auto description = describe_media(to_utf16(path));
    if (!description) return complain(description.failure().message());
    ordered_json json = {{"kind", description->kind}};
    json.update(json_of(description->properties, false));
    std::string lines;
    add_lines(description->properties, {}, lines);
    print_answer(global, json, lines);
    return Exit::done;
}

}  // namespace

void add_media_command(CommandSet& commands) {
    CLI::App& media = commands.add_group("media", "Inspect media files");
    const auto path = std::make_shared<std::string>();
    commands
        .add_below(
            media, "show", "Show an FLV file's metadata or an MP4 file's tracks, as a tree",
            [path](CFerrywellApp& /*app*/, const GlobalOptions& global) { return run_show(global, *path); })
        .add_option("FILE", *path, "The media file")
        ->required();
}

}  // namespace vantlow
