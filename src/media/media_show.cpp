#include "media/media_show.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "base/text.h"
#include "media/big_endian.h"
#include "media/flv_metadata.h"
#include "media/media_input.h"
#include "media/mp4_descriptions.h"
#include "media/mp4_scan.h"

namespace vantlow {
namespace {

MediaProperty property_of(std::string name, const CAMFBase& value) {
    MediaProperty property;
    property.name = std::move(name);
    property.text = to_utf8(value.ToString());
    if (const auto* number = dynamic_cast<const CAMFNumber*>(&value)) {
        if (std::isfinite(number->value)) property.number = number->value;
    } else if (const auto* boolean = dynamic_cast<const CAMFBoolean*>(&value)) {
        property.number = boolean->value;
    } else if (const auto* object = dynamic_cast<const CAMFObject*>(&value)) {
        property.is_container = true;
        for (const CAMFObject::Entry& entry : object->entries) {
            property.children.push_back(property_of(to_utf8(entry.name->ToString()), *entry.value));
        }
    } else if (const auto* array = dynamic_cast<const CAMFArray*>(&value)) {
        property.is_container = true;
        property.is_list = true;
        for (const auto& one : array->values) property.children.push_back(property_of({}, *one));
    }
    return property;
}

Outcome<MediaDescription> describe_flv(const MediaInput& input) {
    const auto metadata = FlvMetadata::find(input, std::numeric_limits<std::int64_t>::max());
    if (!metadata) return input.damaged(0, "an FLV file without metadata");
    MediaDescription description{"flv", {}};
    const auto& values = metadata->body().values()->values;
    // Behind the name "onMetaData".
    for (std::size_t i = 1; i < values.size(); ++i) {
        MediaProperty property = property_of({}, *values[i]);
        if (property.is_container && !property.is_list) {
            for (MediaProperty& child : property.children) description.properties.push_back(std::move(child));
        } else {
            description.properties.push_back(std::move(property));
        }
    }
    return description;
}

MediaProperty text_property(std::string name, std::string text) {
    return {std::move(name), std::move(text), std::nullopt, false, false, {}};
}

MediaProperty number_property(std::string name, double value) {
    CAMFNumber number;
    number.value = value;
    return {std::move(name), to_utf8(number.ToString()), value, false, false, {}};
}

// Three letters of five bits each (ISO/IEC 14496-12, 8.4.2.3); older files have numbers there.
std::string language_of(std::uint16_t packed) {
    std::string letters;
    for (unsigned shift = 15; shift > 0; shift -= 5)
        letters += static_cast<char>((std::uint32_t{packed} >> (shift - 5) & 0x1FU) + 0x60);
    const bool is_text = letters.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
    return is_text ? letters : "und";
}

// Adds the properties of the track header and of the first sample entry.
void add_shape(const Mp4Track& track, std::vector<MediaProperty>& properties) {
    const std::vector<std::byte>& entry = track.descriptions.front();
    if (track.kind == fourcc("vide")) {
        const std::byte* const size = track.header.data() + track.header.size() - 8;
        properties.push_back(number_property("width", load_u32(size) >> 16U));
        properties.push_back(number_property("height", load_u32(size + 4) >> 16U));
    }
    constexpr std::size_t sound_entry = 36;
    if (track.kind == fourcc("soun") && entry.size() >= sound_entry) {
        properties.push_back(number_property("channels", load_u16(&entry[24])));
        properties.push_back(number_property("sampleRate", load_u32(&entry[32]) >> 16U));
    }
}

MediaProperty describe_track(const Mp4Track& track, const TrackScan& scan) {
    MediaProperty node;
    node.is_container = true;
    auto& list = node.children;
    list.push_back(number_property("id", track.id));
    const bool known = track.kind == fourcc("vide") || track.kind == fourcc("soun");
    list.push_back(text_property("kind", !known                         ? fourcc_text(track.kind)
                                         : track.kind == fourcc("vide") ? "video"
                                                                        : "audio"));
    list.push_back(text_property("codec", codec_of(track.descriptions.front()).text()));
    add_shape(track, list);
    list.push_back(text_property("language", language_of(track.language)));
    list.push_back(number_property("timescale", track.timescale));
    list.push_back(number_property("samples", static_cast<double>(scan.samples)));
    list.push_back(number_property("duration", static_cast<double>(scan.duration) / track.timescale));
    list.push_back(number_property("edits", static_cast<double>(track.edits.size())));
    list.push_back(number_property("descriptions", static_cast<double>(track.descriptions.size())));
    return node;
}

Outcome<MediaDescription> describe_mp4(const MediaInput& input) {
    auto piece = read_mp4_piece(input);
    if (!piece) return piece.failure();
    const CombineControl control({});
    auto scan = scan_mp4_piece(input, *piece, control);
    if (!scan) return scan.failure();
    MediaDescription description{"mp4", {}};
    MediaProperty tracks;
    tracks.name = "tracks";
    tracks.is_container = true;
    tracks.is_list = true;
    double duration = 0;
    for (std::size_t i = 0; i < piece->tracks.size(); ++i) {
        tracks.children.push_back(describe_track(piece->tracks[i], scan->tracks[i]));
        duration =
            std::max(duration, static_cast<double>(scan->tracks[i].duration) / piece->tracks[i].timescale);
    }
    if (piece->duration > 0 && !piece->is_fragmented) {
        duration = static_cast<double>(piece->duration) / piece->timescale;
    }
    auto& list = description.properties;
    list.push_back(text_property("brand", piece->brand == 0 ? "none" : fourcc_text(piece->brand)));
    list.push_back(number_property("duration", duration));
    list.push_back(number_property("fragmented", piece->is_fragmented ? 1 : 0));
    list.push_back(std::move(tracks));
    return description;
}

}  // namespace

Outcome<MediaDescription> describe_media(const std::u16string& path) {
    MediaInput input;
    if (Result result = input.open(path); !result.ok()) return result;
    switch (media_kind(input)) {
        case MediaKind::flv:
            return describe_flv(input);
        case MediaKind::mp4:
            return describe_mp4(input);
        case MediaKind::other:
            break;
    }
    return input.damaged(0, "neither FLV nor MP4");
}

}  // namespace vantlow
