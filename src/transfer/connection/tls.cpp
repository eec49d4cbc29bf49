#include "transfer/connection/tls.h"

#include "base/string_table.h"
#include "base/text.h"
#include "platform/file.h"
#include "transfer/connection/socket_stream.h"
#include "transfer/connection/tls_parts.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_ca_file = 16 * 1024 * 1024;

}  // namespace

bool TlsEngines::available() const noexcept {
    return library_ != nullptr && library_->SSL_Init != nullptr && library_->SSL_Exit != nullptr &&
           library_->SSL_New != nullptr && library_->SSL_Free != nullptr &&
           library_->SSL_Connect != nullptr && library_->SSL_Recv != nullptr &&
           library_->SSL_Send != nullptr && library_->SSL_Set_ErrPtr != nullptr &&
           library_->SSL_Set_Interrupt != nullptr;
}

Outcome<TlsEngines::Engine> TlsEngines::make(const std::u16string& ca_file) const {
    std::vector<std::byte> roots;
    std::array<char, 200> why{};
    const auto refuse = [&](const std::string& text) {
        return Result(Code::not_trusted,
                      "The certificates to trust cannot be read from " + to_utf8(ca_file) + ": " + text);
    };
    if (!ca_file.empty()) {
        if (const FileError error = read_file(ca_file, largest_ca_file, roots); !error.ok())
            return refuse(error.text());
    }
    const void* const bytes = ca_file.empty() ? nullptr : static_cast<const void*>(roots.data());
    // An empty file has no bytes to point at, and is no reason to trust the system instead.
    if (!ca_file.empty() && roots.empty()) return refuse("It is empty.");
    VantlowTlsEngine* const engine = library_->SSL_Init(bytes, roots.size(), why.data(), why.size());
    if (engine == nullptr)
        return ca_file.empty() ? Result(Code::unsupported, why.data()) : refuse(why.data());
    return Engine(engine, library_->SSL_Exit);
}

Outcome<TlsEngines::Engine> TlsEngines::engine(const std::u16string& ca_file) {
    if (!available())
        return Result(Code::unsupported, missing_library_text("libsecur") + " There is no TLS without it.");
    const FileStamp stamp = ca_file.empty() ? FileStamp{} : file_stamp(ca_file);
    const auto find = [&]() -> Engine {
        const MutexLock guard(mutex_);
        const auto known = engines_.find(ca_file);
        return known != engines_.end() && known->second.stamp == stamp ? known->second.engine : nullptr;
    };
    if (Engine known = find()) return known;
    Outcome<Engine> made = make(ca_file);
    if (!made.ok()) return made;
    // Another connection may have been as fast: its engine has the sessions then.
    if (Engine known = find()) return known;
    const MutexLock guard(mutex_);
    engines_[ca_file] = {stamp, *made};
    return made;
}

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

Result tls_failure(ptrdiff_t answer, const char* text) {
    switch (answer) {
        case VANTLOW_TLS_UNTRUSTED:
            return {Code::not_trusted, text};
        case VANTLOW_TLS_REFUSED:
            return {Code::server_error, text};
        default:
            return {Code::transient, text};
    }
}

TlsStream::TlsStream(TlsEngines& engines, TlsEngines::Engine engine, const TlsPlan& plan, ByteStream& below)
    : library_(engines.library()), engine_(std::move(engine)), below_(below) {
    const VantlowTlsPlan wanted = library_plan(plan, {this, receive_below, send_below});
    tls_ = library_.SSL_New(engine_.get(), &wanted);
    if (tls_ == nullptr) return;
    library_.SSL_Set_ErrPtr(tls_, text_.data(), text_.size());
    const auto stopped = [](void* self) noexcept {
        const StopSource* const stop = static_cast<TlsStream*>(self)->stop_;
        return stop != nullptr && stop->requested() ? 1 : 0;
    };
    library_.SSL_Set_Interrupt(tls_, stopped, this);
}

TlsStream::~TlsStream() {
    until_ = Clock::now();  // the socket waits for nothing
    if (tls_ != nullptr) library_.SSL_Free(tls_);
}

void TlsStream::attach(const StopSource* stop, LogSink* log) noexcept {
    stop_ = stop;
    log_ = log;
}

int TlsStream::failed_below(Code code, int system_error) noexcept {
    below_code_ = code;
    below_error_ = system_error;
    return kind_of(code) == Kind::stopped ? VANTLOW_TLS_INTERRUPTED : VANTLOW_TLS_BROKEN;
}

ptrdiff_t TlsStream::receive_below(void* self, void* into, std::size_t size) noexcept {
    auto& stream = *static_cast<TlsStream*>(self);
    const Moved moved = stream.below_.read({static_cast<std::byte*>(into), size}, stream.until_);
    switch (moved.state) {
        case Moved::State::data:
            return static_cast<ptrdiff_t>(moved.bytes);
        case Moved::State::closed:
            return 0;
        case Moved::State::quiet:
            return VANTLOW_TLS_QUIET;
        case Moved::State::failed:
            break;
    }
    return stream.failed_below(moved.code, moved.system_error);
}

int TlsStream::send_below(void* self, const void* from, std::size_t size) noexcept {
    auto& stream = *static_cast<TlsStream*>(self);
    const Result result = stream.below_.write({static_cast<const std::byte*>(from), size}, stream.until_);
    return result.ok() ? VANTLOW_TLS_OK : stream.failed_below(result.code, result.system_error);
}

Result TlsStream::result_of(ptrdiff_t answer) const {
    if (answer == VANTLOW_TLS_QUIET) return {Code::transient, std::string(message_text(Message::timeout))};
    if (answer == VANTLOW_TLS_INTERRUPTED) {
        if (below_code_ != Code::ok) return below_code_;
        return stop_ != nullptr ? stop_->reason() : Code::stopped;
    }
    if (answer == VANTLOW_TLS_BROKEN && below_error_ != 0) return socket_failure(below_error_);
    return tls_failure(answer, text_.data());
}

Result TlsStream::connect(Clock::time_point until) {
    if (tls_ == nullptr) return {Code::transient, std::string(message_text(Message::not_enough_memory))};
    until_ = until;
    VantlowTlsFacts facts{};
    const int answer = library_.SSL_Connect(tls_, &facts);
    if (answer != VANTLOW_TLS_OK) return result_of(answer);
    resumed_ = facts.resumed != 0;
    if (log_ != nullptr) {
        log_->line(Direction::note, std::string("TLS 1.") + (facts.version == 13 ? "3, " : "2, ") +
                                        facts.cipher + (resumed_ ? ", an earlier session." : "."));
    }
    return {};
}

Moved TlsStream::read(std::span<std::byte> into, Clock::time_point until) {
    if (tls_ == nullptr) return Moved::failed(Code::transient);
    until_ = until;
    const ptrdiff_t got = library_.SSL_Recv(tls_, into.data(), into.size());
    if (got > 0) return Moved::data(static_cast<std::size_t>(got));
    if (got == 0) return Moved::closed();
    if (got == VANTLOW_TLS_QUIET) return Moved::quiet();
    const Result result = result_of(got);
    if (log_ != nullptr && result.kind() != Kind::stopped && below_error_ == 0)
        log_->line(Direction::error, result.message());
    return Moved::failed(result.code, result.system_error);
}

Result TlsStream::write(std::span<const std::byte> from, Clock::time_point until) {
    if (tls_ == nullptr) return Code::transient;
    until_ = until;
    const int answer = library_.SSL_Send(tls_, from.data(), from.size());
    return answer == VANTLOW_TLS_OK ? Result() : result_of(answer);
}

bool TlsStream::is_quiet() noexcept {
    if (tls_ == nullptr) return false;
    std::byte unasked{};
    until_ = Clock::now();  // the socket waits for nothing
    // Tickets may have come meanwhile: those are for the library.
    return library_.SSL_Recv(tls_, &unasked, 1) == VANTLOW_TLS_QUIET;
}

}  // namespace vantlow
