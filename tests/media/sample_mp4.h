// Small MP4 files, made byte by byte.
#pragma once

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

/// Where it is fragmented, a fragment has a chunk of each track. Chunks of the tracks take turns.
inline std::string make_mp4(const std::vector<SampleTrack>& tracks, bool fragmented = false) {
    BoxBuilder out;
    const auto text = [&out](std::string_view bytes) {
        out.copy(reinterpret_cast<const std::byte*>(bytes.data()), bytes.size());
    };
    const auto zeros = [&out](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) out.put(0, 1);
    };
    out.begin("ftyp");
    text("isom");
    out.put(0, 4);
    out.end();

    std::vector<std::vector<std::uint64_t>> chunks(tracks.size());
    std::size_t rounds = 0;
    for (const SampleTrack& track : tracks) {
        rounds = std::max(rounds, (track.samples.size() + track.samples_a_chunk - 1) / track.samples_a_chunk);
    }
    const auto samples_of = [&tracks](std::size_t track, std::size_t round) {
        const auto& all = tracks[track].samples;
        const std::size_t begin = std::min(round * tracks[track].samples_a_chunk, all.size());
        const std::size_t end = std::min(begin + tracks[track].samples_a_chunk, all.size());
        return std::span(all).subspan(begin, end - begin);
    };
    if (!fragmented) {
        out.begin("mdat");
        for (std::size_t round = 0; round < rounds; ++round) {
            for (std::size_t i = 0; i < tracks.size(); ++i) {
                const auto samples = samples_of(i, round);
                if (!samples.empty()) chunks[i].push_back(static_cast<std::uint64_t>(out.size()));
                for (const auto& sample : samples) text(sample.data);
            }
            text("junk");
        }
        out.end();
    }
    out.begin("moov");
    out.begin_full("mvhd", 0, 0);
    zeros(8);
    out.put(1000, 4);
    zeros(84);
    out.end();
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const SampleTrack& track = tracks[i];
        const auto samples = fragmented ? std::span<const SampleTrack::Sample>() : std::span(track.samples);
        out.begin("trak");
        out.begin_full("tkhd", 0, 3);
        zeros(8);
        out.put(i + 1, 4);
        zeros(68);
        out.end();
        if (!track.edits.empty()) {
            out.begin("edts");
            out.begin_full("elst", 0, 0);
            out.put(track.edits.size(), 4);
            for (const EditSpan& edit : track.edits) {
                out.put(static_cast<std::uint64_t>(edit.duration), 4);
                out.put(static_cast<std::uint64_t>(edit.media_time), 4);
                out.put(0x10000, 4);
            }
            out.end();
            out.end();
        }
        out.begin("mdia");
        out.begin_full("mdhd", 0, 0);
        zeros(8);
        out.put(track.timescale, 4);
        zeros(8);
        out.end();
        out.begin_full("hdlr", 0, 0);
        zeros(4);
        text(track.kind);
        zeros(13);
        out.end();
        out.begin("minf");
        out.begin("stbl");
        out.begin_full("stsd", 0, 0);
        out.put(1, 4);
        out.begin(track.format);
        zeros(6);
        out.put(1, 2);
        text(track.configuration);
        out.end();
        out.end();
        out.begin_full("stts", 0, 0);
        out.put(samples.size(), 4);
        for (const auto& sample : samples) {
            out.put(1, 4);
            out.put(sample.duration, 4);
        }
        out.end();
        out.begin_full("ctts", 1, 0);
        out.put(samples.size(), 4);
        for (const auto& sample : samples) {
            out.put(1, 4);
            out.put(static_cast<std::uint32_t>(sample.composition), 4);
        }
        out.end();
        std::vector<std::uint64_t> sync;
        for (std::size_t k = 0; k < samples.size(); ++k) {
            if (samples[k].sync) sync.push_back(k + 1);
        }
        if (sync.size() != samples.size()) {
            out.begin_full("stss", 0, 0);
            out.put(sync.size(), 4);
            for (const std::uint64_t number : sync) out.put(number, 4);
            out.end();
        }
        out.begin_full("stsc", 0, 0);
        out.put(1, 4);
        out.put(1, 4);
        out.put(track.samples_a_chunk, 4);
        out.put(1, 4);
        out.end();
        out.begin_full("stsz", 0, 0);
        out.put(0, 4);
        out.put(samples.size(), 4);
        for (const auto& sample : samples) out.put(sample.data.size(), 4);
        out.end();
        out.begin_full("stco", 0, 0);
        out.put(chunks[i].size(), 4);
        for (const std::uint64_t offset : chunks[i]) out.put(offset, 4);
        for (int level = 0; level < 5; ++level) out.end();  // up to the track
    }
    if (fragmented) {
        out.begin("mvex");
        for (std::size_t i = 0; i < tracks.size(); ++i) {
            out.begin_full("trex", 0, 0);
            out.put(i + 1, 4);
            out.put(1, 4);
            zeros(12);
            out.end();
        }
        out.end();
    }
    out.end();
    std::vector<std::uint64_t> times;
    for (const SampleTrack& track : tracks) times.push_back(track.begin);
    for (std::size_t round = 0; fragmented && round < rounds; ++round) {
        // Built twice: the first time tells how far away the data is.
        std::uint64_t size = 0;
        for (const bool final : {false, true}) {
            BoxBuilder moof;
            std::uint64_t data = size + 8;
            auto now = times;
            moof.begin("moof");
            for (std::size_t i = 0; i < tracks.size(); ++i) {
                const auto samples = samples_of(i, round);
                if (samples.empty()) continue;
                moof.begin("traf");
                moof.begin_full("tfhd", 0, 0x020000);
                moof.put(i + 1, 4);
                moof.end();
                moof.begin_full("tfdt", 1, 0);
                moof.put(now[i], 8);
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
                    now[i] += sample.duration;
                }
                moof.end();
                moof.end();
            }
            moof.end();
            size = static_cast<std::uint64_t>(moof.size());
            if (!final) continue;
            times = now;
            out.copy(moof.bytes());
            out.begin("mdat");
            for (std::size_t i = 0; i < tracks.size(); ++i) {
                for (const auto& sample : samples_of(i, round)) text(sample.data);
            }
            out.end();
        }
    }
    return {reinterpret_cast<const char*>(out.bytes().data()), out.bytes().size()};
}

}  // namespace vantlow::test
