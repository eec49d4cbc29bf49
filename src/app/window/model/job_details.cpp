#include "app/window/model/job_details.h"

#include <algorithm>
#include <utility>

#include "app/process/ending.h"
#include "app/process/job_view.h"
#include "app/terminal/display_text.h"
#include "app/window/model/job_columns.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/model/troubles.h"
#include "base/codes.h"
#include "base/text.h"

namespace vantlow {
namespace {

// The ranges of a file with these missing parts; what lies between them is there.
class RangeMaker {
  public:
    explicit RangeMaker(std::int64_t size) : size_(size) {}
    void missing(std::int64_t start, std::int64_t end, int worker) {
        start = std::clamp(start, at_, size_);
        end = std::clamp(end, start, size_);
        put(start, SegmentState::done, 0);
        put(end, worker != 0 ? SegmentState::working : SegmentState::missing, worker);
    }
    std::vector<SegmentRange> take() {
        put(size_, SegmentState::done, 0);
        return std::move(ranges_);
    }

  private:
    void put(std::int64_t end, SegmentState state, int worker) {
        if (end > at_) ranges_.push_back({at_, end - at_, state, worker});
        at_ = std::max(at_, end);
    }
    std::int64_t size_;
    std::int64_t at_ = 0;
    std::vector<SegmentRange> ranges_;
};

std::string digest_text(const ExpectedHash& hash) {
    return to_hex(hash.digest);
}

}  // namespace

void JobDetails::show(const Guid& job) {
    if (job == job_) return;
    job_ = job;
    meters_.clear();
    connections_.clear();
    log_.clear();
    if (!job.is_zero()) {
        std::vector<CLogNode> lines = engine_.log_of(job);
        const std::size_t first = lines.size() - std::min(lines.size(), most_lines);
        log_.assign(lines.begin() + static_cast<std::ptrdiff_t>(first), lines.end());
    }
    ++log_revision_;
    ++log_begins_;
}

std::vector<DetailLine> JobDetails::lines() const {
    std::vector<DetailLine> lines;
    const CJobNode* const job = engine_.find(job_);
    if (job == nullptr) return lines;
    const JobView view(engine_, *job);
    const RowFacts facts = facts_of(*job, engine_, live_);
    const auto add = [&lines](std::string label, std::string value) {
        if (!value.empty()) lines.push_back({std::move(label), std::move(value)});
    };
    for (const Column column : {Column::name, Column::folder, Column::address, Column::state, Column::trouble,
                                Column::size, Column::done, Column::speed, Column::left, Column::category,
                                Column::kind, Column::added, Column::finished, Column::comment}) {
        add(tr(facts_of(column).title), facts.cell(column));
        if (column == Column::trouble)
            add(tr("What helps"),
                advice_on(facts.live != nullptr ? facts.live->waits : JobView::error_of(*job)));
    }
    if (view.move) add(tr("Moving to"), shown(view.move->to));
    if (!view.last_move.ok()) add(tr("Not moved"), sentence_of(view.last_move));
    if (job->sources) {
        for (std::size_t i = 1; i < job->sources->mirrors.size(); ++i)
            add(tr("Mirror"), shown(without_credentials(job->sources->mirrors[i])));
        if (job->sources->whole) add(tr("Hash"), digest_text(*job->sources->whole));
    }
    add(tr("Connections"), std::to_string(job->thread_limit()));
    if (const auto next = engine_.next_action_of(*job)) {
        const std::string at = moment_text(next->at);
        add(tr("Schedule"), next->action == schedule_action::start ? fill(tr("starts %1"), {at})
                                                                   : fill(tr("stops %1"), {at}));
    }
    if (job->rules && job->rules->speed_limit > 0)
        add(tr("Speed limit"), speed_text(static_cast<double>(job->rules->speed_limit)));
    add(tr("User name"), shown(job->user));
    add(tr("Referer"), shown(without_credentials(job->referer)));
    add(tr("Agent"), shown(job->agent));
    add(tr("Proxy"), shown(without_credentials(job->proxy)));
    add(tr("Media type"), printable(job->validators.media_type));
    add("ETag", printable(job->validators.etag));
    add(tr("Last modified"), printable(job->validators.last_modified));
    add(tr("Identity"), guid_text(job->identity));
    return lines;
}

void JobDetails::look(Time now) {
    connections_.clear();
    for (auto& [number, meter] : meters_) meter.seen = false;
    for (SessionConnection& one : engine_.connections(job_)) {
        ConnectionLine line{one.number, printable(one.peer), 0, {}, one.start, one.end};
        line.state = one.works             ? tr("receives")
                     : one.trouble.empty() ? tr("waits")
                                           : trouble_text(one.trouble);
        if (one.number != 0) {
            Meter& meter = meters_[one.number];
            // A connection that took over another range has not received what lies between.
            const bool same = meter.end >= one.end && one.start >= meter.position;
            if (same && meter.end != 0) meter.received += one.start - meter.position;
            meter.position = one.start;
            meter.end = one.end;
            meter.seen = true;
            line.speed = meter.speed.update(meter.received, now);
        }
        connections_.push_back(std::move(line));
    }
    std::erase_if(meters_, [](const auto& one) { return !one.second.seen; });
}

std::string JobDetails::connections_note() const {
    if (!connections_.empty()) return {};
    const CJobNode* const job = engine_.find(job_);
    if (job == nullptr) return tr("No download is selected.");
    const auto* const live = live_.find(*job);
    const std::string reason = live != nullptr ? live->waits : JobView::error_of(*job);
    const std::string advice = advice_on(reason);
    const std::string state =
        live != nullptr && !reason.empty() ? trouble_text(reason) : rest_sentence(job->state);
    return advice.empty() ? state : state + (state.ends_with('.') ? " " : ". ") + advice;
}

std::vector<SegmentRange> JobDetails::ranges() const {
    const CJobNode* const job = engine_.find(job_);
    if (job == nullptr) return {};
    const JobView view(engine_, *job);
    if (view.size() <= 0) return {};
    RangeMaker maker(view.size());
    if (view.progress) {
        for (const auto& missing : view.progress->missing)
            maker.missing(missing.start, missing.end, missing.worker);
    } else if (job->state != JobState::finished && job->segments.empty()) {
        maker.missing(0, view.size(), 0);
    } else if (job->state != JobState::finished) {
        for (const auto& segment : job->segments) maker.missing(segment->start, segment->end, 0);
    }
    return maker.take();
}

std::vector<SegmentCell> JobDetails::picture(std::size_t cells) const {
    return picture_of(ranges(), cells);
}

std::vector<SegmentCell> picture_of(const std::vector<SegmentRange>& ranges, std::size_t cells) {
    if (ranges.empty()) return {};
    const std::int64_t size = ranges.back().offset + ranges.back().length;
    cells = static_cast<std::size_t>(std::min<std::int64_t>(static_cast<std::int64_t>(cells), size));
    std::vector<SegmentCell> picture(cells);
    const auto border = [&](std::size_t cell) {
        return static_cast<std::int64_t>(static_cast<long double>(size) * static_cast<long double>(cell) /
                                         static_cast<long double>(cells));
    };
    std::size_t range = 0;
    for (std::size_t cell = 0; cell < cells; ++cell) {
        const std::int64_t begin = border(cell);
        const std::int64_t end = border(cell + 1);
        std::int64_t done = 0;
        for (std::size_t at = range; at < ranges.size() && ranges[at].offset < end; ++at) {
            const SegmentRange& one = ranges[at];
            const std::int64_t to = std::min(end, one.offset + one.length);
            const std::int64_t bytes = to - std::max(begin, one.offset);
            if (one.state == SegmentState::done) done += bytes;
            if (one.state == SegmentState::working) {
                picture[cell].state = SegmentState::working;
                picture[cell].worker = one.worker;
            }
            if (one.offset + one.length <= end) range = at + 1;
        }
        picture[cell].filled = static_cast<std::uint8_t>(end > begin ? done * 100 / (end - begin) : 0);
        if (picture[cell].state != SegmentState::working && 2 * done > end - begin)
            picture[cell].state = SegmentState::done;
    }
    return picture;
}

void JobDetails::logged(const std::vector<LogLine>& lines) {
    const std::uint64_t before = log_revision_;
    for (const LogLine& line : lines) {
        if (line.job != job_ || job_.is_zero()) continue;
        log_.push_back(line.line);
        log_revision_ = before + 1;
    }
    if (log_.size() <= most_lines) return;
    log_.erase(log_.begin(), log_.end() - static_cast<std::ptrdiff_t>(most_lines));
    ++log_begins_;
}

std::vector<std::size_t> JobDetails::find_in_log(std::string_view text) const {
    std::vector<std::size_t> found;
    const std::u16string needle = folded(to_utf16(text));
    for (std::size_t i = 0; i < log_.size(); ++i) {
        if (holds_folded(to_utf16(log_[i].text), needle)) found.push_back(i);
    }
    return found;
}

std::string JobDetails::log_note(bool is_searched) const {
    if (engine_.find(job_) == nullptr) return tr("No download is selected.");
    if (log_.empty()) return tr("Nothing has been logged yet.");
    return is_searched ? tr("No line holds these words.") : std::string();
}

std::string JobDetails::log_text_of(const CLogNode& line) {
    return clock_text(line.time) + " " + std::string(log_mark(line.direction)) + printable(line.text);
}

}  // namespace vantlow
