// The program's messages, by the identifier that each has in the string table.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace vantlow {

/// Identifiers of the messages; the numbers are those of the language files.
enum class Message : std::uint16_t {
    temporary_exists = 61249,
    destination_exists = 61250,
    connecting_to = 61251,     ///< %s host, %d port
    connecting_to_ip = 61252,  ///< %d.%d.%d.%d:%d
    connected = 61253,
    start_receiving = 61254,
    same_file = 61255,
    server_newer = 61256,
    can_resume = 61257,
    cannot_resume = 61258,
    redirect_to = 61259,  ///< %s address
    size_unknown = 61263,
    not_enough_memory = 61264,
    closed = 61265,
    invalid_url = 61266,
    not_resolved = 61267,
    cancelled_at = 61268,  ///< %u position
    finished_at = 61269,   ///< %u position
    timeout = 61270,
    socket_error = 61271,  ///< %d system error
    socket_function_error = 61272,
    writing_error = 61273,
    ftp_command_error = 61274,
    http_server_error = 61275,
    partial_refused = 61276,
    maximum_error = 61277,
    download_completed = 61278,
    awaiting_retry = 61348,  ///< %d seconds
};

/// The message's text as the string table holds it, with its printf places unfilled. UTF-8, never empty.
std::string_view message_text(Message id) noexcept;

/// The text with its places filled. Each argument may be a number or UTF-8 text; a place takes whatever
/// stands in its turn, so that a translated format can never read past its arguments.
struct MessageArgument {
    std::string_view text;
    std::int64_t number = 0;
    bool is_text = false;
    MessageArgument(std::string_view t) : text(t), is_text(true) {}    // NOLINT(google-explicit-constructor)
    MessageArgument(const std::string& t) : text(t), is_text(true) {}  // NOLINT(google-explicit-constructor)
    MessageArgument(const char* t) : text(t), is_text(true) {}         // NOLINT(google-explicit-constructor)
    MessageArgument(std::int64_t n) : number(n) {}                     // NOLINT(google-explicit-constructor)
    MessageArgument(int n) : number(n) {}                              // NOLINT(google-explicit-constructor)
};
std::string message(Message id, std::initializer_list<MessageArgument> arguments = {});

}  // namespace vantlow
