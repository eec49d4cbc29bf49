#include "media/mp4_piece.h"

#include <algorithm>
#include <utility>

#include "media/big_endian.h"

namespace vantlow {
namespace {

// Boxes that are held in memory are small in all files that make sense, and few.
constexpr std::int64_t largest_small_box = 1024 * 1024;
constexpr std::int64_t largest_user_data = 16 * 1024 * 1024;
constexpr std::int64_t most_held = 64 * 1024 * 1024;
constexpr std::size_t most_tracks = 256;
constexpr std::size_t most_descriptions = 1000;
constexpr std::uint32_t most_group_entries = 1000;
constexpr std::uint32_t largest_timescale = 1U << 30U;

Mp4Box whole_file(const MediaInput& input) {
    return {0, 0, 0, input.size()};
}

// Reads one piece. Each step returns false after it has set the failure.
class PieceReader {
  public:
    explicit PieceReader(const MediaInput& input) : input_(input), window_(input) {}

    Outcome<Mp4Piece> read();

  private:
    using Bytes = std::vector<std::byte>;

    bool fail(std::int64_t offset, std::string_view what) {
        failure_ = input_.damaged(offset, what);
        return false;
    }
    bool find(const Mp4Box& parent, std::string_view path, Mp4Box& found) {
        return find_box(window_, parent, path, found, failure_);
    }
    // False where the box is absent (no failure) or unreadable (failure).
    bool load(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body = 0);
    bool load(const Mp4Box& box, Bytes& whole, std::size_t least_body,
              std::int64_t largest = largest_small_box);
    bool need(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body);

    bool read_file(Mp4Box& movie);
    bool read_type(const Mp4Box& box);
    bool read_movie(const Mp4Box& movie);
    bool read_defaults(const Mp4Box& extends);
    bool read_user_data(const Mp4Box& box);
    bool read_track(const Mp4Box& box, Mp4Track& track);
    bool read_headers(const Mp4Box& box, Mp4Track& track);
    bool read_edits(const Mp4Box& box, Mp4Track& track);
    bool read_references(const Mp4Box& info);
    bool read_media_header(const Mp4Box& info, Mp4Track& track);
    bool read_descriptions(const Mp4Box& table, Mp4Track& track);
    bool read_tables(const Mp4Box& table, Mp4Track& track);
    bool read_sizes(const Mp4Box& table, Mp4Track& track);
    bool read_table(const Mp4Box& parent, std::string_view type, std::int64_t entry_size, Mp4Table& table);
    bool read_groups(const Mp4Box& table, Mp4Track& track);
    bool read_group_entries(const Mp4Box& box, Mp4Track& track);

    const MediaInput& input_;
    InputWindow window_;
    Mp4Piece piece_;
    std::int64_t held_ = 0;       // bytes of all boxes that were loaded
    std::int64_t user_data_ = 0;  // of those with the movie's user data
    Result failure_;
};

bool PieceReader::load(const Mp4Box& box, Bytes& whole, std::size_t least_body, std::int64_t largest) {
    if (box.body_size() < static_cast<std::int64_t>(least_body))
        return fail(box.offset, "a box that is too short");
    held_ += box.end - box.offset;
    if (held_ > most_held) return fail(box.offset, "too much in the movie box");
    auto bytes = read_range(input_, box.offset, box.end, largest);
    if (!bytes) {
        failure_ = bytes.failure();
        return false;
    }
    whole = *std::move(bytes);
    // "Up to the end of what it stands in" is somewhere else where the box is written again.
    if (load_u32(whole.data()) == 0) store_big(whole.data(), whole.size(), 4);
    return true;
}

bool PieceReader::load(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body) {
    Mp4Box box;
    return find(parent, path, box) && load(box, whole, least_body);
}

bool PieceReader::need(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body) {
    if (load(parent, path, whole, least_body)) return true;
    return failure_.ok() ? fail(parent.offset, "the box \"" + std::string(path) + "\" is missing") : false;
}

bool PieceReader::read_type(const Mp4Box& box) {
    Bytes whole;
    if (!load(box, whole, 8)) return false;
    const auto body = body_of(whole);
    piece_.brand = load_u32(body.data());
    for (std::size_t at = 0; at + 4 <= body.size(); at += 4) {
        constexpr std::size_t version_at = 4;
        if (load_u32(&body[at]) == fourcc("qt  ") && at != version_at) piece_.is_quicktime = true;
    }
    return true;
}

// Looks over the boxes of the file.
bool PieceReader::read_file(Mp4Box& movie) {
    BoxWalker walker(window_, whole_file(input_));
    Mp4Box box;
    bool has_type = false;
    while (walker.next(box)) {
        if (box.type == fourcc("ftyp") && !has_type) {
            has_type = true;
            if (!read_type(box)) return false;
        }
        if (box.type == fourcc("moov") && movie.type == 0) movie = box;
        if (box.type == fourcc("moof")) piece_.is_fragmented = true;
    }
    failure_ = walker.failure();
    if (!failure_.ok()) return false;
    if (!has_type) piece_.is_quicktime = true;
    return movie.type != 0 || fail(0, "there is no movie box: no MP4 file, or its end is missing");
}

bool PieceReader::read_movie(const Mp4Box& movie) {
    Mp4Box found;
    if (find(movie, "cmov", found))
        return fail(found.offset, "the movie box is compressed, which is not supported");
    if (!failure_.ok() || !need(movie, "mvhd", piece_.movie_header, 100)) return false;
    const auto header = body_of(piece_.movie_header);
    const bool is_long = header[0] == std::byte{1};
    if (is_long && header.size() < 112) return fail(movie.offset, "a movie header that is too short");
    piece_.timescale = load_u32(&header[is_long ? 20 : 12]);
    piece_.duration = is_long ? load_u64(&header[24]) : load_u32(&header[16]);
    if (piece_.timescale == 0 || piece_.timescale > largest_timescale) {
        return fail(movie.offset, "a movie with an impossible time scale");
    }
    BoxWalker walker(window_, movie);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type == fourcc("trak")) {
            Mp4Track track;
            if (piece_.tracks.size() == most_tracks) return fail(box.offset, "too many tracks");
            if (!read_track(box, track)) return false;
            const bool is_hint =
                track.kind == fourcc("hint") ||
                std::any_of(track.descriptions.begin(), track.descriptions.end(),
                            [](const Bytes& entry) { return load_u32(entry.data() + 4) == fourcc("rtp "); });
            // How to send a track over a network: nothing that could be played.
            if (!is_hint) piece_.tracks.push_back(std::move(track));
        } else if (box.type == fourcc("udta") || box.type == fourcc("meta")) {
            if (!read_user_data(box)) return false;
        }
    }
    failure_ = walker.failure();
    if (!failure_.ok()) return false;
    Mp4Box extends;
    if (find(movie, "mvex", extends)) return read_defaults(extends);
    return failure_.ok();
}

bool PieceReader::read_user_data(const Mp4Box& box) {
    // What is too large is left out: title and cover are no reason to fail.
    if (box.end - box.offset > largest_user_data - user_data_) return true;
    user_data_ += box.end - box.offset;
    return load(box, piece_.user_data.emplace_back(), 0, largest_user_data);
}

bool PieceReader::read_defaults(const Mp4Box& extends) {
    BoxWalker walker(window_, extends);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type != fourcc("trex")) continue;
        const std::byte* const body = box.body_size() < 24 ? nullptr : window_.at(box.body, 24);
        if (body == nullptr) return fail(box.offset, "a box that is too short");
        for (Mp4Track& track : piece_.tracks) {
            if (track.id != load_u32(body + 4)) continue;
            track.fragment = {load_u32(body + 8), load_u32(body + 12), load_u32(body + 16),
                              load_u32(body + 20)};
        }
    }
    failure_ = walker.failure();
    return failure_.ok();
}

bool PieceReader::read_track(const Mp4Box& box, Mp4Track& track) {
    track.offset = box.offset;
    Mp4Box info;
    Mp4Box table;
    if (!read_headers(box, track) || !read_edits(box, track)) return false;
    if (!find(box, "mdia/minf", info) || !find(info, "stbl", table)) {
        return failure_.ok() ? fail(box.offset, "a track without samples' tables") : false;
    }
    return read_references(info) && read_media_header(info, track) && read_descriptions(table, track) &&
           read_tables(table, track) && read_groups(table, track);
}

bool PieceReader::read_headers(const Mp4Box& box, Mp4Track& track) {
    if (!need(box, "tkhd", track.header, 84)) return false;
    const auto header = body_of(track.header);
    const bool is_long = header[0] == std::byte{1};
    if (is_long && header.size() < 96) return fail(box.offset, "a track header that is too short");
    track.id = load_u32(&header[is_long ? 20 : 12]);

    Bytes media;
    if (!need(box, "mdia/mdhd", media, 24)) return false;
    const auto body = body_of(media);
    const bool long_media = body[0] == std::byte{1};
    if (long_media && body.size() < 36) return fail(box.offset, "a media header that is too short");
    track.timescale = load_u32(&body[long_media ? 20 : 12]);
    track.language = load_u16(&body[long_media ? 32 : 20]);
    if (track.timescale == 0 || track.timescale > largest_timescale) {
        return fail(box.offset, "a track with an impossible time scale");
    }

    if (!need(box, "mdia/hdlr", track.handler, 12)) return false;
    track.kind = load_u32(&body_of(track.handler)[8]);
    (void)load(box, "tref", track.references);
    (void)load(box, "udta", track.user_data);
    return failure_.ok();
}

bool PieceReader::read_edits(const Mp4Box& box, Mp4Track& track) {
    Bytes whole;
    if (!load(box, "edts/elst", whole, 8)) return failure_.ok();
    const auto body = body_of(whole);
    const bool is_long = body[0] == std::byte{1};
    const std::size_t entry_size = is_long ? 20 : 12;
    const std::uint32_t count = load_u32(&body[4]);
    if (count > (body.size() - 8) / entry_size) return fail(box.offset, "an edit list that is too short");
    const std::byte* at = body.data() + 8;
    constexpr std::int64_t longest = std::int64_t{1} << 60;
    std::int64_t total = 0;
    for (std::uint32_t i = 0; i < count; ++i, at += entry_size) {
        Mp4Edit edit;
        edit.duration = static_cast<std::int64_t>(is_long ? load_u64(at) : load_u32(at));
        edit.media_time = is_long ? static_cast<std::int64_t>(load_u64(at + 8))
                                  : static_cast<std::int32_t>(load_u32(at + 4));
        edit.rate = static_cast<std::int32_t>(load_u32(at + entry_size - 4));
        if (edit.duration < 0 || edit.duration > longest - total || edit.media_time < -1 ||
            edit.media_time > longest) {
            return fail(box.offset, "an edit list with impossible times");
        }
        total += edit.duration;
        track.edits.push_back(edit);
    }
    return true;
}

// The media must be in this file.
bool PieceReader::read_references(const Mp4Box& info) {
    Mp4Box references;
    if (!find(info, "dinf/dref", references)) return failure_.ok();
    BoxWalker walker(window_, references.body + 8, references.end);
    Mp4Box box;
    while (walker.next(box)) {
        const std::byte* const flags = box.body_size() < 4 ? nullptr : window_.at(box.body, 4);
        if (flags != nullptr && (load_u32(flags) & 1U) == 0)
            return fail(box.offset, "the media is in another file");
    }
    failure_ = walker.failure();
    return failure_.ok();
}

bool PieceReader::read_media_header(const Mp4Box& info, Mp4Track& track) {
    for (const std::string_view type : {"vmhd", "smhd", "nmhd", "sthd", "gmhd", "hmhd"}) {
        if (load(info, type, track.media_header)) break;
        if (!failure_.ok()) return false;
    }
    return true;
}

bool PieceReader::read_descriptions(const Mp4Box& table, Mp4Track& track) {
    Mp4Box box;
    if (!find(table, "stsd", box))
        return failure_.ok() ? fail(table.offset, "a track without sample description") : false;
    track.descriptions_offset = box.offset;
    BoxWalker walker(window_, box.body + 8, box.end);
    Mp4Box entry;
    while (walker.next(entry)) {
        if (entry.type == fourcc("encv") || entry.type == fourcc("enca") || entry.type == fourcc("enct")) {
            return fail(entry.offset, "the media is encrypted");
        }
        if (track.descriptions.size() == most_descriptions)
            return fail(entry.offset, "too many sample descriptions");
        Bytes whole;
        if (!load(entry, whole, 8)) return false;
        // In the form with the short size, as it is written.
        if (load_u32(whole.data()) == 1) return fail(entry.offset, "a sample description with a long size");
        track.descriptions.push_back(std::move(whole));
    }
    failure_ = walker.failure();
    if (!failure_.ok()) return false;
    return !track.descriptions.empty() || fail(box.offset, "a track without sample description");
}

bool PieceReader::read_table(const Mp4Box& parent, std::string_view type, std::int64_t entry_size,
                             Mp4Table& table) {
    Mp4Box box;
    if (!find(parent, type, box)) return failure_.ok();
    const std::byte* const head = box.body_size() < 8 ? nullptr : window_.at(box.body, 8);
    if (head == nullptr) return fail(box.offset, "a box that is too short");
    table.count = load_u32(head + 4);
    table.offset = box.body + 8;
    table.present = true;
    if (table.count > (box.end - table.offset) / entry_size) {
        return fail(box.offset, "the table \"" + std::string(type) + "\" is shorter than it says");
    }
    return true;
}

bool PieceReader::read_sizes(const Mp4Box& table, Mp4Track& track) {
    Mp4Box box;
    const bool compact = !find(table, "stsz", box);
    if (!failure_.ok()) return false;
    if (compact && !find(table, "stz2", box))
        return failure_.ok() ? fail(table.offset, "no sample sizes") : false;
    const std::byte* const head = box.body_size() < 12 ? nullptr : window_.at(box.body, 12);
    if (head == nullptr) return fail(box.offset, "a box that is too short");
    track.samples = load_u32(head + 8);
    if (compact) track.size_bits = load_u32(head + 4) & 0xFFU;
    if (compact && track.size_bits != 4 && track.size_bits != 8 && track.size_bits != 16) {
        return fail(box.offset, "sample sizes of an unknown width");
    }
    if (!compact) track.one_size = load_u32(head + 4);
    if (track.one_size != 0) return true;
    track.sizes = {box.body + 12, track.samples, true};
    const std::uint64_t bytes = (std::uint64_t{track.samples} * track.size_bits + 7) / 8;
    if (bytes > static_cast<std::uint64_t>(box.end - track.sizes.offset)) {
        return fail(box.offset, "the table of sample sizes is shorter than it says");
    }
    return true;
}

bool PieceReader::read_tables(const Mp4Box& table, Mp4Track& track) {
    if (!read_table(table, "stts", 8, track.times) || !read_table(table, "ctts", 8, track.compositions) ||
        !read_table(table, "stsc", 12, track.chunk_runs) || !read_table(table, "stco", 4, track.chunks) ||
        !read_table(table, "stss", 4, track.sync) || !read_sizes(table, track)) {
        return false;
    }
    if (track.chunks.present) return true;
    track.long_offsets = true;
    return read_table(table, "co64", 8, track.chunks);
}

bool PieceReader::read_groups(const Mp4Box& table, Mp4Track& track) {
    BoxWalker walker(window_, table);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type == fourcc("sgpd") && track.groups.size() < most_groups &&
            !read_group_entries(box, track)) {
            return false;
        }
    }
    BoxWalker again(window_, table);
    while (again.next(box)) {
        if (box.type != fourcc("sbgp")) continue;
        const std::byte* head = box.body_size() < 16 ? nullptr : window_.at(box.body, 16);
        if (head == nullptr) continue;
        const bool has_parameter = head[0] != std::byte{0};
        for (Mp4Groups& groups : track.groups) {
            if (groups.type != load_u32(head + 4) || groups.map.present) continue;
            groups.parameter = has_parameter ? load_u32(head + 8) : 0;
            groups.map.offset = box.body + (has_parameter ? 16 : 12);
            groups.map.count = load_u32(head + (has_parameter ? 12 : 8));
            groups.map.present = true;
            if (groups.map.count > (box.end - groups.map.offset) / 8)
                return fail(box.offset, "a map of sample groups that is too short");
            break;
        }
    }
    failure_ = again.failure();
    return failure_.ok();
}

bool PieceReader::read_group_entries(const Mp4Box& box, Mp4Track& track) {
    Bytes whole;
    if (!load(box, whole, 12)) return false;
    const std::byte* at = body_of(whole).data();
    const std::byte* const end = whole.data() + whole.size();
    const unsigned version = std::to_integer<unsigned>(at[0]);
    Mp4Groups groups;
    groups.type = load_u32(at + 4);
    at += 8;
    const auto left = [&] { return static_cast<std::size_t>(end - at); };
    const auto number = [&] { return load_u32((at += 4) - 4); };
    // Without lengths (version 0) the entries cannot be told apart. Groups are hints: nobody needs them to
    // play.
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

Outcome<Mp4Piece> PieceReader::read() {
    Mp4Box movie;
    if (!read_file(movie) || !read_movie(movie)) return failure_;
    return std::move(piece_);
}

}  // namespace

Outcome<Mp4Piece> read_mp4_piece(const MediaInput& input) {
    return PieceReader(input).read();
}

}  // namespace vantlow
