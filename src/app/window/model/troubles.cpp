#include "app/window/model/troubles.h"

#include <optional>

#include "app/terminal/display_text.h"
#include "app/window/model/translate.h"

namespace vantlow {
namespace {

// Beginnings of what base/result.cpp, conversations and torrents say. Of one that
// goes on with words of its own, the part in front of the colon or the bracket.
constexpr std::string_view beginnings[] = {
    to_translate("Dialling failed"),
    to_translate("Every mirror delivered wrong data."),
    to_translate("FTP command error."),
    to_translate("Given up"),
    to_translate("HTTP server error."),
    to_translate("Host name not resolved."),
    to_translate("Invalid URL."),
    to_translate("No mirror is left"),
    to_translate("No peer gives what is missing."),
    to_translate("No peer is known yet."),
    to_translate("None of the known peers can be reached."),
    to_translate("Not enough memory."),
    to_translate("Not supported."),
    to_translate("Socket error"),
    to_translate("Socket function error."),
    to_translate("The address names a folder, not a file."),
    to_translate("The answer is not an HTTP response."),
    to_translate("The certificate of the server is not trusted."),
    to_translate("The connection was broken."),
    to_translate("The destination file exists."),
    to_translate("The file is empty."),
    to_translate("The file on the server has changed."),
    to_translate("The file on the server keeps changing."),
    to_translate("The folder cannot be opened"),
    to_translate("The hash of the file does not match."),
    to_translate("The library for SFTP is missing."),
    to_translate("The partial file"),
    to_translate("The proxy refused the connection"),
    to_translate("The proxy refused the credentials"),
    to_translate("The proxy wants a user name and a password"),
    to_translate("The server cannot resume, and resuming by restart is switched off."),
    to_translate("The server closed the connection early."),
    to_translate("The server closed the connection without an answer."),
    to_translate("The server closed the control connection."),
    to_translate("The server does NOT fulfill the partial GET request for the resource."),
    to_translate("The server does not offer TLS"),
    to_translate("The server is busy."),
    to_translate("The server keeps asking for a login."),
    to_translate("The server keeps ending the file early"),
    to_translate("The server offers no data connection"),
    to_translate("The server redirects too often."),
    to_translate("The server refused the credentials"),
    to_translate("The server refused the login"),
    to_translate("The server refuses the connection"),
    to_translate("The server refuses the file"),
    to_translate("The server sends something other than the file."),
    to_translate("The server wants a user name and a password"),
    to_translate("The server's answer broke off."),
    to_translate("The size of the file on the server has changed."),
    to_translate("The standard output cannot be written"),
    to_translate("The state of the job could not be saved"),
    to_translate("The torrent's description comes from peers, and none has given it yet."),
    to_translate("The torrent's description comes from peers, and none is known yet."),
    to_translate("The tracker does not know this torrent."),
    to_translate("The version on the server must be compared."),
    to_translate("Timeout."),
    to_translate("Too many redirects."),
    to_translate("Writing to file error."),
};

struct Attempt {
    std::string_view number;
    std::string_view in;  // "1:05"; empty: now
    std::string_view reason;
};

// In front of a reason may stand which attempt follows, and in which time: "retry 2 in 1:05: ", as
// terminal/progress_lines has it.
std::optional<Attempt> attempt_in(std::string_view english) {
    constexpr std::string_view begin = "retry ";
    constexpr std::string_view before_time = " in ";
    const auto colon = english.find(": ");
    if (!english.starts_with(begin) || colon == std::string_view::npos) return std::nullopt;
    const std::string_view head = english.substr(begin.size(), colon - begin.size());
    const auto at = head.find(before_time);
    const bool has_time = at != std::string_view::npos;
    return Attempt{head.substr(0, at), has_time ? head.substr(at + before_time.size()) : std::string_view(),
                   english.substr(colon + 2)};
}

}  // namespace

std::string trouble_text(std::string_view english) {
    if (const auto attempt = attempt_in(english))
        return attempt->in.empty()
                   ? fill(tr("retry %1: %2"), {attempt->number, trouble_text(attempt->reason)})
                   : fill(tr("retry %1 in %2: %3"),
                          {attempt->number, attempt->in, trouble_text(attempt->reason)});
    std::string_view longest;
    for (const std::string_view one : beginnings) {
        if (one.size() > longest.size() && english.starts_with(one)) longest = one;
    }
    if (longest.empty()) return printable(english);
    return printable(tr(longest) + std::string(english.substr(longest.size())));
}

}  // namespace vantlow
