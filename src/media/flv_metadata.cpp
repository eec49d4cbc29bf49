#include "media/flv_metadata.h"

#include "media/big_endian.h"

namespace vantlow {
namespace {

// An index of keyframes for days of film is shorter, and the values of a longer body would take much memory.
constexpr std::uint32_t longest_body = 4 * 1024 * 1024;

bool is_metadata(const CAMF0& body) {
    if (body.values() == nullptr || body.values()->values.empty()) return false;
    const CAMFBase& first = *body.values()->values.front();
    const bool is_string = first.type == amf::string || first.type == amf::long_string;
    return is_string && first.ToString() == u"onMetaData";
}

const CAMFArray* array_of(const CAMFBase& keyframes, std::u16string_view name) {
    const auto* object = dynamic_cast<const CAMFObject*>(&keyframes);
    if (object == nullptr) return nullptr;
    for (const CAMFObject::Entry& entry : object->entries) {
        if (entry.name->ToString() == name) return dynamic_cast<const CAMFArray*>(entry.value.get());
    }
    return nullptr;
}

}  // namespace

std::optional<FlvMetadata> FlvMetadata::read(const MediaInput& input, std::int64_t offset,
                                             const FlvTag& tag) {
    if (tag.type != flv::script || tag.data_size > longest_body) return std::nullopt;
    FlvMetadata metadata;
    metadata.offset_ = offset;
    metadata.original_.resize(static_cast<std::size_t>(tag.whole_size()));
    if (!input.read(offset, metadata.original_)) return std::nullopt;
    const bool parsed = metadata.body_.Parse(metadata.original_.data() + flv::tag_header, tag.data_size);
    if (!parsed || !is_metadata(metadata.body_)) return std::nullopt;
    return metadata;
}

std::optional<FlvMetadata> FlvMetadata::find(const MediaInput& input, std::int64_t most_tags) {
    InputWindow window(input);
    std::int64_t offset = flv::file_header;
    for (std::int64_t i = 0; i < most_tags; ++i) {
        const auto tag = next_flv_tag(window, offset);
        if (!tag) break;
        if (auto metadata = read(input, offset, *tag)) return metadata;
        offset += tag->whole_size();
    }
    return std::nullopt;
}

std::optional<double> FlvMetadata::number(std::u16string_view name) const {
    AmfFound found;
    if (!body_.GetValue(name, found, amf::number)) return std::nullopt;
    return std::get<double>(found);
}

bool FlvMetadata::has_keyframes() const {
    AmfFound found;
    return body_.GetValue(u"keyframes", found);
}

std::size_t FlvMetadata::keyframe_count() const {
    AmfFound found;
    if (!body_.GetValue(u"keyframes", found)) return 0;
    const auto* const container = std::get_if<CAMFBase*>(&found);
    const CAMFArray* const times = container == nullptr ? nullptr : array_of(**container, u"times");
    return times == nullptr ? 0 : times->values.size();
}

void FlvMetadata::set_number(std::u16string_view name, double value) {
    CQoMemFile stream;
    CAMF0::WriteNumber(stream, value);
    (void)body_.SetValue(name, stream.bytes(), false);  // false where there is no such entry, which is fine
}

void FlvMetadata::set_totals(const FlvTotals& totals) {
    set_number(u"duration", totals.duration);
    set_number(u"filesize", static_cast<double>(totals.file_size));
    set_number(u"lasttimestamp", totals.last_timestamp / 1000.0);
    if (totals.last_keyframe_position >= 0) {
        set_number(u"lastkeyframetimestamp", totals.last_keyframe_timestamp / 1000.0);
        set_number(u"lastkeyframelocation", static_cast<double>(totals.last_keyframe_position));
    }
    if (has_keyframes()) (void)body_.SetKeyframes(totals.keyframe_positions, totals.keyframe_times);
}

void FlvMetadata::set_size(double width, double height) {
    set_number(u"width", width);
    set_number(u"height", height);
}

std::vector<std::byte> FlvMetadata::encoded() const {
    constexpr std::size_t longest = 0xFFFFFF;
    CQoMemFile data;
    if (!body_.Write(data) || data.size() > longest) return {};
    // The head's other fields stay; sizes before and behind the data agree.
    std::vector<std::byte> tag(original_.begin(), original_.begin() + flv::tag_header);
    store_big(tag.data() + 1, data.size(), 3);
    tag.insert(tag.end(), data.bytes().begin(), data.bytes().end());
    tag.resize(tag.size() + flv::back_pointer);
    store_big(tag.data() + tag.size() - flv::back_pointer, tag.size() - flv::back_pointer, flv::back_pointer);
    return tag;
}

}  // namespace vantlow
