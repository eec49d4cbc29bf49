#include "transfer/ftp/sftp_conversation.h"

#include <any>

#include "transfer/ftp/dialogue.h"

namespace vantlow {
namespace {

constexpr std::chrono::milliseconds longest_goodbye{1000};

// A login with another key, or none, is another login.
std::string kept_as(const FtpPlan& plan) {
    return "sftp\n" + plan.user + '\n' + plan.password + '\n' +
           (plan.ssh.keys.empty() ? std::string() : plan.ssh.keys.front());
}

}  // namespace

SftpConversation::~SftpConversation() {
    let_go();
}

void SftpConversation::let_go() {
    if (link_) link_->attach(nullptr);
    link_.reset();
    usable_ = false;
}

Result SftpConversation::open(const FtpPlan& plan, std::int64_t offset, FtpFile& file) {
    if (!plan.ssh.operations.complete()) return {Code::unsupported, "The library for SFTP is missing."};
    bool dead = false;
    Result result = attempt(plan, offset, file, dead);
    if (dead) {
        FtpPlan fresh = plan;
        fresh.connect.may_reuse = false;
        result = attempt(fresh, offset, file, dead);
    }
    return result;
}

Result SftpConversation::attempt(const FtpPlan& plan, std::int64_t offset, FtpFile& file, bool& dead) {
    let_go();
    file = {};
    session_ = {};
    ConnectPlan connect = plan.connect;
    connect.scheme = kept_as(plan);
    if (Result result = socket_.open(connect); !result.ok()) return result;
    const auto* kept = std::any_cast<std::shared_ptr<SftpLink>>(&socket_.notes());
    const bool reused = socket_.is_reused() && kept != nullptr;
    link_ = reused ? *kept : std::make_shared<SftpLink>(plan.ssh);
    link_->attach(&socket_);
    channel_.attach(link_.get(), plan.connect.timeout);
    static_cast<void>(link_->heard_something());
    Result result = reused ? Result{} : log_in(plan);
    if (result.ok()) result = begin(plan, offset, file);
    dead = !result.ok() && reused && !link_->heard_something() && result.kind() == Kind::retry_later;
    if (!result.ok()) {
        let_go();
        socket_.close();
    }
    return result;
}

Result SftpConversation::log_in(const FtpPlan& plan) {
    Result result = link_->connect(plan);
    if (result.ok()) log_.line(Direction::note, "Login successfully.");
    if (result.code == Code::credentials_refused) log_.line(Direction::error, "Login unsuccessfully.");
    return result;
}

Result SftpConversation::enter_folder(const FtpPlan& plan) {
    if (plan.path.folder.empty()) return {};
    FtpReply reply;
    const auto until = from_now(plan.connect.timeout);
    if (Result result = channel_.ask("CWD " + plan.path.folder, reply, until); !result.ok()) return result;
    if (reply.is_success()) return {};
    // An address written as for FTP begins where the login leads.
    FtpReply from_home;
    if (plan.path.folder.size() > 1 && plan.path.folder.front() == '/') {
        Result result = channel_.ask("CWD ~" + plan.path.folder, from_home, until);
        if (!result.ok() || from_home.is_success()) return result;
    }
    log_.line(Direction::error, reply.text());
    return {Code::server_error, "The folder cannot be opened: " + reply.text()};
}

Result SftpConversation::begin(const FtpPlan& plan, std::int64_t offset, FtpFile& file) {
    session_.no_listing = true;
    session_.can_restart = true;
    session_.type = plan.text_mode ? 'A' : 'I';
    if (Result result = enter_folder(plan); !result.ok()) return result;
    if (Result result = ftp_ask_about_file(channel_, plan, session_, file, log_); !result.ok()) return result;
    if (plan.only_version) {
        file.granted = offset;
        usable_ = true;
        return {};
    }
    if (Result result = ftp_restart_at(channel_, plan, session_, offset, file); !result.ok()) return result;
    if (plan.facts_only) {
        Result result = ftp_is_told(channel_, plan, file);
        usable_ = result.ok();
        return result;
    }
    ftp_doubt_empty(offset, file);
    // Some servers open a folder as they open a file, and fail only where it is read.
    Result result = file.size < 0 ? ftp_name_folder(channel_, plan, Code::server_error) : Result();
    if (result.code == Code::unsupported) return result;
    FtpReply reply;
    result = channel_.ask("RETR " + plan.path.file, reply, from_now(plan.connect.timeout));
    if (result.ok()) result = ftp_retrieve_result(reply, log_);
    usable_ = result.ok();
    return result;
}

Moved SftpConversation::read(std::span<std::byte> into, Clock::time_point until) {
    if (!link_ || !usable_) return Moved::closed();
    const Moved moved = link_->read(into, until);
    if (moved.state == Moved::State::failed) usable_ = false;
    return moved;
}

void SftpConversation::finish() {
    bool keep = false;
    if (link_ && usable_) {
        FtpReply reply;
        channel_.attach(link_.get(), longest_goodbye);
        keep = channel_.ask("ABOR", reply, from_now(longest_goodbye)).ok() && reply.is_success();
    }
    if (keep && socket_.is_open()) {
        socket_.notes() = link_;
        let_go();
        socket_.close(true);
    } else {
        let_go();
        socket_.close();
    }
}

}  // namespace vantlow
