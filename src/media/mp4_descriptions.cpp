#include "media/mp4_descriptions.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "media/big_endian.h"

namespace vantlow {
namespace {

constexpr std::size_t entry_header = 16;  // box header, reserved, index of the data reference

// A number in an entry that gives a bit rate.
struct RateField {
    std::size_t at = 0;
    std::size_t size = 0;
    bool operator==(const RateField&) const = default;
};

// Returns where the body of a box inside an entry begins; 0 when there is none. The fields in front of an
// entry's boxes have many layouts, so the type is searched for.
std::size_t find_inside(const std::vector<std::byte>& entry, FourCC type) {
    for (std::size_t at = entry_header; at + 8 <= entry.size(); ++at) {
        const std::uint32_t size = load_u32(entry.data() + at);
        if (load_u32(entry.data() + at + 4) == type && size >= 8 && size <= entry.size() - at) return at + 8;
    }
    return 0;
}

// Skips the head of a descriptor (ISO/IEC 14496-1, 8.3.3) of the expected tag; 0 when it is another.
std::size_t enter_descriptor(const std::vector<std::byte>& entry, std::size_t at, std::uint8_t tag) {
    if (at >= entry.size() || entry[at] != std::byte{tag}) return 0;
    for (std::size_t i = 0; i < 4; ++i) {
        if (++at >= entry.size()) return 0;
        if ((entry[at] & std::byte{0x80}) == std::byte{0}) break;
    }
    return at + 1;
}

// Returns where the decoder configuration of an MPEG-4 entry begins: object type, stream type, buffer size,
// rates.
std::size_t find_decoder(const std::vector<std::byte>& entry) {
    constexpr std::size_t decoder_fields = 13;
    const std::size_t body = find_inside(entry, fourcc("esds"));
    if (body == 0) return 0;
    std::size_t at = enter_descriptor(entry, body + 4, 0x03);
    if (at == 0 || at + 3 > entry.size()) return 0;
    const auto flags = std::to_integer<unsigned>(entry[at + 2]);
    at += 3;
    if ((flags & 0x80U) != 0) at += 2;
    if ((flags & 0x40U) != 0) at += at < entry.size() ? 1 + std::to_integer<std::size_t>(entry[at]) : 1;
    if ((flags & 0x20U) != 0) at += 2;
    at = enter_descriptor(entry, at, 0x04);
    return at != 0 && at + decoder_fields <= entry.size() ? at : 0;
}

std::vector<RateField> rate_fields(const std::vector<std::byte>& entry) {
    std::vector<RateField> fields;
    if (const std::size_t decoder = find_decoder(entry); decoder != 0) {
        fields.insert(fields.end(), {{decoder + 2, 3}, {decoder + 5, 4}, {decoder + 9, 4}});
    }
    const std::size_t rates = find_inside(entry, fourcc("btrt"));
    if (rates != 0 && rates + 12 <= entry.size())
        fields.insert(fields.end(), {{rates, 4}, {rates + 4, 4}, {rates + 8, 4}});
    return fields;
}

std::vector<std::byte> without_rates(std::vector<std::byte> entry, const std::vector<RateField>& fields) {
    for (const RateField& field : fields) store_big(&entry[field.at], 0, field.size);
    return entry;
}

// Writes the greater of two entries' rates into the first one.
void raise_rates(std::vector<std::byte>& entry, const std::vector<std::byte>& other,
                 const std::vector<RateField>& fields) {
    for (const RateField& field : fields) {
        const std::uint64_t greater =
            std::max(load_big(&entry[field.at], field.size), load_big(&other[field.at], field.size));
        store_big(&entry[field.at], greater, field.size);
    }
}

FourCC family_of(FourCC format) noexcept {
    // These formats are one codec, with the parameter sets in the entry or in the samples.
    if (format == fourcc("avc3") || format == fourcc("avc2") || format == fourcc("avc4"))
        return fourcc("avc1");
    if (format == fourcc("hev1")) return fourcc("hvc1");
    return format;
}

}  // namespace

bool Mp4Codec::is_same(const Mp4Codec& other) const noexcept {
    return family_of(format) == family_of(other.format) && object_type == other.object_type;
}

std::string Mp4Codec::text() const {
    return fourcc_text(format) + (object_type == 0 ? std::string() : print(".%02x", unsigned{object_type}));
}

Mp4Codec codec_of(const std::vector<std::byte>& entry) {
    Mp4Codec codec{load_u32(entry.data() + 4), 0};
    if (const std::size_t decoder = find_decoder(entry); decoder != 0) {
        codec.object_type = std::to_integer<std::uint8_t>(entry[decoder]);
    }
    return codec;
}

std::uint32_t DescriptionList::add(const std::vector<std::byte>& original) {
    std::vector<std::byte> entry = original;
    // The joined file has one data reference: itself.
    if (entry.size() >= entry_header) store_big(&entry[entry_header - 2], 1, 2);
    if (!entries_.empty() && !codec_of(entries_.front()).is_same(codec_of(entry))) return 0;
    const std::vector<RateField> fields = rate_fields(entry);
    std::vector<std::byte> key = without_rates(entry, fields);
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (keys_[i] != key || rate_fields(entries_[i]) != fields) continue;
        raise_rates(entries_[i], entry, fields);
        return static_cast<std::uint32_t>(i + 1);
    }
    keys_.push_back(std::move(key));
    entries_.push_back(std::move(entry));
    return static_cast<std::uint32_t>(entries_.size());
}

}  // namespace vantlow
