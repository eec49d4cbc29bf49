#include "media/mp4_piece.h"

#include <string>
#include <utility>

#include "media/big_endian.h"

namespace vantlow {
namespace {

constexpr std::size_t most_descriptions = 1000;
constexpr std::uint32_t most_group_entries = 1000;

bool read_descriptions(BoxReader& boxes, const Mp4Box& table, Mp4Track& track) {
    Mp4Box box;
    if (!boxes.find(table, "stsd", box))
        return boxes.failure.ok() ? boxes.fail(table.offset, "a track without sample description") : false;
    track.descriptions_offset = box.offset;
    BoxWalker walker(boxes.window, box.body + 8, box.end);
    Mp4Box entry;
    while (walker.next(entry)) {
        if (entry.type == fourcc("encv") || entry.type == fourcc("enca") || entry.type == fourcc("enct")) {
            return boxes.fail(entry.offset, "the media is encrypted");
        }
        if (track.descriptions.size() == most_descriptions)
            return boxes.fail(entry.offset, "too many sample descriptions");
        BoxReader::Bytes whole;
        if (!boxes.load(entry, whole, 8)) return false;
        // The box is rewritten with the short form of its size.
        if (load_u32(whole.data()) == 1)
            return boxes.fail(entry.offset, "a sample description with a long size");
        track.descriptions.push_back(std::move(whole));
    }
    boxes.failure = walker.failure();
    if (!boxes.failure.ok()) return false;
    return !track.descriptions.empty() || boxes.fail(box.offset, "a track without sample description");
}

bool read_table(BoxReader& boxes, const Mp4Box& parent, std::string_view type, std::int64_t entry_size,
                Mp4Table& table) {
    Mp4Box box;
    if (!boxes.find(parent, type, box)) return boxes.failure.ok();
    const std::byte* const head = box.body_size() < 8 ? nullptr : boxes.window.at(box.body, 8);
    if (head == nullptr) return boxes.fail(box.offset, "a box that is too short");
    table.count = load_u32(head + 4);
    table.offset = box.body + 8;
    table.present = true;
    if (table.count > (box.end - table.offset) / entry_size) {
        return boxes.fail(box.offset, "the table \"" + std::string(type) + "\" is shorter than it says");
    }
    return true;
}

bool read_sizes(BoxReader& boxes, const Mp4Box& table, Mp4Track& track) {
    Mp4Box box;
    const bool compact = !boxes.find(table, "stsz", box);
    if (!boxes.failure.ok()) return false;
    if (compact && !boxes.find(table, "stz2", box))
        return boxes.failure.ok() ? boxes.fail(table.offset, "no sample sizes") : false;
    const std::byte* const head = box.body_size() < 12 ? nullptr : boxes.window.at(box.body, 12);
    if (head == nullptr) return boxes.fail(box.offset, "a box that is too short");
    track.samples = load_u32(head + 8);
    if (compact) track.size_bits = load_u32(head + 4) & 0xFFU;
    if (compact && track.size_bits != 4 && track.size_bits != 8 && track.size_bits != 16) {
        return boxes.fail(box.offset, "sample sizes of an unknown width");
    }
    if (!compact) track.one_size = load_u32(head + 4);
    if (track.one_size != 0) return true;
    track.sizes = {box.body + 12, track.samples, true};
    const std::uint64_t bytes = (std::uint64_t{track.samples} * track.size_bits + 7) / 8;
    if (bytes > static_cast<std::uint64_t>(box.end - track.sizes.offset)) {
        return boxes.fail(box.offset, "the table of sample sizes is shorter than it says");
    }
    return true;
}

bool read_tables(BoxReader& boxes, const Mp4Box& table, Mp4Track& track) {
    if (!read_table(boxes, table, "stts", 8, track.times) ||
        !read_table(boxes, table, "ctts", 8, track.compositions) ||
        !read_table(boxes, table, "stsc", 12, track.chunk_runs) ||
        !read_table(boxes, table, "stco", 4, track.chunks) ||
        !read_table(boxes, table, "stss", 4, track.sync) || !read_sizes(boxes, table, track)) {
        return false;
    }
    if (track.chunks.present) return true;
    track.long_offsets = true;
    return read_table(boxes, table, "co64", 8, track.chunks);
}

bool read_group_entries(BoxReader& boxes, const Mp4Box& box, Mp4Track& track) {
    BoxReader::Bytes whole;
    if (!boxes.load(box, whole, 12)) return false;
    const std::byte* at = body_of(whole).data();
    const std::byte* const end = whole.data() + whole.size();
    const unsigned version = std::to_integer<unsigned>(at[0]);
    Mp4Groups groups;
    groups.type = load_u32(at + 4);
    at += 8;
    const auto left = [&] { return static_cast<std::size_t>(end - at); };
    const auto number = [&] { return load_u32((at += 4) - 4); };
    // Without lengths (version 0) the entries cannot be told apart. Groups are hints that no player needs.
    if (version == 0 || left() < (version > 1 ? 12U : 8U)) return true;
    const std::uint32_t one_length = number();
    if (version > 1) groups.default_index = number();
    const std::uint32_t count = number();
    if (count > most_group_entries) return true;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (one_length == 0 && left() < 4) return true;
        const std::uint32_t length = one_length == 0 ? number() : one_length;
        if (length > left()) return true;
        groups.entries.emplace_back(at, at + length);
        at += length;
    }
    track.groups.push_back(std::move(groups));
    return true;
}

bool read_groups(BoxReader& boxes, const Mp4Box& table, Mp4Track& track) {
    BoxWalker walker(boxes.window, table);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type == fourcc("sgpd") && track.groups.size() < most_groups &&
            !read_group_entries(boxes, box, track)) {
            return false;
        }
    }
    BoxWalker again(boxes.window, table);
    while (again.next(box)) {
        if (box.type != fourcc("sbgp")) continue;
        const std::byte* head = box.body_size() < 16 ? nullptr : boxes.window.at(box.body, 16);
        if (head == nullptr) continue;
        const bool has_parameter = head[0] != std::byte{0};
        for (Mp4Groups& groups : track.groups) {
            if (groups.type != load_u32(head + 4) || groups.map.present) continue;
            groups.parameter = has_parameter ? load_u32(head + 8) : 0;
            groups.map.offset = box.body + (has_parameter ? 16 : 12);
            groups.map.count = load_u32(head + (has_parameter ? 12 : 8));
            groups.map.present = true;
            if (groups.map.count > (box.end - groups.map.offset) / 8)
                return boxes.fail(box.offset, "a map of sample groups that is too short");
            break;
        }
    }
    boxes.failure = again.failure();
    return boxes.failure.ok();
}

}  // namespace

bool read_sample_table(BoxReader& boxes, const Mp4Box& table, Mp4Track& track) {
    return read_descriptions(boxes, table, track) && read_tables(boxes, table, track) &&
           read_groups(boxes, table, track);
}

}  // namespace vantlow
