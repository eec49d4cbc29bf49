#include "media/video_size.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/text.h"
#include "media/flv_metadata.h"
#include "media/media_input.h"

namespace vantlow {
namespace {

// Metadata stands in front; a file without any is not searched to its end.
constexpr std::int64_t most_tags = 1000;

/// A film's metadata with the two entries.
struct Found {
    FlvMetadata metadata;
    VideoSize size;
};

std::uint32_t edge_of(double number) noexcept {
    if (!std::isfinite(number)) return 0;
    return static_cast<std::uint32_t>(std::clamp(number, 0.0, double{largest_video_edge}));
}

Outcome<Found> find_size(const std::u16string& path) {
    MediaInput input;
    if (Result opened = input.open(path); !opened.ok()) return opened;
    if (media_kind(input) != MediaKind::flv) return input.damaged(0, "no FLV file");
    auto metadata = FlvMetadata::find(input, most_tags);
    if (!metadata) return input.damaged(0, "an FLV file without metadata");
    const auto width = metadata->number(u"width");
    const auto height = metadata->number(u"height");
    if (!width || !height) return input.damaged(metadata->offset(), "metadata without a width and a height");
    return Found{std::move(*metadata), {edge_of(*width), edge_of(*height)}};
}

}  // namespace

Outcome<VideoSize> read_video_size(const std::u16string& path) {
    auto found = find_size(path);
    if (!found) return found.failure();
    return found->size;
}

Result write_video_size(const std::u16string& path, VideoSize size) {
    for (const std::uint32_t edge : {size.width, size.height}) {
        if (edge < 1 || edge > largest_video_edge)
            return {Code::unsupported,
                    "A picture is 1 to " + std::to_string(largest_video_edge) + " pixels wide and high."};
    }
    auto found = find_size(path);
    if (!found) return found.failure();
    found->metadata.set_size(size.width, size.height);
    // Numbers take eight bytes whatever they are: the tag is as long as before.
    const std::vector<std::byte> tag = found->metadata.encoded();
    if (tag.size() != found->metadata.original().size())
        return {Code::local_file, to_utf8(path) + ": its metadata cannot be written again as it is"};
    File file;
    FileError error = file.open(path, OpenMode::write_existing);
    if (error.ok()) error = file.write_at(found->metadata.offset(), tag);
    if (error.ok()) error = file.flush();
    if (!error.ok()) return {Code::local_file, to_utf8(path) + ": " + error.text()};
    return {};
}

}  // namespace vantlow
