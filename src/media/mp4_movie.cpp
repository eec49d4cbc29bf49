#include "media/mp4_movie.h"

#include <algorithm>
#include <limits>

#include "media/big_endian.h"

namespace vantlow {
namespace {

constexpr std::uint64_t most_32 = std::numeric_limits<std::uint32_t>::max();

// The fields that a movie's and a track's header begin with, read from a whole box.
struct Times {
    bool is_long = false;
    std::uint32_t flags = 0;
    std::uint64_t created = 0;
    std::uint64_t modified = 0;
    const std::byte* behind = nullptr;
};

Times read_times(const std::vector<std::byte>& whole) {
    Times times;
    const std::byte* const at = body_of(whole).data();
    times.is_long = *at == std::byte{1};
    times.flags = load_u24(at + 1);
    const std::size_t width = times.is_long ? 8 : 4;
    times.created = load_big(at + 4, width);
    times.modified = load_big(at + 4 + width, width);
    times.behind = at + 4 + 2 * width;
    return times;
}

bool needs_long(const Times& times, std::uint64_t duration) noexcept {
    return duration > most_32 || times.created > most_32 || times.modified > most_32;
}

class MovieWriter {
  public:
    MovieWriter(BoxBuilder& boxes, const Mp4Piece& model, const std::vector<JoinedTrackBoxes>& tracks,
                bool long_offsets)
        : boxes_(boxes),
          model_(model),
          tracks_(tracks),
          long_offsets_(long_offsets),
          // Old files count in 600ths of a second, which is coarser than edits should be.
          timescale_(std::max<std::uint32_t>(model.timescale, 1000)) {}

    void put();

  private:
    [[nodiscard]] std::int64_t in_movie(std::int64_t time, const JoinedTrackBoxes& track) const {
        return scale_time(time, timescale_, track.timescale);
    }
    void put_movie_header();
    void put_track(std::size_t number);
    void put_track_header(const JoinedTrackBoxes& track);
    void put_references(const JoinedTrackBoxes& track);
    void put_edits(const JoinedTrackBoxes& track);
    void put_media(std::size_t number);
    void put_data_reference();
    void put_sample_tables(std::size_t number);
    void put_table(std::string_view type, unsigned version, std::size_t number, Mp4TableKind kind);
    void put_groups(std::size_t number, std::size_t group);

    BoxBuilder& boxes_;
    const Mp4Piece& model_;
    const std::vector<JoinedTrackBoxes>& tracks_;
    bool long_offsets_;
    std::uint32_t timescale_;
};

void MovieWriter::put() {
    boxes_.begin("moov");
    put_movie_header();
    for (std::size_t i = 0; i < tracks_.size(); ++i) put_track(i);
    for (const auto& box : model_.user_data) boxes_.copy(box);
    boxes_.end();
}

void MovieWriter::put_movie_header() {
    std::int64_t duration = 0;
    std::uint32_t next_id = 1;
    for (const JoinedTrackBoxes& track : tracks_) {
        duration = std::max(duration, in_movie(track.timeline.duration, track));
        next_id = std::max(next_id, track.id + 1);
    }
    const Times times = read_times(model_.movie_header);
    const bool is_long = needs_long(times, static_cast<std::uint64_t>(duration));
    const std::size_t width = is_long ? 8 : 4;
    boxes_.begin_full("mvhd", is_long ? 1 : 0, 0);
    boxes_.put(times.created, width);
    boxes_.put(times.modified, width);
    boxes_.put(timescale_, 4);
    boxes_.put(static_cast<std::uint64_t>(duration), width);
    // Rate, volume, matrix: as the first piece has them.
    boxes_.copy(times.behind + 4 + (times.is_long ? 8 : 4), 76);
    boxes_.put(next_id, 4);
    boxes_.end();
}

void MovieWriter::put_track_header(const JoinedTrackBoxes& track) {
    const auto duration = static_cast<std::uint64_t>(in_movie(track.timeline.duration, track));
    const Times times = read_times(track.model->header);
    const bool is_long = needs_long(times, duration);
    const std::size_t width = is_long ? 8 : 4;
    boxes_.begin_full("tkhd", is_long ? 1 : 0, times.flags);
    boxes_.put(times.created, width);
    boxes_.put(times.modified, width);
    boxes_.put(track.id, 4);
    boxes_.put(0, 4);
    boxes_.put(duration, width);
    // Layer, volume, matrix, size of the picture.
    boxes_.copy(times.behind + 8 + (times.is_long ? 8 : 4), 60);
    boxes_.end();
}

void MovieWriter::put_references(const JoinedTrackBoxes& track) {
    if (track.model->references.empty()) return;
    if (track.id != track.model->id) return;  // ids of another piece mean other tracks
    const auto body = body_of(track.model->references);
    BoxBuilder kept;
    std::size_t at = 0;
    while (at + 8 <= body.size()) {
        const std::size_t size = load_u32(&body[at]);
        if (size < 8 || size > body.size() - at) return;
        const std::size_t before = kept.bytes().size();
        kept.begin(std::string_view(reinterpret_cast<const char*>(&body[at + 4]), 4));
        for (std::size_t id = at + 8; id + 4 <= at + size; id += 4) {
            const bool there =
                std::any_of(tracks_.begin(), tracks_.end(), [&](const JoinedTrackBoxes& other) {
                    return other.id == load_u32(&body[id]) && other.id == other.model->id;
                });
            if (there) kept.put(load_u32(&body[id]), 4);
        }
        if (kept.bytes().size() == before + 8) return;  // no reference is left
        kept.end();
        at += size;
    }
    boxes_.begin("tref");
    boxes_.copy(kept.bytes());
    boxes_.end();
}

void MovieWriter::put_edits(const JoinedTrackBoxes& track) {
    const std::vector<EditSpan>& edits = track.timeline.edits;
    if (edits.empty()) return;
    const bool is_long = std::any_of(edits.begin(), edits.end(), [&](const EditSpan& edit) {
        return in_movie(edit.duration, track) > static_cast<std::int64_t>(most_32) ||
               edit.media_time > 0x7FFFFFFF;
    });
    const std::size_t width = is_long ? 8 : 4;
    boxes_.begin("edts");
    boxes_.begin_full("elst", is_long ? 1 : 0, 0);
    boxes_.put(edits.size(), 4);
    std::int64_t shown = 0;
    for (const EditSpan& edit : edits) {
        // Each end is rounded by itself, so that no error adds up.
        const std::int64_t before = in_movie(shown, track);
        shown += edit.duration;
        boxes_.put(static_cast<std::uint64_t>(in_movie(shown, track) - before), width);
        boxes_.put(static_cast<std::uint64_t>(edit.media_time), width);
        boxes_.put(static_cast<std::uint32_t>(edit.rate), 4);
    }
    boxes_.end();
    boxes_.end();
}

void MovieWriter::put_track(std::size_t number) {
    const JoinedTrackBoxes& track = tracks_[number];
    boxes_.begin("trak");
    put_track_header(track);
    put_references(track);
    put_edits(track);
    put_media(number);
    boxes_.copy(track.model->user_data);
    boxes_.end();
}

void MovieWriter::put_media(std::size_t number) {
    const JoinedTrackBoxes& track = tracks_[number];
    const Times times = read_times(track.model->header);
    const auto duration = static_cast<std::uint64_t>(track.timeline.media_duration);
    const bool is_long = needs_long(times, duration);
    const std::size_t width = is_long ? 8 : 4;
    boxes_.begin("mdia");
    boxes_.begin_full("mdhd", is_long ? 1 : 0, 0);
    boxes_.put(times.created, width);
    boxes_.put(times.modified, width);
    boxes_.put(track.timescale, 4);
    boxes_.put(duration, width);
    boxes_.put(track.model->language, 2);
    boxes_.put(0, 2);
    boxes_.end();
    boxes_.copy(track.model->handler);
    boxes_.begin("minf");
    if (track.model->media_header.empty()) {
        boxes_.begin_full("nmhd", 0, 0);
        boxes_.end();
    }
    boxes_.copy(track.model->media_header);
    put_data_reference();
    put_sample_tables(number);
    boxes_.end();
    boxes_.end();
}

void MovieWriter::put_data_reference() {
    constexpr std::uint32_t in_this_file = 1;
    boxes_.begin("dinf");
    boxes_.begin_full("dref", 0, 0);
    boxes_.put(1, 4);
    boxes_.begin_full("url ", 0, in_this_file);
    boxes_.end();
    boxes_.end();
    boxes_.end();
}

void MovieWriter::put_table(std::string_view type, unsigned version, std::size_t number, Mp4TableKind kind) {
    const TrackTableSizes& sizes = tracks_[number].sizes;
    boxes_.begin_full(type, version, 0);
    boxes_.put(sizes.count(kind), 4);
    const std::size_t entry = mp4_entry_size(kind, long_offsets_);
    boxes_.leave(static_cast<std::int64_t>(sizes.count(kind) * entry), number, kind);
    boxes_.end();
}

void MovieWriter::put_sample_tables(std::size_t number) {
    const JoinedTrackBoxes& track = tracks_[number];
    const TrackTableSizes& sizes = track.sizes;
    boxes_.begin("stbl");
    boxes_.begin_full("stsd", 0, 0);
    boxes_.put(track.descriptions.size(), 4);
    for (const auto& entry : track.descriptions) boxes_.copy(entry);
    boxes_.end();
    put_table("stts", 0, number, Mp4TableKind::stts);
    if (sizes.needs(Mp4TableKind::ctts)) {
        put_table("ctts", sizes.has_negative_compositions ? 1 : 0, number, Mp4TableKind::ctts);
    }
    if (sizes.needs(Mp4TableKind::stss)) put_table("stss", 0, number, Mp4TableKind::stss);
    put_table("stsc", 0, number, Mp4TableKind::stsc);
    boxes_.begin_full("stsz", 0, 0);
    const bool has_table = sizes.needs(Mp4TableKind::stsz);
    boxes_.put(has_table ? 0 : sizes.size, 4);
    boxes_.put(sizes.samples, 4);
    if (has_table) boxes_.leave(static_cast<std::int64_t>(sizes.samples * 4), number, Mp4TableKind::stsz);
    boxes_.end();
    put_table(long_offsets_ ? "co64" : "stco", 0, number, Mp4TableKind::chunks);
    for (std::size_t i = 0; i < track.groups.size(); ++i) put_groups(number, i);
    boxes_.end();
}

void MovieWriter::put_groups(std::size_t number, std::size_t group) {
    const JoinedGroups& groups = tracks_[number].groups[group];
    const bool one_length = std::all_of(
        groups.entries.begin(), groups.entries.end(),
        [&](const std::vector<std::byte>& entry) { return entry.size() == groups.entries.front().size(); });
    const std::size_t length = one_length && !groups.entries.empty() ? groups.entries.front().size() : 0;
    boxes_.begin_full("sgpd", 1, 0);
    boxes_.put(groups.type, 4);
    boxes_.put(length, 4);
    boxes_.put(groups.entries.size(), 4);
    for (const auto& entry : groups.entries) {
        if (length == 0) boxes_.put(entry.size(), 4);
        boxes_.copy(entry);
    }
    boxes_.end();
    const auto kind = static_cast<Mp4TableKind>(static_cast<std::size_t>(Mp4TableKind::first_sbgp) + group);
    const std::uint64_t entries = tracks_[number].sizes.count(kind);
    boxes_.begin_full("sbgp", groups.parameter != 0 ? 1 : 0, 0);
    boxes_.put(groups.type, 4);
    if (groups.parameter != 0) boxes_.put(groups.parameter, 4);
    boxes_.put(entries, 4);
    boxes_.leave(static_cast<std::int64_t>(entries * mp4_entry_size(kind, long_offsets_)), number, kind);
    boxes_.end();
}

}  // namespace

void BoxBuilder::begin(std::string_view type) {
    open_.push_back({bytes_.size(), size()});
    put(0, 4);
    put(fourcc(type), 4);
}

void BoxBuilder::begin_full(std::string_view type, unsigned version, std::uint32_t flags) {
    begin(type);
    put(version, 1);
    put(flags, 3);
}

void BoxBuilder::end() {
    const Open open = open_.back();
    open_.pop_back();
    const auto box_size = static_cast<std::uint64_t>(size() - open.start);
    if (box_size > most_32) fits_ = false;
    store_big(bytes_.data() + open.at, box_size, 4);
}

void BoxBuilder::put(std::uint64_t value, std::size_t bytes) {
    bytes_.resize(bytes_.size() + bytes);
    store_big(bytes_.data() + bytes_.size() - bytes, value, bytes);
}

void BoxBuilder::leave(std::int64_t size, std::size_t track, Mp4TableKind kind) {
    holes_.push_back({bytes_.size(), size, track, kind});
    holes_size_ += size;
}

void put_file_type(BoxBuilder& boxes, bool is_quicktime) {
    constexpr std::string_view brands = "M4V mp42isom";
    boxes.begin("ftyp");
    boxes.put(fourcc(brands), 4);  // the major one
    boxes.put(1, 4);               // its version
    for (std::size_t at = 0; at < brands.size(); at += 4) boxes.put(fourcc(brands.substr(at)), 4);
    // QuickTime describes sound in another way, which readers must know.
    if (is_quicktime) boxes.put(fourcc("qt  "), 4);
    boxes.end();
}

void put_movie(BoxBuilder& boxes, const Mp4Piece& model, const std::vector<JoinedTrackBoxes>& tracks,
               bool long_offsets) {
    MovieWriter(boxes, model, tracks, long_offsets).put();
}

}  // namespace vantlow
