#include "base/string_table.h"

namespace vantlow {

std::string_view message_text(Message id) noexcept {
    switch (id) {
        case Message::temporary_exists:
            return "Temporary file exists, auto rename.";
        case Message::destination_exists:
            return "Destination file exists, auto rename.";
        case Message::connecting_to:
            return "Connecting to %s:%d";
        case Message::connecting_to_ip:
            return "Connecting to %d.%d.%d.%d:%d";
        case Message::connected:
            return "Connected.";
        case Message::start_receiving:
            return "Start receiving data.";
        case Message::same_file:
            return "The file on the server is the same as the file on the local machine.";
        case Message::server_newer:
            return "The file on the server is newer, download it again.";
        case Message::can_resume:
            return "This site can resume broken downloads.";
        case Message::cannot_resume:
            return "This site can't resume broken downloads.";
        case Message::redirect_to:
            return "Redirect to %s";
        case Message::size_unknown:
            return "File size unknown, can't start other parts.";
        case Message::not_enough_memory:
            return "Not enough memory.";
        case Message::closed:
            return "Closed.";
        case Message::invalid_url:
            return "Invalid URL.";
        case Message::not_resolved:
            return "Host name not resolved.";
        case Message::cancelled_at:
            return "Cancelled at %u";
        case Message::finished_at:
            return "Finished at %u";
        case Message::timeout:
            return "Timeout.";
        case Message::socket_error:
            return "Socket error = %d.";
        case Message::socket_function_error:
            return "Socket function error.";
        case Message::writing_error:
            return "Writing to file error.";
        case Message::ftp_command_error:
            return "FTP command error.";
        case Message::http_server_error:
            return "HTTP server error.";
        case Message::partial_refused:
            return "The server does NOT fulfill the partial GET request for the resource.";
        case Message::maximum_error:
            return "Maximum error reached, this part halted.";
        case Message::download_completed:
            return "Download completed.";
        case Message::awaiting_retry:
            return "Awaiting %d seconds to retry.";
    }
    return "?";
}

std::string message(Message id, std::initializer_list<MessageArgument> arguments) {
    const std::string_view format = message_text(id);
    std::string out;
    const auto* next = arguments.begin();
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%' || i + 1 == format.size()) {
            out.push_back(format[i]);
            continue;
        }
        ++i;  // the conversion letter: the argument knows its own type
        if (next == arguments.end()) continue;
        if (next->is_text) {
            out += next->text;
        } else {
            out += std::to_string(next->number);
        }
        ++next;
    }
    return out;
}

}  // namespace vantlow
