// `vantlow media`: the metadata of media files.
#include "app/cli/tools/tools.h"

#include <memory>

#include "app/cli/command_set.h"
#include "app/cli/report.h"
#include "app/process/ending.h"
#include "app/terminal/display_text.h"
#include "base/text.h"
#include "media/media_show.h"
#include "media/video_size.h"
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

struct SizeOptions {
    std::string file;
    std::string wanted;
};

// Reads "640x360"; none where the text is no size.
std::optional<VideoSize> parse_size(std::string_view text) {
    const auto cross = text.find('x');
    if (cross == std::string_view::npos) return std::nullopt;
    const auto width = read_setting_number(to_utf16(text.substr(0, cross)));
    const auto height = read_setting_number(to_utf16(text.substr(cross + 1)));
    const auto is_edge = [](const auto& edge) { return edge && *edge > 0 && *edge <= largest_video_edge; };
    if (!is_edge(width) || !is_edge(height)) return std::nullopt;
    return VideoSize{static_cast<std::uint32_t>(*width), static_cast<std::uint32_t>(*height)};
}

Complaint check_size(const SizeOptions& options) {
    if (options.wanted.empty() || parse_size(options.wanted)) return std::nullopt;
    return "\"" + options.wanted + "\" is no size such as 640x360.";
}

Exit run_size(const GlobalOptions& global, const SizeOptions& options) {
    const std::u16string path = to_utf16(options.file);
    if (const auto wanted = parse_size(options.wanted)) {
        if (const Result written = write_video_size(path, *wanted); !written.ok())
            return complain(written.message());
    }
    auto size = read_video_size(path);
    if (!size) return complain(size.failure().message());
    print_answer(global, {{"width", size->width}, {"height", size->height}},
                 std::to_string(size->width) + "x" + std::to_string(size->height) + "\n");
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
    const auto size = std::make_shared<SizeOptions>();
    CLI::App& word = commands.add_below(
        media, "size", "Show, or correct, the picture size in an FLV file's metadata",
        [size](CFerrywellApp& /*app*/, const GlobalOptions& global) { return run_size(global, *size); },
        [size] { return check_size(*size); });
    word.add_option("FILE", size->file, "The media file")->required();
    word.add_option("--set", size->wanted, "The right size: WIDTHxHEIGHT, in pixels");
}

}  // namespace vantlow
