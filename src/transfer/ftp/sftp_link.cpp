#include "transfer/ftp/sftp_link.h"

#include "base/string_table.h"

namespace vantlow {
namespace {

constexpr std::size_t longest_reply = 4096;

}  // namespace

SftpLink::SftpLink(const SshPlan& plan)
    : operations_(plan.operations), transport_{this, &receive, &send}, ssh_(operations_.make(&transport_)) {
    if (ssh_ == nullptr) return;
    operations_.settings(ssh_, plan.receive_buffer);
    operations_.set_error(ssh_, error_.data(), error_.size());
}

SftpLink::~SftpLink() {
    socket_ = nullptr;
    if (ssh_ != nullptr) operations_.free(ssh_);
}

std::ptrdiff_t SftpLink::receive(void* context, void* into, std::size_t size) {
    auto& link = *static_cast<SftpLink*>(context);
    if (link.socket_ == nullptr || !link.socket_->is_open()) return 0;
    const auto until = link.until_.value_or(from_now(link.timeout_));
    const Moved moved = link.socket_->receive({static_cast<std::byte*>(into), size}, until);
    switch (moved.state) {
        case Moved::State::data:
            link.heard_ = true;
            return static_cast<std::ptrdiff_t>(moved.bytes);
        case Moved::State::quiet:
            return VANTLOW_SSH_QUIET;
        case Moved::State::closed:
            return 0;
        case Moved::State::failed:
            break;
    }
    link.failure_ = moved.code == Code::transient ? socket_failure(moved.system_error) : Result(moved.code);
    return VANTLOW_SSH_TRANSPORT;
}

int SftpLink::send(void* context, const void* from, std::size_t size) {
    auto& link = *static_cast<SftpLink*>(context);
    if (link.socket_ == nullptr || !link.socket_->is_open()) return VANTLOW_SSH_TRANSPORT;
    link.failure_ = link.socket_->send_all({static_cast<const std::byte*>(from), size});
    return link.failure_.ok() ? VANTLOW_SSH_OK : VANTLOW_SSH_TRANSPORT;
}

int SftpLink::accept(void* context, const char* fingerprint, const char* line) {
    const auto& link = *static_cast<SftpLink*>(context);
    const auto& accept = link.plan_->ssh.accept;
    return accept && accept(link.plan_->connect.host, fingerprint, line) ? 1 : 0;
}

Result SftpLink::result_of(int code) {
    if (!failure_.ok()) return std::exchange(failure_, {});
    const std::string text = error_.data();
    switch (code) {
        case VANTLOW_SSH_OK:
            return {};
        case VANTLOW_SSH_QUIET:
            return {Code::transient, std::string(message_text(Message::timeout))};
        case VANTLOW_SSH_NO_FILES:
            return {Code::server_error, text};
        case VANTLOW_SSH_REFUSED:
            return {Code::credentials_refused, text};
        case VANTLOW_SSH_UNTRUSTED:
            return {Code::not_trusted, text};
        default:
            return {Code::transient, text};
    }
}

Result SftpLink::connect(const FtpPlan& plan) {
    if (ssh_ == nullptr) return {Code::transient, std::string(message_text(Message::not_enough_memory))};
    std::vector<const char*> keys;
    for (const std::string& key : plan.ssh.keys) keys.push_back(key.c_str());
    VantlowSshLogin login{};
    login.host = plan.connect.host.c_str();
    login.port = plan.connect.port;
    login.user = plan.user.c_str();
    login.password = plan.password.empty() ? nullptr : plan.password.c_str();
    login.keys = keys.data();
    login.key_count = keys.size();
    login.first_keys = plan.ssh.first_keys;
    login.use_agent = plan.ssh.use_agent ? 1 : 0;
    login.known_hosts = plan.ssh.known_hosts.data();
    login.known_hosts_size = plan.ssh.known_hosts.size();
    login.accept = &accept;
    login.accept_context = this;
    plan_ = &plan;
    timeout_ = plan.connect.timeout;
    until_.reset();
    const int code = operations_.connect(ssh_, &login);
    plan_ = nullptr;
    return result_of(code);
}

Result SftpLink::command(std::string_view text, std::string& reply, std::chrono::milliseconds timeout) {
    std::array<char, longest_reply> answer{};
    timeout_ = timeout;
    until_.reset();
    const int code = operations_.send(ssh_, std::string(text).c_str(), answer.data(), answer.size());
    reply = answer.data();
    return result_of(code);
}

Moved SftpLink::read(std::span<std::byte> into, Clock::time_point until) {
    until_ = until;
    const std::ptrdiff_t bytes = operations_.receive(ssh_, into.data(), into.size());
    if (bytes > 0) return Moved::data(static_cast<std::size_t>(bytes));
    if (bytes == 0) return Moved::closed();
    if (bytes == VANTLOW_SSH_QUIET) return Moved::quiet();
    const Result result = result_of(static_cast<int>(bytes));
    return Moved::failed(result.code, result.system_error);
}

void SftpLink::disconnect() {
    if (ssh_ != nullptr && socket_ != nullptr && socket_->is_open()) operations_.disconnect(ssh_);
}

Result SftpChannel::send(std::string_view command, std::string_view shown) {
    log_.line(Direction::sent, ftp_line_for_log(shown.empty() ? command : shown));
    std::string reply;
    if (Result result = link_->command(command, reply, timeout_); !result.ok()) return result;
    replies_.add(reply + "\r\n");
    return {};
}

// The answer to the command came with it and is not waited for.
Moved SftpChannel::next(FtpReply& reply, Clock::time_point /*until*/) {
    auto whole = replies_.take();
    if (!whole) return Moved::failed(Code::transient);
    reply = *std::move(whole);
    for (const std::string& line : reply.lines) log_.line(Direction::received, ftp_line_for_log(line));
    return Moved::data(1);
}

}  // namespace vantlow
