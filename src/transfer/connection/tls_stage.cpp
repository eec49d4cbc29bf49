#include "transfer/connection/tls_stage.h"

#include <algorithm>
#include <new>
#include <utility>

#include "base/string_table.h"

namespace vantlow {
namespace {

using net::Step;

constexpr std::size_t largest_record = 16 * 1024;  // RFC 8446, 5.1
// The server's wishes after the handshake (new keys) are answered by reads: one that sends nothing else and
// takes no answer is not read on.
constexpr std::size_t most_unsent = 4 * largest_record;

// The plan in the library's form, whose texts are the given plan's.
VantlowTlsPlan library_plan(const TlsPlan& plan, const VantlowTlsTransport& transport) noexcept {
    VantlowTlsPlan wanted{};
    wanted.transport = transport;
    wanted.host = plan.host.c_str();
    wanted.protocol = plan.protocol.empty() ? nullptr : plan.protocol.c_str();
    wanted.session_key = plan.session_key.c_str();
    wanted.verify = plan.verify ? 1 : 0;
    wanted.end_without_notice = plan.end_without_notice ? 1 : 0;
    return wanted;
}

Code code_of(ptrdiff_t answer) noexcept {
    switch (answer) {
        case VANTLOW_TLS_UNTRUSTED:
            return Code::not_trusted;
        case VANTLOW_TLS_REFUSED:
            return Code::server_error;
        default:
            return Code::transient;
    }
}

}  // namespace

TlsStage::TlsStage(TlsEngines& engines, TlsEngines::Engine engine, const TlsPlan& plan, net::Stage& below)
    : library_(engines.library()), engine_(std::move(engine)), below_(below) {
    const VantlowTlsPlan wanted = library_plan(plan, {this, receive_below, send_below});
    tls_ = library_.SSL_New(engine_.get(), &wanted);
    if (tls_ == nullptr) {
        failure_ = {Code::transient, std::string(message_text(Message::not_enough_memory))};
        return;
    }
    library_.SSL_Set_ErrPtr(tls_, text_.data(), text_.size());
    const auto stopped = [](void* self) noexcept {
        const StopSource* const stop = static_cast<TlsStage*>(self)->stop_;
        return stop != nullptr && stop->requested() ? 1 : 0;
    };
    library_.SSL_Set_Interrupt(tls_, stopped, this);
}

TlsStage::~TlsStage() {
    if (tls_ != nullptr) library_.SSL_Free(tls_);
}

ptrdiff_t TlsStage::receive_below(void* self, void* into, std::size_t size) noexcept {
    auto& stage = *static_cast<TlsStage*>(self);
    const Step step = stage.below_.read({static_cast<std::byte*>(into), size}, stage.now_);
    switch (step.state) {
        case Step::State::moved:
            return static_cast<ptrdiff_t>(step.bytes);
        case Step::State::closed:
            return 0;
        case Step::State::again:
            stage.awaited_ = step;
            return VANTLOW_TLS_QUIET;
        case Step::State::failed:
            break;
    }
    stage.fault_ = step;
    return VANTLOW_TLS_BROKEN;
}

// The library wants all of it sent: the part that the stage below does not take is kept for later.
int TlsStage::send_below(void* self, const void* from, std::size_t size) noexcept {
    auto& stage = *static_cast<TlsStage*>(self);
    std::span bytes(static_cast<const std::byte*>(from), size);
    if (stage.unsent_.empty()) {
        const Step step = stage.below_.write(bytes, stage.now_);
        if (step.state == Step::State::failed) {
            stage.fault_ = step;
            return VANTLOW_TLS_BROKEN;
        }
        if (step.state == Step::State::moved) bytes = bytes.subspan(step.bytes);
    }
    try {
        stage.unsent_.insert(stage.unsent_.end(), bytes.begin(), bytes.end());
    } catch (const std::bad_alloc&) {
        return VANTLOW_TLS_BROKEN;
    }
    return VANTLOW_TLS_OK;
}

Step TlsStage::send_unsent() {
    while (sent_ < unsent_.size()) {
        const Step step = below_.write(std::span(unsent_).subspan(sent_), now_);
        if (step.state == Step::State::failed) {
            fault_ = step;
            return failed(VANTLOW_TLS_BROKEN);
        }
        if (step.state != Step::State::moved) return step;
        sent_ += step.bytes;
    }
    // An idle connection holds no memory for it.
    unsent_ = {};
    sent_ = 0;
    return Step::moved(0);
}

Step TlsStage::shake_hands() {
    if (!facts_) {
        VantlowTlsFacts facts{};
        const int answer = library_.SSL_Connect(tls_, &facts);
        if (answer != VANTLOW_TLS_OK && answer != VANTLOW_TLS_QUIET) return failed(answer);
        if (answer == VANTLOW_TLS_OK) facts_ = facts;
    }
    // The server says nothing before it has all that the library said.
    const Step sent = send_unsent();
    if (sent.state != Step::State::moved) return sent;
    is_connected_ = facts_.has_value();
    return is_connected_ ? sent : awaited_;
}

Step TlsStage::failed(ptrdiff_t answer) {
    if (!failure_.ok()) return broken();
    if (answer == VANTLOW_TLS_INTERRUPTED && stop_ != nullptr)
        failure_ = stop_->reason();
    else if (answer == VANTLOW_TLS_BROKEN && fault_)
        failure_ = fault_->result();
    else
        failure_ = {code_of(answer), text_.data()};
    return broken();
}

Step TlsStage::broken() const {
    return {.state = Step::State::failed, .code = failure_.code, .system_error = failure_.system_error};
}

Step TlsStage::connect(Clock::time_point now) {
    if (!failure_.ok()) return broken();
    now_ = now;
    return is_connected_ ? Step::moved(0) : shake_hands();
}

Step TlsStage::read(std::span<std::byte> into, Clock::time_point now) {
    if (const Step step = connect(now); step.state != Step::State::moved) return step;
    const Step sent = send_unsent();
    if (sent.state == Step::State::failed || unsent_.size() - sent_ > most_unsent) return sent;
    const ptrdiff_t got = library_.SSL_Recv(tls_, into.data(), into.size());
    if (got > 0) return Step::moved(static_cast<std::size_t>(got));
    if (got == 0) return Step::closed();
    if (got != VANTLOW_TLS_QUIET) return failed(got);
    // An answer of the library's own has nobody else to wait until there is room for it.
    const Step rest = taken_ == 0 ? send_unsent() : awaited_;
    return rest.state == Step::State::moved ? awaited_ : rest;
}

Step TlsStage::write(std::span<const std::byte> from, Clock::time_point now) {
    if (const Step step = connect(now); step.state != Step::State::moved) return step;
    if (taken_ == 0) {
        if (const Step step = send_unsent(); step.state != Step::State::moved) return step;
        const std::size_t size = std::min(from.size(), largest_record);
        const int answer = library_.SSL_Send(tls_, from.data(), size);
        if (answer != VANTLOW_TLS_OK) return failed(answer);
        taken_ = size;
    }
    if (const Step step = send_unsent(); step.state != Step::State::moved) return step;
    return Step::moved(std::exchange(taken_, 0));
}

void TlsStream::attach(const StopSource* stop, LogSink* log) noexcept {
    StageStream::attach(stop);
    tls_.attach(stop);
    log_ = log;
}

Result TlsStream::connect(Clock::time_point until) {
    const Moved moved = move([&] { return tls_.connect(Clock::now()); }, until);
    if (moved.state == Moved::State::quiet)
        return {Code::transient, std::string(message_text(Message::timeout))};
    if (!tls_.failure().ok()) return tls_.failure();
    if (moved.state != Moved::State::data) return moved.code;
    const VantlowTlsFacts& facts = *tls_.facts();
    if (log_ != nullptr) {
        log_->line(Direction::note, std::string("TLS 1.") + (facts.version == 13 ? "3, " : "2, ") +
                                        facts.cipher + (is_resumed() ? ", an earlier session." : "."));
    }
    return {};
}

Moved TlsStream::read(std::span<std::byte> into, Clock::time_point until) {
    const Moved moved = StageStream::read(into, until);
    const Result& why = tls_.failure();
    // A failure of the network is told by whoever asked for the bytes.
    if (!why.ok() && log_ != nullptr && why.kind() != Kind::stopped && why.system_error == 0)
        log_->line(Direction::error, why.message());
    return moved;
}

Result TlsStream::write(std::span<const std::byte> from, Clock::time_point until) {
    Result result = StageStream::write(from, until);
    return tls_.failure().ok() ? result : tls_.failure();
}

bool TlsStream::is_quiet() {
    std::byte unasked{};
    // Tickets may have come meanwhile: those are for the library.
    return tls_.read({&unasked, 1}, Clock::now()).state == net::Step::State::again;
}

}  // namespace vantlow
