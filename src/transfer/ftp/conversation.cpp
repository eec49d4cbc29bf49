#include "transfer/ftp/conversation.h"

#include <any>

#include "base/string_table.h"
#include "base/text.h"
#include "transfer/ftp/dialogue.h"

namespace vantlow {
namespace {

// How long the end of a transfer may hold up a connection that a new login would replace.
constexpr std::chrono::milliseconds longest_goodbye{1000};
constexpr int most_stray_replies = 4;
constexpr const char* session_wanted =
    "The server wants its data connections to resume the TLS session of the control connection, but TLS "
    "began a new one.";
// Servers expect TLS from the first byte at this port, without AUTH.
constexpr std::uint16_t implicit_tls_port = 990;

// A kept control connection is the right one by this: the login, the folder it stands in, and how its server
// was checked.
std::string kept_as(const FtpPlan& plan) {
    const std::string trust = !plan.tls          ? "ftp\n"
                              : plan.tls->verify ? "ftps by " + to_utf8(plan.tls->ca_file) + '\n'
                                                 : "ftps unverified\n";
    return trust + plan.user + '\n' + plan.password + '\n' + plan.path.folder;
}

}  // namespace

Result FtpConversation::open(const FtpPlan& plan, std::int64_t offset, FtpFile& file) {
    body_.reset();
    bool dead = false;
    Result result = attempt(plan, offset, file, dead);
    if (dead) {
        // The kept connection had ended meanwhile.
        FtpPlan fresh = plan;
        fresh.connect.may_reuse = false;
        result = attempt(fresh, offset, file, dead);
    }
    return result;
}

Result FtpConversation::attempt(const FtpPlan& plan, std::int64_t offset, FtpFile& file, bool& dead) {
    ConnectPlan connect = plan.connect;
    connect.scheme = kept_as(plan);
    state_ = State::idle;
    file = {};
    session_ = {};
    if (plan.tls && connect.port == implicit_tls_port) connect.tls = ftp_control_tls(*plan.tls, session_);
    if (Result result = socket_.open(connect); !result.ok()) return result;
    control_.reset();
    control_.trace_listings(plan.trace_listings);
    const bool reused = socket_.is_reused();
    Result result;
    if (const auto* kept = std::any_cast<FtpSession>(&socket_.notes()); reused && kept != nullptr) {
        session_ = *kept;
    } else {
        result = ftp_log_in(socket_, control_, plan, session_, log_);
    }
    if (result.ok()) result = begin(plan, offset, file);
    dead = !result.ok() && reused && !control_.heard_something() && result.kind() == Kind::retry_later;
    if (!result.ok()) fail();
    return result;
}

void FtpConversation::fail() {
    body_.reset();
    data_.close();
    socket_.close();
    state_ = State::idle;
}

Result FtpConversation::begin(const FtpPlan& plan, std::int64_t offset, FtpFile& file) {
    if (Result result = ftp_ask_about_file(control_, plan, session_, file, log_); !result.ok()) return result;
    if (plan.only_version) {
        file.granted = offset;
        state_ = State::done;
        return {};
    }
    if (plan.facts_only) {
        Result result = ftp_restart_at(control_, plan, session_, offset, file);
        if (result.ok()) result = ftp_is_told(control_, plan, file);
        if (result.ok()) state_ = State::done;
        return result;
    }
    ftp_doubt_empty(offset, file);
    if (Result result = data_.prepare(socket_, control_, plan, session_); !result.ok()) return result;
    if (Result result = ftp_restart_at(control_, plan, session_, offset, file); !result.ok()) return result;
    if (Result result = retrieve(plan, file); !result.ok())
        return ftp_name_folder(control_, plan, std::move(result));
    granted_ = position_ = file.granted;
    const bool is_end_known = file.size >= 0 || session_.compressed;
    Result result = data_.begin(socket_, plan, session_, is_end_known);
    new_session_ = data_.socket().is_secured() && !data_.socket().is_resumed();
    if (!result.ok()) return plan.tls ? hear_why(std::move(result)) : std::move(result);
    body_ = make_ftp_body(data_.socket(), plan, session_.compressed);
    size_ = file.size;
    return {};
}

// TLS on the data connection failed: the server's reason stands on the control connection.
Result FtpConversation::hear_why(Result failure) {
    FtpReply reply;
    const bool told = failure.code == Code::transient && control_.read(reply, from_now(longest_goodbye)).ok();
    return told && refuses_session(reply) ? Result(Code::server_error, session_wanted) : std::move(failure);
}

// Servers that let nobody but the owner of the control connection have its data want its TLS session resumed
// (RFC 4217, 10.2), and say that one was not after the handshake: by 522 (vsftpd), or by 425 or 450 with any
// words. The next attempt would end the same way.
bool FtpConversation::refuses_session(const FtpReply& reply) const {
    if (position_ != granted_) return false;
    if (new_session_) return reply.code == 522 || reply.code == 425 || reply.code == 450;
    return reply.code == 522 && reply.text().find("session") != std::string::npos;
}

Result FtpConversation::retrieve(const FtpPlan& plan, FtpFile& file) {
    FtpReply reply;
    Result result = control_.ask("RETR " + plan.path.file, reply, from_now(plan.connect.timeout));
    if (result.ok()) result = ftp_retrieve_result(reply, log_);
    if (!result.ok()) return result;
    // A server may say at once that it has sent all of a small file.
    state_ = reply.is_success() ? State::done : State::receiving;
    if (file.size < 0 && file.granted == 0 && !plan.text_mode && !session_.compressed)
        file.size = parse_announced_size(reply).value_or(-1);
    return {};
}

Moved FtpConversation::read(std::span<std::byte> into, Clock::time_point until) {
    return moved_on([&] { return body_->read(into, until); }, until);
}

bool FtpConversation::can_fill() const noexcept {
    return body_ && (state_ == State::receiving || state_ == State::done) && body_->can_fill();
}

Moved FtpConversation::fill(Conduit& conduit, std::size_t most, Clock::time_point until) {
    return moved_on([&] { return body_->fill(conduit, most, until); }, until);
}

// `move` takes the body's next bytes, and what their end means is found out here.
template <class Move>
Moved FtpConversation::moved_on(Move move, Clock::time_point until) {
    if (state_ == State::idle || !body_) return Moved::closed();
    if (state_ == State::receiving || state_ == State::done) {
        const Moved moved = move();
        if (moved.state == Moved::State::data) position_ += static_cast<std::int64_t>(moved.bytes);
        const bool broke = moved.state == Moved::State::failed && moved.code == Code::transient;
        // A transfer that was refused before its first byte may also be reset.
        const bool refused = broke && state_ == State::receiving && new_session_ && position_ == granted_;
        if (moved.state != Moved::State::closed && !refused) return moved;
        if (state_ == State::done) return moved;
        data_.close();
        state_ = State::ending;
    }
    return last_word(until);
}

// The data connection ended; only the server's reply tells whether that was all.
Moved FtpConversation::last_word(Clock::time_point until) {
    FtpReply reply;
    const Moved moved = control_.next(reply, until);
    if (moved.state == Moved::State::quiet || moved.code == Code::stopped) return moved;
    const bool all_there = size_ >= 0 && position_ >= size_;
    if (moved.state == Moved::State::data && reply.is_success()) {
        state_ = State::done;
        return Moved::closed();
    }
    if (moved.state == Moved::State::data && !reply.says_goodbye()) state_ = State::done;
    if (state_ != State::done) socket_.close();
    if (all_there) return Moved::closed();
    if (moved.state == Moved::State::data && refuses_session(reply)) {
        log_.line(Direction::error, session_wanted);
        return Moved::failed(Code::server_error, session_wanted);
    }
    if (moved.state == Moved::State::data) {
        log_.line(Direction::error, "The transfer was cut short: " + reply.text());
    }
    return Moved::failed(Code::transient);
}

// Takes the end of the data connection and the server's last word, after all bytes came.
bool FtpConversation::read_to_end() {
    const auto until = from_now(longest_goodbye);
    std::array<std::byte, 512> rest;
    for (;;) {
        const Moved moved = read(rest, until);
        if (moved.state == Moved::State::closed) return state_ == State::done;
        if (moved.state != Moved::State::data) return false;
    }
}

// Ends a transfer in its middle by ABOR, and a NOOP behind it whose answer cannot be taken for anything else.
bool FtpConversation::abort() {
    const auto until = from_now(longest_goodbye);
    if (!control_.send("ABOR").ok()) return false;
    data_.close();
    FtpReply reply;
    if (!control_.read(reply, until).ok() || !control_.send("NOOP").ok()) return false;
    for (int i = 0; i < most_stray_replies; ++i) {
        if (!control_.read(reply, until).ok()) return false;
        if (reply.code == 200) return true;
    }
    return false;
}

void FtpConversation::finish() {
    bool keep = state_ == State::done;
    if (state_ == State::receiving || state_ == State::ending) {
        const bool all_there = size_ >= 0 && position_ >= size_;
        keep = all_there || state_ == State::ending ? read_to_end() : abort();
    }
    body_.reset();
    data_.close();
    state_ = State::idle;
    if (keep && socket_.is_open() && control_.is_clean()) {
        socket_.notes() = session_;
        socket_.close(true);
    } else {
        socket_.close();
    }
}

}  // namespace vantlow
