#include "transfer/ftp/channel.h"

#include "base/string_table.h"
#include "transfer/connection/socket_stream.h"

namespace vantlow {

Result FtpChannel::read(FtpReply& reply, Clock::time_point until) {
    const Moved moved = next(reply, until);
    switch (moved.state) {
        case Moved::State::data:
            if (!reply.says_goodbye()) return {};
            return {Code::busy, "The server closes the connection: " + reply.text()};
        case Moved::State::quiet:
            return {Code::transient, std::string(message_text(Message::timeout))};
        case Moved::State::closed:
            return {Code::transient, "The server closed the control connection."};
        case Moved::State::failed:
            break;
    }
    if (moved.why != nullptr) return {moved.code, moved.why};
    if (moved.code != Code::transient) return moved.code;
    if (moved.system_error == 0) return {Code::transient, "The server closed the control connection."};
    return socket_failure(moved.system_error);
}

Result FtpChannel::ask(std::string_view command, FtpReply& reply, Clock::time_point until,
                       std::string_view shown) {
    Result result = send(command, shown);
    return result.ok() ? read(reply, until) : result;
}

Result unexpected_reply(LogSink& log, const FtpReply& reply) {
    std::string text(message_text(Message::ftp_command_error));
    text += " (" + reply.text() + ")";
    log.line(Direction::error, text);
    return {Code::transient, std::move(text)};
}

}  // namespace vantlow
