// Everything about the selected job: lines, connections, the picture of its segments, its log.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "app/process/live_jobs.h"
#include "app/terminal/speed_meter.h"
#include "engine/engine.h"

namespace vantlow {

/// A line of the details; the value is what a key copies.
struct DetailLine {
    std::string label;
    std::string value;
    bool operator==(const DetailLine&) const = default;
};

struct ConnectionLine {
    int number = 0;      ///< of the connection, as in segments; 0: it has no range
    std::string server;  ///< without credentials
    double speed = 0;    ///< bytes a second
    std::string state;   ///< in the user's language
    std::int64_t start = 0;
    std::int64_t end = 0;
};

enum class SegmentState : std::uint8_t { missing, working, done };

/// A range of the file, in file order; ranges cover the whole file without gaps.
struct SegmentRange {
    std::int64_t offset = 0;
    std::int64_t length = 0;
    SegmentState state = SegmentState::missing;
    int worker = 0;  ///< number of the connection that works on it; 0: none
};

/// One cell of the picture: what most of its bytes are, except that a range in work is never hidden.
struct SegmentCell {
    SegmentState state = SegmentState::missing;
    int worker = 0;
    std::uint8_t filled = 0;  ///< per cent of its bytes that are there
};

/// Belongs to the engine's thread.
class JobDetails {
  public:
    using Time = std::chrono::steady_clock::time_point;

    JobDetails(Engine& engine, const LiveJobs& live) : engine_(engine), live_(live) {}
    /// Zero: no job. Reads the job's log.
    void show(const Guid& job);
    [[nodiscard]] const Guid& job() const noexcept { return job_; }

    [[nodiscard]] std::vector<DetailLine> lines() const;
    /// The connections, with speeds measured between calls of look().
    [[nodiscard]] const std::vector<ConnectionLine>& connections() const noexcept { return connections_; }
    /// A sentence why there are none; empty while there are.
    [[nodiscard]] std::string connections_note() const;
    /// Empty while the size is not known.
    [[nodiscard]] std::vector<SegmentRange> ranges() const;
    /// The picture in `cells` cells, fewer where the file has fewer bytes.
    [[nodiscard]] std::vector<SegmentCell> picture(std::size_t cells) const;
    /// To be called some times a second while the panes are seen.
    void look(Time now);

    /// The last lines of the job's log (most_lines), oldest first.
    [[nodiscard]] const std::deque<CLogNode>& log() const noexcept { return log_; }
    /// Grows when lines were added; `log_begins` when old ones went or another job is shown.
    [[nodiscard]] std::uint64_t log_revision() const noexcept { return log_revision_; }
    [[nodiscard]] std::uint64_t log_begins() const noexcept { return log_begins_; }
    /// The lines that hold the text, letter case ignored, by their index in log().
    [[nodiscard]] std::vector<std::size_t> find_in_log(std::string_view text) const;
    /// A sentence why there are no lines, or none of those that are searched; empty while there are.
    [[nodiscard]] std::string log_note(bool is_searched) const;
    /// A line as it is shown and copied: time, mark, text.
    static std::string log_text_of(const CLogNode& line);
    static constexpr std::size_t most_lines = 5000;

    /// New lines of logs; those of other jobs are passed over.
    void logged(const std::vector<LogLine>& lines);

  private:
    struct Meter {
        SpeedMeter speed;
        std::int64_t received = 0;
        std::int64_t position = 0;
        std::int64_t end = 0;
        bool seen = false;
    };
    Engine& engine_;
    const LiveJobs& live_;
    Guid job_;
    std::map<int, Meter> meters_;
    std::vector<ConnectionLine> connections_;
    std::deque<CLogNode> log_;
    std::uint64_t log_revision_ = 0;
    std::uint64_t log_begins_ = 0;
};

/// The picture of ranges in `cells` cells.
std::vector<SegmentCell> picture_of(const std::vector<SegmentRange>& ranges, std::size_t cells);

}  // namespace vantlow
