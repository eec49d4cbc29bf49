#include "transfer/job/sub_thread.h"

#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::size_t kib = 1024;
// Received bytes are handed to the file at least this often: together with the second between two saves of
// the positions, what a kill costs.
constexpr std::chrono::milliseconds flush_interval{250};
constexpr std::chrono::milliseconds measure_interval{250};
// So many measures make a speed that others are compared with; a connection that stands still has one too.
constexpr int settling_measures = 4;
// From one protocol to another: more often than this is no way to a file.
constexpr int most_moves = 3;
// How much of a joint is compared at once.
constexpr std::size_t joint_step = 16 * kib;

}  // namespace

CTransferSubThread::CTransferSubThread(SubThreadHost& host, const SubThreadTools& tools)
    : host_(host), tools_(tools), stop_(tools.job_stop), share_(tools.settings, tools.services.sets) {
    tools_.services.sets.transfers.add(node_);
}

CTransferSubThread::~CTransferSubThread() {
    join();
    tools_.services.sets.transfers.remove(node_);
}

Result CTransferSubThread::start() {
    return tools_.threads.start(thread_, [this] { run(); });
}

void CTransferSubThread::join() {
    thread_.join();
}

void CTransferSubThread::begin_at(std::int64_t position, std::int64_t end) noexcept {
    gathered_ = 0;
    past_end_.clear();
    segment_start_ = best_ = position;
    position_.store(position, std::memory_order_relaxed);
    limit_.store(end, std::memory_order_relaxed);
}

void CTransferSubThread::run() {
    Result last;
    while (segment != nullptr || host_.take_work(*this)) {
        // The range that was asked for is open-ended: when the next segment begins where the last one ended,
        // the answer simply goes on. Unless some of that was read already, to compare it.
        if (source_ && position() != answer_at_) close_source(false);
        last = run_segment();
        if (last.ok()) {
            tools_.log.line(Direction::note, message(Message::finished_at, {position()}));
            finished_one = true;
            closing_ = true;
            if (host_.release(*this)) break;
            closing_ = false;
            const auto pause = tools_.settings.number(setting::suspend_interval);
            if (stop_.wait_for(std::chrono::milliseconds(pause))) break;
            continue;
        }
        close_source(true);
        if (!try_again(last)) break;
    }
    if (stop_.requested() && segment != nullptr) {
        tools_.log.line(Direction::note, message(Message::cancelled_at, {position()}));
    }
    close_source(!last.ok());
    gather_.release();
    if (tools_.libraries.secur.SSL_Thread_Exit != nullptr) tools_.libraries.secur.SSL_Thread_Exit();
    closing_ = false;
    if (segment != nullptr) host_.release(*this);
    host_.ended(*this, last);
}

void CTransferSubThread::close_source(bool reset) {
    node_.active = false;
    speed_ = 0;
    if (!source_) return;
    if (!reset) source_->close();
    source_.reset();
    node_.connections = 0;
}

// What the job decided after a failure; true when the segment is to be tried again.
bool CTransferSubThread::try_again(const Result& result) {
    FailedAttempt attempt;
    attempt.result = result;
    attempt.asked = asked_;
    attempt.accepted = accepted_;
    attempt.progressed = position() > best_;
    attempt.segment_untouched = position() <= segment_start_ && best_ <= segment_start_;
    best_ = std::max(best_, position());
    fruitless_ = attempt.progressed ? 0 : fruitless_ + 1;
    attempt.fruitless = fruitless_;
    attempt.errors = result.code == Code::joint_unsure ? errors_ : ++errors_;
    attempt.server_asks = server_asks_;
    attempt.told_size = told_size_;
    const AfterFailure after = host_.after_failure(*this, attempt);
    if (!after.again) return false;
    if (after.announced) {
        const auto seconds = std::chrono::ceil<std::chrono::seconds>(after.wait).count();
        tools_.log.line(Direction::note,
                        message(Message::awaiting_retry, {static_cast<std::int64_t>(seconds)}));
    }
    return !stop_.wait_for(after.wait);
}

Result CTransferSubThread::run_segment() {
    accepted_ = source_ != nullptr;
    if (limit() <= position()) return {};  // the rest was given to others meanwhile
    if (!source_) {
        if (Result result = open_source(); !result.ok()) return result;
    }
    const std::int64_t wanted = tools_.settings.number(setting::data_buffer) * static_cast<std::int64_t>(kib);
    gather_.resize(static_cast<std::size_t>(std::clamp<std::int64_t>(limit() - position(), 1, wanted)));
    node_.active = true;
    const auto began = measured_ = flushed_ = Clock::now();
    const std::int64_t began_at = position();
    measured_bytes_ = 0;
    settled_ = false;
    measures_ = 0;
    Result result = receive();
    node_.active = false;
    const double seconds = std::max(std::chrono::duration<double>(Clock::now() - began).count(), 0.001);
    segment_speed_ = static_cast<std::int64_t>(static_cast<double>(position() - began_at) / seconds);
    return result;
}

// Asks at the plan's address, and where another protocol is to be asked, there.
Result CTransferSubThread::open_at(SourcePlan plan, SourceAnswer& answer) {
    for (int moves = 0; moves <= most_moves; ++moves) {
        const Protocol* protocol = find_protocol(plan.address);
        if (protocol == nullptr) return {Code::unsupported, why_not_fetched(plan.address)};
        node_.connections = 1;
        source_ = protocol->make({tools_.services, tools_.libraries, tools_.log, stop_, &share_});
        Result result = source_->open(plan, asked_, answer);
        if (result.code != Code::moved) return result;
        plan.address = answer.address;
        answer = {};
    }
    return Code::moved;
}

Result CTransferSubThread::open_source() {
    const SourcePlan plan = host_.plan(*this);
    silence_ = plan.silence;
    server_asks_.reset();
    told_size_ = -1;
    const std::int64_t overlap = host_.overlap_before(*this);
    asked_ = position() - overlap;
    SourceAnswer answer;
    Result result = open_at(plan, answer);
    beyond_end_ = answer.beyond_end;
    may_go_on_ = answer.may_go_on;
    if (!result.ok() && !source_) return result;
    if (!result.ok()) {
        server_asks_ = source_->retry_after();
        if (result.code == Code::range_ignored) told_size_ = answer.version.size;
        return result;
    }
    result = host_.response_accepted(*this, answer, asked_);
    if (!result.ok()) return result;
    accepted_ = true;
    answer_at_ = answer.granted;
    answered_from_ = position();
    tools_.log.line(Direction::note, message_text(Message::start_receiving));
    return position() > asked_ && answer.granted == asked_ ? compare(asked_, position() - asked_) : Result{};
}

// The answer ended, and nobody has told where the resource does: whether anything is behind a part is asked.
Result CTransferSubThread::ask_for_more(bool& there_is) {
    there_is = false;
    // An answer that gave nothing new had nothing more to give.
    if (!may_go_on_ || position() == answered_from_) return {};
    close_source(false);
    Result result = open_source();
    there_is = result.ok();
    node_.active = there_is;
    const bool is_end = beyond_end_ && asked_ == position() && (told_size_ < 0 || told_size_ == asked_);
    return is_end ? Result{} : result;
}

// Fetches bytes that are in the file already and compares: the joint of two answers that no validator holds
// together.
Result CTransferSubThread::compare(std::int64_t offset, std::int64_t bytes) {
    std::vector<std::byte> fetched(joint_step);
    auto quiet_until = from_now(silence_);
    while (bytes > 0) {
        const auto most =
            static_cast<std::size_t>(std::min<std::int64_t>(bytes, static_cast<std::int64_t>(joint_step)));
        const Moved moved = source_->read(std::span(fetched).first(most), quiet_until);
        if (moved.state != Moved::State::data) return moved_failure(moved);
        answer_at_ += static_cast<std::int64_t>(moved.bytes);
        if (Result result = hold_against_file(offset, std::span(fetched).first(moved.bytes)); !result.ok())
            return result;
        offset += static_cast<std::int64_t>(moved.bytes);
        bytes -= static_cast<std::int64_t>(moved.bytes);
        quiet_until = from_now(silence_);
    }
    return {};
}

// The joint with the next segment. Where that one's first bytes are on their way they are waited for: nobody
// would look at the joint later. One that stays silent is asked for anew, and compares with what is in front
// of it.
Result CTransferSubThread::compare_behind() {
    constexpr std::chrono::milliseconds step{20};
    const auto until = from_now(silence_);
    std::int64_t behind = host_.overlap_behind(*this);
    while (behind < 0 && Clock::now() < until) {
        if (stop_.wait_for(step)) return stop_.reason();
        behind = host_.overlap_behind(*this);
    }
    // What came before the part was cut lies behind its end already.
    const auto here = std::min<std::int64_t>(behind, static_cast<std::int64_t>(past_end_.size()));
    if (here > 0) {
        if (Result result =
                hold_against_file(limit(), std::span(past_end_).first(static_cast<std::size_t>(here)));
            !result.ok())
            return result;
    }
    return compare(limit() + here, behind - here);
}

Result CTransferSubThread::hold_against_file(std::int64_t offset, std::span<const std::byte> fetched) {
    std::vector<std::byte> stored(fetched.size());
    if (Result result = host_.file().read(offset, stored); !result.ok()) return result;
    if (std::ranges::equal(fetched, stored)) return {};
    return {Code::resource_changed,
            "The bytes around " + std::to_string(offset) + " differ from those received before."};
}

Result CTransferSubThread::moved_failure(const Moved& moved) const {
    switch (moved.state) {
        case Moved::State::quiet:
            return {Code::transient, std::string(message_text(Message::timeout))};
        case Moved::State::closed:
            return {Code::transient, "The server closed the connection early."};
        case Moved::State::data:
            return {};
        case Moved::State::failed:
            break;
    }
    if (moved.why != nullptr) return {moved.code, moved.why};
    if (moved.code != Code::transient) return moved.code;
    if (moved.system_error == 0) return {Code::transient, "The server closed the connection early."};
    return socket_failure(moved.system_error);
}

void CTransferSubThread::measure(std::size_t bytes, Clock::time_point now) {
    measured_bytes_ += static_cast<std::int64_t>(bytes);
    if (now - measured_ < measure_interval) return;
    const double seconds = std::chrono::duration<double>(now - measured_).count();
    const auto speed = static_cast<std::int64_t>(static_cast<double>(measured_bytes_) / seconds);
    const std::int64_t before = speed_.load(std::memory_order_relaxed);
    speed_.store(measures_ == 0 ? speed : (before + speed) / 2, std::memory_order_relaxed);
    settled_ = ++measures_ >= settling_measures;
    measured_ = now;
    measured_bytes_ = 0;
}

Result CTransferSubThread::receive() {
    auto last_data = Clock::now();
    for (;;) {
        const std::int64_t left = limit() - position();
        if (left <= 0) {
            if (Result result = flush(); !result.ok()) return result;
            // All of the segment is there; only bytes that contradict its neighbour's are news now.
            Result joint = compare_behind();
            return joint.code == Code::resource_changed ? joint : Result{};
        }
        const std::size_t room = gather_.size() - gathered_;
        const auto most =
            static_cast<std::size_t>(std::min<std::int64_t>(left, static_cast<std::int64_t>(room)));
        const auto until = std::min(last_data + silence_, flushed_ + flush_interval);
        const Moved moved = source_->read(gather_.bytes().subspan(gathered_, most), until);
        const auto now = Clock::now();
        measure(moved.bytes, now);
        if (moved.state == Moved::State::data) {
            last_data = now;
            gathered_ += moved.bytes;
            answer_at_ += static_cast<std::int64_t>(moved.bytes);
            host_.count_received(static_cast<std::int64_t>(moved.bytes));
            position_.fetch_add(static_cast<std::int64_t>(moved.bytes), std::memory_order_relaxed);
        }
        // Half full is enough: a read into the small rest of a buffer costs the system as much as a large
        // one.
        if (gathered_ >= gather_.size() / 2 || now - flushed_ >= flush_interval) {
            if (Result result = flush(); !result.ok()) return result;
        }
        const bool still_quiet = moved.state == Moved::State::quiet && now < last_data + silence_;
        if (moved.state == Moved::State::data || still_quiet) continue;
        if (Result result = flush(); !result.ok()) return result;
        if (moved.state == Moved::State::closed && limit() == unknown_end) {
            bool goes_on = false;
            if (Result result = ask_for_more(goes_on); !result.ok()) return result;
            last_data = Clock::now();
            if (goes_on) continue;
            host_.end_found(*this);
            return {};
        }
        Result failure = moved_failure(moved);
        if (failure.kind() != Kind::stopped) tools_.log.line(Direction::error, failure.message());
        return failure;
    }
}

// Hands what was gathered to the file. The segment may have been cut meanwhile: what lies behind its end
// belongs to another connection.
Result CTransferSubThread::flush() {
    flushed_ = Clock::now();
    const std::int64_t offset = position() - static_cast<std::int64_t>(gathered_);
    const std::int64_t end = limit();
    const std::int64_t bytes = std::min(static_cast<std::int64_t>(gathered_), end - offset);
    if (position() > end && offset <= end) {
        const auto behind = gather_.bytes().first(gathered_).subspan(static_cast<std::size_t>(end - offset));
        past_end_.assign(behind.begin(), behind.end());
    }
    gathered_ = 0;
    if (bytes <= 0) return {};
    host_.delivered(*this, offset, bytes);
    return host_.file().write(offset, gather_.bytes().first(static_cast<std::size_t>(bytes)));
}

}  // namespace vantlow
