#include "media/mp4_piece.h"

#include <algorithm>
#include <utility>

#include "media/big_endian.h"

namespace vantlow {
namespace {

constexpr std::int64_t largest_user_data = 16 * 1024 * 1024;
constexpr std::size_t most_tracks = 256;
constexpr std::uint32_t largest_timescale = 1U << 30U;

Mp4Box whole_file(const MediaInput& input) {
    return {0, 0, 0, input.size()};
}

// Reads one piece. Each step returns false after it has set the failure.
class PieceReader {
  public:
    explicit PieceReader(const MediaInput& input) : boxes_(input) {}

    Outcome<Mp4Piece> read();

  private:
    using Bytes = BoxReader::Bytes;

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

    BoxReader boxes_;
    Mp4Piece piece_;
    std::int64_t user_data_ = 0;  // bytes of the movie's
};

bool PieceReader::read_type(const Mp4Box& box) {
    Bytes whole;
    if (!boxes_.load(box, whole, 8)) return false;
    const auto body = body_of(whole);
    piece_.brand = load_u32(body.data());
    for (std::size_t at = 0; at + 4 <= body.size(); at += 4) {
        constexpr std::size_t version_at = 4;
        if (load_u32(&body[at]) == fourcc("qt  ") && at != version_at) piece_.is_quicktime = true;
    }
    return true;
}

// Reads the boxes at the top of the file.
bool PieceReader::read_file(Mp4Box& movie) {
    BoxWalker walker(boxes_.window, whole_file(boxes_.input));
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
    boxes_.failure = walker.failure();
    if (!boxes_.failure.ok()) return false;
    if (!has_type) piece_.is_quicktime = true;
    return movie.type != 0 ||
           boxes_.fail(0, "there is no movie box: this is not an MP4 file, or its end is missing");
}

bool PieceReader::read_movie(const Mp4Box& movie) {
    Mp4Box found;
    if (boxes_.find(movie, "cmov", found))
        return boxes_.fail(found.offset, "the movie box is compressed, which is not supported");
    if (!boxes_.failure.ok() || !boxes_.need(movie, "mvhd", piece_.movie_header, 100)) return false;
    const auto header = body_of(piece_.movie_header);
    const bool is_long = header[0] == std::byte{1};
    if (is_long && header.size() < 112) return boxes_.fail(movie.offset, "a movie header that is too short");
    piece_.timescale = load_u32(&header[is_long ? 20 : 12]);
    piece_.duration = is_long ? load_u64(&header[24]) : load_u32(&header[16]);
    if (piece_.timescale == 0 || piece_.timescale > largest_timescale) {
        return boxes_.fail(movie.offset, "a movie with an impossible time scale");
    }
    BoxWalker walker(boxes_.window, movie);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type == fourcc("trak")) {
            Mp4Track track;
            if (piece_.tracks.size() == most_tracks) return boxes_.fail(box.offset, "too many tracks");
            if (!read_track(box, track)) return false;
            const bool is_hint =
                track.kind == fourcc("hint") ||
                std::any_of(track.descriptions.begin(), track.descriptions.end(),
                            [](const Bytes& entry) { return load_u32(entry.data() + 4) == fourcc("rtp "); });
            // A hint track says how to send another track over a network; it cannot be played.
            if (!is_hint) piece_.tracks.push_back(std::move(track));
        } else if (box.type == fourcc("udta") || box.type == fourcc("meta")) {
            if (!read_user_data(box)) return false;
        }
    }
    boxes_.failure = walker.failure();
    if (!boxes_.failure.ok()) return false;
    Mp4Box extends;
    if (boxes_.find(movie, "mvex", extends)) return read_defaults(extends);
    return boxes_.failure.ok();
}

bool PieceReader::read_user_data(const Mp4Box& box) {
    // User data that is too large is left out: a title or a cover is no reason to fail.
    if (box.end - box.offset > largest_user_data - user_data_) return true;
    user_data_ += box.end - box.offset;
    return boxes_.load(box, piece_.user_data.emplace_back(), 0, largest_user_data);
}

bool PieceReader::read_defaults(const Mp4Box& extends) {
    BoxWalker walker(boxes_.window, extends);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type != fourcc("trex")) continue;
        const std::byte* const body = box.body_size() < 24 ? nullptr : boxes_.window.at(box.body, 24);
        if (body == nullptr) return boxes_.fail(box.offset, "a box that is too short");
        for (Mp4Track& track : piece_.tracks) {
            if (track.id != load_u32(body + 4)) continue;
            track.fragment = {load_u32(body + 8), load_u32(body + 12), load_u32(body + 16),
                              load_u32(body + 20)};
        }
    }
    boxes_.failure = walker.failure();
    return boxes_.failure.ok();
}

bool PieceReader::read_track(const Mp4Box& box, Mp4Track& track) {
    track.offset = box.offset;
    Mp4Box info;
    Mp4Box table;
    if (!read_headers(box, track) || !read_edits(box, track)) return false;
    if (!boxes_.find(box, "mdia/minf", info) || !boxes_.find(info, "stbl", table)) {
        return boxes_.failure.ok() ? boxes_.fail(box.offset, "a track without sample tables") : false;
    }
    return read_references(info) && read_media_header(info, track) && read_sample_table(boxes_, table, track);
}

bool PieceReader::read_headers(const Mp4Box& box, Mp4Track& track) {
    if (!boxes_.need(box, "tkhd", track.header, 84)) return false;
    const auto header = body_of(track.header);
    const bool is_long = header[0] == std::byte{1};
    if (is_long && header.size() < 96) return boxes_.fail(box.offset, "a track header that is too short");
    track.id = load_u32(&header[is_long ? 20 : 12]);

    Bytes media;
    if (!boxes_.need(box, "mdia/mdhd", media, 24)) return false;
    const auto body = body_of(media);
    const bool long_media = body[0] == std::byte{1};
    if (long_media && body.size() < 36) return boxes_.fail(box.offset, "a media header that is too short");
    track.timescale = load_u32(&body[long_media ? 20 : 12]);
    track.language = load_u16(&body[long_media ? 32 : 20]);
    if (track.timescale == 0 || track.timescale > largest_timescale) {
        return boxes_.fail(box.offset, "a track with an impossible time scale");
    }

    if (!boxes_.need(box, "mdia/hdlr", track.handler, 12)) return false;
    track.kind = load_u32(&body_of(track.handler)[8]);
    (void)boxes_.load(box, "tref", track.references);
    (void)boxes_.load(box, "udta", track.user_data);
    return boxes_.failure.ok();
}

bool PieceReader::read_edits(const Mp4Box& box, Mp4Track& track) {
    Bytes whole;
    if (!boxes_.load(box, "edts/elst", whole, 8)) return boxes_.failure.ok();
    const auto body = body_of(whole);
    const bool is_long = body[0] == std::byte{1};
    const std::size_t entry_size = is_long ? 20 : 12;
    const std::uint32_t count = load_u32(&body[4]);
    if (count > (body.size() - 8) / entry_size)
        return boxes_.fail(box.offset, "an edit list that is too short");
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
            return boxes_.fail(box.offset, "an edit list with impossible times");
        }
        total += edit.duration;
        track.edits.push_back(edit);
    }
    return true;
}

// The media must be in this file.
bool PieceReader::read_references(const Mp4Box& info) {
    Mp4Box references;
    if (!boxes_.find(info, "dinf/dref", references)) return boxes_.failure.ok();
    BoxWalker walker(boxes_.window, references.body + 8, references.end);
    Mp4Box box;
    while (walker.next(box)) {
        const std::byte* const flags = box.body_size() < 4 ? nullptr : boxes_.window.at(box.body, 4);
        if (flags != nullptr && (load_u32(flags) & 1U) == 0)
            return boxes_.fail(box.offset, "the media is in another file");
    }
    boxes_.failure = walker.failure();
    return boxes_.failure.ok();
}

bool PieceReader::read_media_header(const Mp4Box& info, Mp4Track& track) {
    for (const std::string_view type : {"vmhd", "smhd", "nmhd", "sthd", "gmhd", "hmhd"}) {
        if (boxes_.load(info, type, track.media_header)) break;
        if (!boxes_.failure.ok()) return false;
    }
    return true;
}

Outcome<Mp4Piece> PieceReader::read() {
    Mp4Box movie;
    if (!read_file(movie) || !read_movie(movie)) return boxes_.failure;
    return std::move(piece_);
}

}  // namespace

Outcome<Mp4Piece> read_mp4_piece(const MediaInput& input) {
    return PieceReader(input).read();
}

}  // namespace vantlow
