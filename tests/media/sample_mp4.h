// Small MP4 files, made byte by byte.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "media/mp4_movie.h"

namespace vantlow::test {

struct SampleTrack {
    struct Sample {
        std::string data;
        std::uint32_t duration = 0;
        std::int32_t composition = 0;
        bool sync = true;
    };
    std::string kind;  ///< "vide", "soun"
    std::uint32_t timescale = 1000;
    std::vector<Sample> samples;
    std::vector<EditSpan> edits{};  ///< durations in milliseconds
    std::string format = "test";
    std::string configuration = "c";  ///< of the sample entry
    std::uint32_t samples_a_chunk = 2;
    std::uint64_t begin = 0;  ///< of a fragmented track's first sample
};

/// Makes one file. Chunks of the tracks take turns; where it is fragmented, each turn is a fragment.
class SampleMp4 {
  public:
    SampleMp4(const std::vector<SampleTrack>& tracks, bool fragmented)
        : tracks_(tracks), fragmented_(fragmented), chunks_(tracks.size()) {
        for (const SampleTrack& track : tracks) {
            rounds_ =
                std::max(rounds_, (track.samples.size() + track.samples_a_chunk - 1) / track.samples_a_chunk);
            times_.push_back(track.begin);
        }
    }

    std::string make() {
        out_.begin("ftyp");
        put_text(out_, "isom");
        put_zeros(4);
        out_.end();
        if (!fragmented_) put_media();
        out_.begin("moov");
        out_.begin_full("mvhd", 0, 0);
        put_zeros(8);
        out_.put(1000, 4);
        put_zeros(84);
        out_.end();
        for (std::size_t i = 0; i < tracks_.size(); ++i) put_track(i);
        if (fragmented_) put_defaults();
        out_.end();
        for (std::size_t round = 0; fragmented_ && round < rounds_; ++round) put_fragment(round);
        return {reinterpret_cast<const char*>(out_.bytes().data()), out_.bytes().size()};
    }

  private:
    using Samples = std::span<const SampleTrack::Sample>;

    static void put_text(BoxBuilder& out, std::string_view text) {
        out.copy(reinterpret_cast<const std::byte*>(text.data()), text.size());
    }
    void put_zeros(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) out_.put(0, 1);
    }
    [[nodiscard]] Samples samples_of(std::size_t track, std::size_t round) const {
        const Samples all = tracks_[track].samples;
        const std::size_t begin = std::min(round * tracks_[track].samples_a_chunk, all.size());
        return all.subspan(begin, std::min<std::size_t>(tracks_[track].samples_a_chunk, all.size() - begin));
    }
    // A table of one number, or of how many samples (always one) have it.
    void put_table(std::string_view type, unsigned version, bool counted,
                   const std::vector<std::uint64_t>& values) {
        out_.begin_full(type, version, 0);
        out_.put(values.size(), 4);
        for (const std::uint64_t value : values) {
            if (counted) out_.put(1, 4);
            out_.put(value, 4);
        }
        out_.end();
    }

    void put_media() {
        out_.begin("mdat");
        for (std::size_t round = 0; round < rounds_; ++round) {
            for (std::size_t i = 0; i < tracks_.size(); ++i) {
                const Samples samples = samples_of(i, round);
                if (!samples.empty()) chunks_[i].push_back(static_cast<std::uint64_t>(out_.size()));
                for (const auto& sample : samples) put_text(out_, sample.data);
            }
            put_text(out_, "junk");
        }
        out_.end();
    }

    void put_track(std::size_t number) {
        const SampleTrack& track = tracks_[number];
        out_.begin("trak");
        out_.begin_full("tkhd", 0, 3);
        put_zeros(8);
        out_.put(number + 1, 4);
        put_zeros(68);
        out_.end();
        if (!track.edits.empty()) put_edits(track);
        out_.begin("mdia");
        out_.begin_full("mdhd", 0, 0);
        put_zeros(8);
        out_.put(track.timescale, 4);
        put_zeros(8);
        out_.end();
        out_.begin_full("hdlr", 0, 0);
        put_zeros(4);
        put_text(out_, track.kind);
        put_zeros(13);
        out_.end();
        out_.begin("minf");
        out_.begin("stbl");
        put_description(track);
        put_tables(fragmented_ ? Samples() : Samples(track.samples), number);
        for (int level = 0; level < 4; ++level) out_.end();
    }

    void put_edits(const SampleTrack& track) {
        out_.begin("edts");
        out_.begin_full("elst", 0, 0);
        out_.put(track.edits.size(), 4);
        for (const EditSpan& edit : track.edits) {
            out_.put(static_cast<std::uint64_t>(edit.duration), 4);
            out_.put(static_cast<std::uint64_t>(edit.media_time), 4);
            out_.put(0x10000, 4);
        }
        out_.end();
        out_.end();
    }

    void put_description(const SampleTrack& track) {
        out_.begin_full("stsd", 0, 0);
        out_.put(1, 4);
        out_.begin(track.format);
        put_zeros(6);
        out_.put(1, 2);
        put_text(out_, track.configuration);
        out_.end();
        out_.end();
    }

    void put_tables(Samples samples, std::size_t number) {
        std::vector<std::uint64_t> durations;
        std::vector<std::uint64_t> compositions;
        std::vector<std::uint64_t> sync;
        for (const auto& sample : samples) {
            durations.push_back(sample.duration);
            compositions.push_back(static_cast<std::uint32_t>(sample.composition));
            if (sample.sync) sync.push_back(durations.size());
        }
        put_table("stts", 0, true, durations);
        put_table("ctts", 1, true, compositions);
        if (sync.size() != samples.size()) put_table("stss", 0, false, sync);
        out_.begin_full("stsc", 0, 0);
        for (const std::uint32_t value : {1U, 1U, tracks_[number].samples_a_chunk, 1U}) out_.put(value, 4);
        out_.end();
        out_.begin_full("stsz", 0, 0);
        out_.put(0, 4);
        out_.put(samples.size(), 4);
        for (const auto& sample : samples) out_.put(sample.data.size(), 4);
        out_.end();
        put_table("stco", 0, false, chunks_[number]);
    }

    void put_defaults() {
        out_.begin("mvex");
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            out_.begin_full("trex", 0, 0);
            out_.put(i + 1, 4);
            out_.put(1, 4);
            put_zeros(12);
            out_.end();
        }
        out_.end();
    }

    void put_fragment(std::size_t round) {
        // Built twice: the first time tells how far away the data is.
        const auto before = times_;
        const BoxBuilder measured = fragment(round, 0);
        times_ = before;
        out_.copy(fragment(round, static_cast<std::uint64_t>(measured.size()) + 8).bytes());
        out_.begin("mdat");
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            for (const auto& sample : samples_of(i, round)) put_text(out_, sample.data);
        }
        out_.end();
    }

    BoxBuilder fragment(std::size_t round, std::uint64_t data) {
        BoxBuilder moof;
        moof.begin("moof");
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            const Samples samples = samples_of(i, round);
            if (samples.empty()) continue;
            moof.begin("traf");
            moof.begin_full("tfhd", 0, 0x020000);
            moof.put(i + 1, 4);
            moof.end();
            moof.begin_full("tfdt", 1, 0);
            moof.put(times_[i], 8);
            moof.end();
            moof.begin_full("trun", 1, 0x000F01);
            moof.put(samples.size(), 4);
            moof.put(data, 4);
            for (const auto& sample : samples) {
                moof.put(sample.duration, 4);
                moof.put(sample.data.size(), 4);
                moof.put(sample.sync ? 0 : 0x10000, 4);
                moof.put(static_cast<std::uint32_t>(sample.composition), 4);
                data += sample.data.size();
                times_[i] += sample.duration;
            }
            moof.end();
            moof.end();
        }
        moof.end();
        return moof;
    }

    const std::vector<SampleTrack>& tracks_;
    bool fragmented_;
    BoxBuilder out_;
    std::vector<std::vector<std::uint64_t>> chunks_;
    std::size_t rounds_ = 0;
    std::vector<std::uint64_t> times_;
};

inline std::string make_mp4(const std::vector<SampleTrack>& tracks, bool fragmented = false) {
    return SampleMp4(tracks, fragmented).make();
}

}  // namespace vantlow::test
