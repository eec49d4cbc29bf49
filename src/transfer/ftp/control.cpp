#include "transfer/ftp/control.h"

#include <array>

#include "base/string_table.h"

namespace vantlow {
namespace {

constexpr const char* not_ftp = "The server's answer is not an FTP reply.";

}  // namespace

void FtpControl::reset() {
    reader_ = {};
    heard_ = false;
}

Result FtpControl::send(std::string_view command, std::string_view shown) {
    log_.line(Direction::sent, ftp_line_for_log(shown.empty() ? command : shown));
    if (!socket_.is_open()) return {Code::transient, std::string(message_text(Message::closed))};
    std::string line(command);
    line += "\r\n";
    return socket_.send_all(std::as_bytes(std::span(line)));
}

void FtpControl::log_reply(const FtpReply& reply) {
    const bool shorten = !whole_listings_ && reply.lines.size() > 2;
    for (std::size_t i = 0; i < reply.lines.size(); ++i) {
        if (shorten && i > 0 && i + 1 < reply.lines.size()) continue;
        log_.line(Direction::received, ftp_line_for_log(reply.lines[i]));
    }
}

Moved FtpControl::next(FtpReply& reply, Clock::time_point until) {
    std::array<std::byte, 4096> buffer;
    for (;;) {
        if (auto whole = reader_.take()) {
            reply = *std::move(whole);
            log_reply(reply);
            return Moved::data(1);
        }
        if (reader_.is_broken()) {
            log_.line(Direction::error, not_ftp);
            return Moved::failed(Code::transient, not_ftp);
        }
        if (!socket_.is_open()) return Moved::closed();
        const Moved moved = socket_.receive(buffer, until);
        if (moved.state != Moved::State::data) return moved;
        heard_ = true;
        reader_.add({reinterpret_cast<const char*>(buffer.data()), moved.bytes});
    }
}

}  // namespace vantlow
