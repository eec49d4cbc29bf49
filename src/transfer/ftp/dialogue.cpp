#include "transfer/ftp/dialogue.h"

#include "transfer/ftp/listing.h"

namespace vantlow {
namespace {

// 500 and 502: the server does not know the command, so that it need not be asked again.
bool is_unknown_command(const FtpReply& reply) noexcept {
    return reply.code == 500 || reply.code == 502;
}

class FileQuestions {
  public:
    FileQuestions(FtpChannel& channel, const FtpPlan& plan, FtpSession& session, FtpFile& file, LogSink& log)
        : channel_(channel), plan_(plan), session_(session), file_(file), log_(log) {}

    Result run() {
        for (const auto step : {&FileQuestions::time, &FileQuestions::type, &FileQuestions::size,
                                &FileQuestions::listing, &FileQuestions::mode}) {
            if (Result result = (this->*step)(); !result.ok()) return result;
        }
        return {};
    }

  private:
    Result ask(const std::string& command, FtpReply& reply) {
        return channel_.ask(command, reply, from_now(plan_.connect.timeout));
    }
    Result time();
    Result type();
    Result size();
    Result listing();
    Result mode();

    FtpChannel& channel_;
    const FtpPlan& plan_;
    FtpSession& session_;
    FtpFile& file_;
    LogSink& log_;
};

Result FileQuestions::time() {
    if (session_.no_mdtm) return {};
    FtpReply reply;
    if (Result result = ask("MDTM " + plan_.path.file, reply); !result.ok()) return result;
    file_.time = parse_mdtm(reply);
    session_.no_mdtm = is_unknown_command(reply);
    return {};
}

Result FileQuestions::type() {
    const char wanted = plan_.text_mode ? 'A' : 'I';
    if (session_.type == wanted) return {};
    FtpReply reply;
    if (Result result = ask(std::string("TYPE ") + wanted, reply); !result.ok()) return result;
    if (!reply.is_success()) return unexpected_reply(log_, reply);
    session_.type = wanted;
    return {};
}

Result FileQuestions::size() {
    // A file that is sent as text has another size on each system.
    if (plan_.text_mode || session_.no_size) return {};
    FtpReply reply;
    if (Result result = ask("SIZE " + plan_.path.file, reply); !result.ok()) return result;
    file_.size = parse_size(reply).value_or(-1);
    session_.no_size = is_unknown_command(reply);
    return {};
}

Result FileQuestions::listing() {
    const bool wanted = (file_.size < 0 && !plan_.text_mode) || file_.time.empty();
    if (!wanted || session_.no_listing) return {};
    FtpReply reply;
    if (Result result = ask("STAT " + plan_.path.file, reply); !result.ok()) return result;
    session_.no_listing = is_unknown_command(reply);
    if (!reply.is_success()) return {};
    const auto entry = find_in_listing(reply, plan_.path.file);
    if (!entry || entry->is_folder) return {};
    if (file_.size < 0 && !plan_.text_mode) file_.size = entry->size;
    if (file_.time.empty()) file_.time = entry->time;
    return {};
}

Result FileQuestions::mode() {
    if (session_.compressed || !session_.features.mode_z || !plan_.inflate.complete()) return {};
    FtpReply reply;
    if (Result result = ask("MODE Z", reply); !result.ok()) return result;
    session_.compressed = reply.is_success();
    if (!session_.compressed) session_.features.mode_z = false;
    return {};
}

}  // namespace

Result ftp_ask_about_file(FtpChannel& channel, const FtpPlan& plan, FtpSession& session, FtpFile& file,
                          LogSink& log) {
    return FileQuestions(channel, plan, session, file, log).run();
}

Result ftp_restart_at(FtpChannel& channel, const FtpPlan& plan, FtpSession& session, std::int64_t offset,
                      FtpFile& file) {
    file.granted = 0;
    file.can_restart = session.can_restart.value_or(false);
    const bool known = session.can_restart.has_value();
    // The command is sent for offset zero, too, to learn whether the server can restart at all, and to take
    // back what was said for an earlier file: some servers go by it until they are told something else.
    const bool is_said = offset == 0 && session.restart_said == 0;
    if (plan.text_mode || (known && (is_said || !file.can_restart))) return {};
    session.restart_said = offset;
    FtpReply reply;
    Result result = channel.ask("REST " + std::to_string(offset), reply, from_now(plan.connect.timeout));
    if (!result.ok()) return result;
    if (reply.kind() == 4) return {Code::busy, "The server cannot restart now: " + reply.text()};
    file.can_restart = reply.kind() == 3 || reply.is_success();
    session.can_restart = file.can_restart;
    if (file.can_restart) file.granted = offset;
    return {};
}

Result ftp_retrieve_result(const FtpReply& reply, LogSink& log) {
    if (reply.kind() == 1 || reply.kind() == 2) return {};
    Result unexpected = unexpected_reply(log, reply);
    switch (reply.code) {
        case 530:
        case 532:
            return {Code::credentials_refused, "The server refuses the file: " + reply.text()};
        case 550:
        case 551:
        case 552:
        case 553:
            return {Code::server_error, "The file cannot be fetched: " + reply.text()};
        default:
            break;
    }
    if (reply.kind() != 4) return unexpected;
    // Without a data connection the next attempt may do; anything else is the server's own trouble.
    const bool connection = reply.code == 425 || reply.code == 426;
    return {connection ? Code::transient : Code::busy,
            "The server cannot send the file now: " + reply.text()};
}

Result ftp_name_folder(FtpChannel& channel, const FtpPlan& plan, Result refused) {
    if (refused.code != Code::server_error) return refused;
    FtpReply reply;
    Result result = channel.ask("CWD " + plan.path.file, reply, from_now(plan.connect.timeout));
    if (!result.ok() || !reply.is_success()) return refused;
    return {Code::unsupported, "The address names a folder, not a file."};
}

void ftp_doubt_empty(std::int64_t offset, FtpFile& file) {
    if (file.size == 0 && offset == 0) file.size = -1;
}

Result ftp_is_told(FtpChannel& channel, const FtpPlan& plan, const FtpFile& file) {
    if (file.size >= 0 || !file.time.empty()) return {};
    return ftp_name_folder(channel, plan, {Code::server_error, "It says nothing about such a file."});
}

}  // namespace vantlow
