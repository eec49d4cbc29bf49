#include "transfer/job/sub_thread.h"

#include <algorithm>
#include <utility>

#include "base/string_table.h"
#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::size_t kib = 1024;
// Received bytes are handed to the file at least this often: together with the second between two saves of
// the positions, that is the most that a kill costs.
constexpr std::chrono::milliseconds flush_interval{250};
constexpr std::chrono::milliseconds measure_interval{250};
// So many measures make a speed that others are compared with; a connection that stands still has one too.
constexpr int settling_measures = 4;
// An address may lead from one protocol to another so often; more is no way to a file.
constexpr int most_moves = 3;
// So many bytes of a joint are compared at once.
constexpr std::size_t joint_step = 16 * kib;
// The way past memory: taken where a read brought so much, left again where so many in a row bring a quarter
// of it.
constexpr std::size_t bulk = 64 * kib;
constexpr int most_small_moves = 8;
constexpr std::int64_t most_in_conduit = 1024 * kib;

}  // namespace

CTransferSubThread::CTransferSubThread(SubThreadHost& host, const SubThreadTools& tools)
    : host_(host), tools_(tools), stop_(tools.job_stop), node_(tools.pace.limits(), tools.pace.group()) {}

CTransferSubThread::~CTransferSubThread() {
    join();
}

Result CTransferSubThread::start() {
    return tools_.threads.start(thread_, [this] { run(); });
}

void CTransferSubThread::join() {
    thread_.join();
}

void CTransferSubThread::run() {
    Result last;
    while (worker_.has_work() || host_.take_work(*this)) {
        // The range that was asked for is open-ended: where the next work lies on the way of the open answer,
        // that simply goes on.
        if (source_ && !worker_.keeps_answer) close_source(false);
        last = worker_.check ? run_check() : run_segment();
        if (last.ok()) {
            bool is_complete = false;
            if (!finish_work(is_complete) || is_complete) break;
            continue;
        }
        close_source(true);
        if (!try_again(last)) break;
    }
    if (stop_.requested() && worker_.segment != nullptr) {
        tools_.log.line(Direction::note, message(Message::cancelled_at, {position()}));
    }
    close_source(!last.ok());
    gather_.release();
    if (tools_.libraries.secur.SSL_Thread_Exit != nullptr) tools_.libraries.secur.SSL_Thread_Exit();
    closing_ = false;
    if (worker_.has_work()) host_.release(*this, -1, false);
    host_.ended(*this, last);
}

// Gives back what is done; false when the thread is to end.
bool CTransferSubThread::finish_work(bool& is_complete) {
    if (worker_.segment != nullptr) {
        tools_.log.line(Direction::note, message(Message::finished_at, {position()}));
        worker_.finished_one = true;
    }
    closing_ = true;
    worker_.bytes_per_second = 0;
    const bool is_open = source_ && open_offset() == position();
    is_complete = host_.release(*this, is_open ? position() : -1, true);
    if (is_complete) return true;
    closing_ = false;
    const auto pause = tools_.settings.number(setting::suspend_interval);
    return !stop_.wait_for(std::chrono::milliseconds(pause));
}

void CTransferSubThread::close_source(bool reset) {
    worker_.bytes_per_second = 0;
    held_.clear();
    if (!source_) return;
    if (!reset) source_->close();
    source_.reset();
}

// Asks the job what becomes of a failure, and waits as it says; true when the segment is to be tried again.
bool CTransferSubThread::try_again(const Result& result) {
    FailedAttempt attempt;
    attempt.result = result;
    attempt.asked = asked_;
    attempt.accepted = accepted_;
    attempt.progressed = worker_.segment != nullptr && position() > worker_.furthest;
    worker_.furthest = std::max(worker_.furthest, position());
    fruitless_ = attempt.progressed ? 0 : fruitless_ + 1;
    attempt.fruitless = fruitless_;
    attempt.server_asks = server_asks_;
    attempt.told_size = told_size_;
    attempt.form_sent = form_sent_;
    attempt.address = asked_at_;
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
    gathered_ = 0;
    if (limit() <= position()) return {};  // the rest was given to others meanwhile
    Result opened = source_ ? read_through() : open_source();
    if (!opened.ok()) return opened;
    const std::int64_t wanted = tools_.settings.number(setting::data_buffer) * static_cast<std::int64_t>(kib);
    gather_size_ = static_cast<std::size_t>(std::clamp<std::int64_t>(limit() - position(), 1, wanted));
    flushed_ = Clock::now();
    const auto began = measured_ = time().now();
    const std::int64_t began_at = position();
    measured_bytes_ = 0;
    worker_.settled = false;
    measures_ = 0;
    Result result = receive();
    const double seconds = std::max(std::chrono::duration<double>(time().now() - began).count(), 0.001);
    segment_speed_ = static_cast<std::int64_t>(static_cast<double>(position() - began_at) / seconds);
    return result;
}

Result CTransferSubThread::run_check() {
    accepted_ = false;
    segment_speed_ = 0;
    const std::int64_t begin = worker_.check->begin;
    const std::int64_t end = worker_.check->end;
    if (Result result = ask(begin); !result.ok()) return result;
    Result result = worker_.check->only_version ? Result() : compare(begin, end - begin);
    close_source(false);
    return result;
}

// The open answer reads on to the segment, through bytes that others fetched: those that are there are
// compared. What agrees from one gap to the next is told at once, where all of it does.
Result CTransferSubThread::read_through() {
    std::vector<std::byte> passed(joint_step);
    auto quiet_until = from_now(silence_);
    std::int64_t alike_from = -1;
    const auto tell = [&](std::int64_t end) {
        const std::int64_t begin = std::exchange(alike_from, -1);
        if (begin >= 0) host_.agreed(worker_, begin, end, false);
    };
    while (open_offset() < position()) {
        const std::int64_t offset = open_offset();
        const auto most = std::min<std::int64_t>(position() - offset, static_cast<std::int64_t>(joint_step));
        const Moved moved = read_on(std::span(passed).first(static_cast<std::size_t>(most)), quiet_until);
        if (moved.state != Moved::State::data) return moved_failure(moved);
        quiet_until = from_now(silence_);
        if (!host_.is_there(offset, open_offset())) {
            tell(offset);
            continue;
        }
        const auto bytes = std::span(passed).first(moved.bytes);
        bool is_alike = false;
        if (Result result = hold_against_file(offset, bytes, is_alike); !result.ok()) return result;
        if (!is_alike) alike_from = -1;
        if (is_alike && alike_from < 0) alike_from = offset;
    }
    tell(open_offset());
    return {};
}

// Asks at the plan's address, and where another protocol is to be asked, there.
Result CTransferSubThread::open_at(SourcePlan plan, SourceAnswer& answer) {
    node_.set_active(false);  // an answer's head is no download: a low limit would make it a time-out
    for (int moves = 0; moves <= most_moves; ++moves) {
        const Protocol* protocol = find_protocol(plan.address);
        if (protocol == nullptr) return {Code::unsupported, why_not_fetched(plan.address)};
        source_ = protocol->make({tools_.services, tools_.libraries, tools_.log, stop_, &node_});
        Result result = source_->open(plan, asked_, answer);
        asked_at_ = answer.address.empty() ? plan.address : answer.address;
        node_.set_active(result.ok());
        if (result.code != Code::moved) return result;
        plan.address = answer.address;
        const bool form_sent = answer.form_sent;
        answer = {};
        answer.form_sent = form_sent;
    }
    return Code::moved;
}

Result CTransferSubThread::open_source() {
    const std::int64_t at = position();
    if (Result result = ask(at - host_.overlap_before(worker_)); !result.ok()) return result;
    // The whole may have come instead, which begins anew.
    const bool is_overlap = position() == at && asked_ < at && answer_at_ == asked_;
    return is_overlap ? compare(asked_, at - asked_) : Result{};
}

// Asks for the bytes from `offset` on.
Result CTransferSubThread::ask(std::int64_t offset) {
    SourcePlan plan = host_.plan(worker_);
    plan.only_version = worker_.check && worker_.check->only_version;
    silence_ = plan.silence;
    server_asks_.reset();
    told_size_ = -1;
    asked_ = offset;
    if (form_sent_) return {Code::server_error, "The answer to the form did not come whole."};
    SourceAnswer answer;
    Result result = open_at(plan, answer);
    form_sent_ = form_sent_ || answer.form_sent;
    beyond_end_ = answer.beyond_end;
    may_go_on_ = answer.may_go_on;
    if (!result.ok() && !source_) return result;
    if (!result.ok()) {
        server_asks_ = source_->retry_after();
        if (result.code == Code::range_ignored) told_size_ = answer.version.size;
        // Where nobody has told the size yet this may be the end, and no failure.
        if (answer.beyond_end && limit() != unknown_end)
            tools_.log.line(Direction::error, message_text(Message::partial_refused));
        return result;
    }
    held_.clear();
    result = host_.response_accepted(*this, answer, asked_);
    if (!result.ok()) return result;
    accepted_ = true;
    answer_at_ = answer.granted;
    answered_from_ = position();
    tools_.log.line(Direction::note, message_text(Message::start_receiving));
    return {};
}

// Gives the next bytes of the open answer, those first that were received before.
Moved CTransferSubThread::read_on(std::span<std::byte> into, Clock::time_point until) {
    if (held_.empty()) {
        const Moved moved = source_->read(into, until);
        answer_at_ += static_cast<std::int64_t>(moved.bytes);
        return moved;
    }
    const std::size_t bytes = std::min(into.size(), held_.size());
    const auto end = held_.begin() + static_cast<std::ptrdiff_t>(bytes);
    std::copy(held_.begin(), end, into.begin());
    held_.erase(held_.begin(), end);
    return Moved::data(bytes);
}

// Asks whether anything is behind a part, where the answer ended and nobody has told where the resource does.
Result CTransferSubThread::ask_for_more(bool& there_is) {
    there_is = false;
    // An answer that gave nothing new had nothing more to give.
    if (!may_go_on_ || position() == answered_from_) return {};
    close_source(false);
    Result result = open_source();
    there_is = result.ok();
    const bool is_end = beyond_end_ && asked_ == position() && (told_size_ < 0 || told_size_ == asked_);
    return is_end ? Result{} : result;
}

// Fetches bytes that are in the file already and compares: the joint of two answers that no validator holds
// together. They come as the network brings them, and the first ones of another version may agree by chance:
// only all of them together are told as such that do.
Result CTransferSubThread::compare(std::int64_t offset, std::int64_t bytes) {
    const std::int64_t begin = offset;
    bool are_alike = bytes > 0;
    bool is_plain = true;
    std::byte first{};
    std::vector<std::byte> fetched(joint_step);
    auto quiet_until = from_now(silence_);
    while (bytes > 0) {
        const auto most =
            static_cast<std::size_t>(std::min<std::int64_t>(bytes, static_cast<std::int64_t>(joint_step)));
        const Moved moved = read_on(std::span(fetched).first(most), quiet_until);
        if (moved.state != Moved::State::data) return moved_failure(moved);
        bool is_alike = false;
        const auto some = std::span(fetched).first(moved.bytes);
        if (Result result = hold_against_file(offset, some, is_alike); !result.ok()) return result;
        are_alike = are_alike && is_alike;
        if (offset == begin) first = some.front();
        is_plain = is_plain && std::ranges::all_of(some, [first](std::byte byte) { return byte == first; });
        offset += static_cast<std::int64_t>(moved.bytes);
        bytes -= static_cast<std::int64_t>(moved.bytes);
        quiet_until = from_now(silence_);
    }
    if (are_alike) host_.agreed(worker_, begin, offset, is_plain);
    return {};
}

// Compares the joint with the next segment, as far as that one's bytes are there. The bytes that are read for
// it are kept: the answer may go on from here.
Result CTransferSubThread::compare_behind() {
    constexpr std::chrono::milliseconds step{20};
    const auto until = from_now(silence_);
    std::int64_t behind = host_.overlap_behind(worker_);
    while (behind < 0 && Clock::now() < until) {
        if (stop_.wait_for(step)) return stop_.reason();
        behind = host_.overlap_behind(worker_);
    }
    if (behind <= 0) return {};
    const auto wanted = static_cast<std::size_t>(behind);
    std::vector<std::byte> more(joint_step);
    while (held_.size() < wanted) {
        const Moved moved = source_->read(std::span(more).first(wanted - held_.size()), until);
        if (moved.state != Moved::State::data) return {};  // somebody else is to look at the joint
        answer_at_ += static_cast<std::int64_t>(moved.bytes);
        held_.insert(held_.end(), more.begin(), more.begin() + static_cast<std::ptrdiff_t>(moved.bytes));
    }
    bool is_alike = false;
    Result result = hold_against_file(position(), std::span(held_).first(wanted), is_alike);
    const auto is_first = [&](std::byte byte) { return byte == held_.front(); };
    if (is_alike)
        host_.agreed(worker_, position(), position() + behind,
                     std::ranges::all_of(std::span(held_).first(wanted), is_first));
    return result;
}

// A failure where bytes differ and these are the ones that are not wanted.
Result CTransferSubThread::hold_against_file(std::int64_t offset, std::span<const std::byte> fetched,
                                             bool& is_alike) {
    std::vector<std::byte> stored(fetched.size());
    const std::int64_t end = offset + static_cast<std::int64_t>(fetched.size());
    if (Result result = host_.file().read(offset, stored); !result.ok()) return result;
    is_alike = std::ranges::equal(fetched, stored);
    return is_alike ? Result() : host_.contradicted(worker_, offset, end);
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
    const std::int64_t before = worker_.bytes_per_second.load(std::memory_order_relaxed);
    worker_.bytes_per_second.store(measures_ == 0 ? speed : (before + speed) / 2, std::memory_order_relaxed);
    worker_.settled = ++measures_ >= settling_measures;
    measured_ = now;
    measured_bytes_ = 0;
}

Result CTransferSubThread::receive() {
    auto last_data = Clock::now();
    Result end;
    while (receive_some(last_data, end)) {
    }
    return end;
}

// Makes one step; false at the end of the segment or of the answer.
bool CTransferSubThread::receive_some(Clock::time_point& last_data, Result& end) {
    const std::int64_t left = limit() - position();
    if (left <= 0) {
        end = flush();
        if (!end.ok() || limit() > position()) return end.ok();  // a neighbour's range came back
        end = compare_behind();
        return end.ok() && limit() > position();
    }
    const auto until = std::min(last_data + silence_, flushed_ + flush_interval);
    const bool is_new = held_.empty();
    const bool is_short = takes_short_way();
    const Moved moved = is_short ? fill_conduit(left, until) : gather(left, until);
    judge_way(moved, is_short);
    const auto now = Clock::now();
    measure(moved.bytes, time().now());
    if (moved.state == Moved::State::data) {
        last_data = now;
        gathered_ += moved.bytes;
        if (is_new) host_.count_received(static_cast<std::int64_t>(moved.bytes));
        worker_.position.fetch_add(static_cast<std::int64_t>(moved.bytes), std::memory_order_relaxed);
    }
    // Half full is enough: a read into the small rest of a buffer costs the system as much as a large one.
    if (is_short || gathered_ >= gather_size_ / 2 || now - flushed_ >= flush_interval) {
        end = flush();
        if (!end.ok()) return false;
    }
    const bool still_quiet = moved.state == Moved::State::quiet && now < last_data + silence_;
    if (moved.state == Moved::State::data || still_quiet) return true;
    bool goes_on = false;
    end = flush();
    if (end.ok()) end = end_of_answer(moved, last_data, goes_on);
    return goes_on;
}

Result CTransferSubThread::end_of_answer(const Moved& moved, Clock::time_point& last_data, bool& goes_on) {
    if (moved.state == Moved::State::closed && limit() == unknown_end) {
        if (Result result = ask_for_more(goes_on); !result.ok()) return result;
        last_data = Clock::now();
        if (!goes_on) host_.end_found(worker_);
        return {};
    }
    // A part that the server cut as it likes came whole: the next one is asked for, and nothing has failed.
    if (moved.state == Moved::State::closed && may_go_on_ && position() != answered_from_) {
        close_source(false);
        Result opened = open_source();
        last_data = Clock::now();
        goes_on = opened.ok();
        return opened;
    }
    Result failure = moved_failure(moved);
    if (failure.kind() != Kind::stopped) log_failure(tools_.log, failure);
    return failure;
}

// Hands what was gathered to the file. The segment may have been cut meanwhile: what lies behind its end
// is kept, in case that the answer goes on there.
Result CTransferSubThread::flush() {
    flushed_ = Clock::now();
    const std::int64_t offset = position() - static_cast<std::int64_t>(gathered_);
    const std::int64_t end = std::max(limit(), offset);
    const std::int64_t bytes = std::min(static_cast<std::int64_t>(gathered_), end - offset);
    const auto wanted = static_cast<std::size_t>(std::max<std::int64_t>(bytes, 0));
    const std::size_t behind = gathered_ - wanted;
    gathered_ = 0;
    if (position() > end) worker_.position.store(end, std::memory_order_relaxed);
    if (conduit_.filled() > 0) return flush_conduit(offset, wanted, behind);
    const auto gathered = gather_.bytes().first(wanted + behind);
    held_.insert(held_.begin(), gathered.begin() + static_cast<std::ptrdiff_t>(wanted), gathered.end());
    if (wanted == 0) return {};
    host_.delivered(worker_, offset, bytes);
    return host_.file().write(offset, gathered.first(wanted));
}

Result CTransferSubThread::flush_conduit(std::int64_t offset, std::size_t wanted, std::size_t behind) {
    if (wanted > 0) {
        host_.delivered(worker_, offset, static_cast<std::int64_t>(wanted));
        if (Result result = host_.file().write(offset, conduit_, wanted); !result.ok()) return result;
    }
    if (behind == 0) return {};
    std::vector<std::byte> kept(behind);
    if (!conduit_.take(kept)) return Code::transient;
    held_.insert(held_.begin(), kept.begin(), kept.end());
    return {};
}

// Whether bytes that come in bulk may go to the file without being seen here.
bool CTransferSubThread::has_short_way() noexcept {
    return !conduit_.is_useless() && source_->can_fill() && host_.file().takes_conduits();
}

// Whether the next bytes go that way. Nothing may be waiting in memory before them, and the memory that bytes
// were gathered in is given back: of many connections it is most of what they take.
bool CTransferSubThread::takes_short_way() noexcept {
    if (!comes_in_bulk_ || gathered_ > 0 || !held_.empty() || !has_short_way() || !conduit_.open())
        return false;
    gather_.release();
    return true;
}

// Reads on into memory; where the short way is open no more than shows whether the bytes come in bulk.
Moved CTransferSubThread::gather(std::int64_t left, Clock::time_point until) {
    gather_.resize(gather_size_);
    std::size_t most = gather_size_ - gathered_;
    if (!comes_in_bulk_ && has_short_way()) most = std::min(most, bulk);
    most = static_cast<std::size_t>(std::min<std::int64_t>(left, static_cast<std::int64_t>(most)));
    return read_on(gather_.bytes().subspan(gathered_, most), until);
}

Moved CTransferSubThread::fill_conduit(std::int64_t left, Clock::time_point until) {
    const auto most = static_cast<std::size_t>(std::min<std::int64_t>(left, most_in_conduit));
    const Moved moved = source_->fill(conduit_, most, until);
    answer_at_ += static_cast<std::int64_t>(moved.bytes);
    return moved;
}

// The short way writes after each read, so it pays only where one brings much.
void CTransferSubThread::judge_way(const Moved& moved, bool is_short) noexcept {
    if (moved.state != Moved::State::data) return;
    if (!is_short) {
        comes_in_bulk_ = comes_in_bulk_ || moved.bytes >= bulk;
        return;
    }
    small_moves_ = moved.bytes < bulk / 4 ? small_moves_ + 1 : 0;
    if (small_moves_ < most_small_moves) return;
    comes_in_bulk_ = false;
    small_moves_ = 0;
}

}  // namespace vantlow
