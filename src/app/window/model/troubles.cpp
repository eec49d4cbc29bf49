#include "app/window/model/troubles.h"

#include <algorithm>
#include <iterator>
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
    to_translate("The file was removed with the job."),
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
    to_translate("The server refused every way to log in"),
    to_translate("The server refused the login"),
    to_translate("The server refuses the connection"),
    to_translate("The server refuses the file"),
    to_translate("The server sends something other than the file."),
    to_translate("The server wants a user name and a password"),
    to_translate("The server's answer broke off."),
    to_translate("The server's key is not known"),
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

// Advice on reasons. A reason is known by words anywhere in it: the first line of the table that fits counts,
// so that the words of the system or of a server stand in front of the general sentence beside them.
struct Help {
    std::string_view words;
    std::string_view advice;
};
constexpr std::string_view make_room = to_translate(
    "Make room on the disk or choose another folder, then start the download again: it goes on where it "
    "stopped.");
constexpr std::string_view choose_folder =
    to_translate("Choose a folder that you may write to, or mend its rights, then start the download again.");
constexpr std::string_view gone = to_translate(
    "The link has run out or was mistyped. Copy it anew from the page that it stands on, and put it into the "
    "properties as the address: the download goes on with it.");
constexpr std::string_view forbidden = to_translate(
    "The server gives the file to its own visitors only. Properties take what a browser sends along: "
    "referer, cookies, user and password.");
constexpr std::string_view later =
    to_translate("The server has a fault of its own at the moment. Start the download again later.");
constexpr std::string_view log_in =
    to_translate("Enter the right user name and password in the properties, then start the download again.");
constexpr std::string_view name_server = to_translate(
    "Check the server's name in the address, and whether this computer is connected to the internet.");
constexpr std::string_view reach =
    to_translate("Check the internet connection, and the port in the address. A firewall may be in between.");
constexpr std::string_view go_on =
    to_translate("Start the download again: it goes on where it stopped. Fewer connections may help.");
constexpr std::string_view fetch_anew = to_translate("Start the download again to fetch the file anew.");
constexpr std::string_view start_over =
    to_translate("Start the download over, or give it another address in the properties.");
constexpr std::string_view trust = to_translate(
    "Start the download again and look at the question: trust the server only where its owner confirms the "
    "fingerprint.");
constexpr std::string_view look_at_page = to_translate(
    "Open the address in a browser: the server may want a login or a click first. Then copy the file's own "
    "link.");
constexpr std::string_view set_proxy =
    to_translate("Check the proxy in the options, and its user and password.");
constexpr std::string_view correct_address = to_translate("Correct the address in the properties.");
constexpr std::string_view question = to_translate("Answer the question (menu Tools, \"Open questions\").");
constexpr std::string_view wait_for_peers = to_translate(
    "Peers may come later; more trackers, or the distributed hash table (see the options), find more of "
    "them.");
constexpr std::string_view install_again =
    to_translate("A part of Vantlow is missing beside the program: install it again.");

constexpr Help helps[] = {
    {"No space left", make_room},
    {"Access denied", choose_folder},
    {"The file system cannot be written", choose_folder},
    {"The folder cannot be opened", choose_folder},
    {"The folder was removed or replaced", choose_folder},
    {"The file was removed with the job", fetch_anew},
    {"The proxy", set_proxy},
    {"(404 ", gone},
    {"(410 ", gone},
    {"(403 ", forbidden},
    {"(401 ", log_in},
    {"(500 ", later},
    {"(502 ", later},
    {"(503 ", later},
    {"(504 ", later},
    {"The server refuses the file", gone},
    {"The server refused the credentials", log_in},
    {"The server refused the login", log_in},
    {"The server refused every way to log in", log_in},
    {"The server wants a user name and a password", log_in},
    {"The server keeps asking for a login", log_in},
    {"Host name not resolved", name_server},
    {"The server refuses the connection", reach},
    {"Timeout", reach},
    {"onnection refused", reach},
    {"actively refused", reach},
    {"unreachable", reach},
    {"No route to host", reach},
    {"Socket", reach},
    {"not trusted", trust},
    {"key is not known", trust},
    {"The server is busy", later},
    {"Given up", go_on},
    {"The connection was broken", go_on},
    {"The server closed the", go_on},
    {"The server's answer broke off", go_on},
    {"The server keeps ending the file early", go_on},
    {"The server offers no data connection", go_on},
    {"cannot resume", start_over},
    {"has changed", start_over},
    {"keeps changing", start_over},
    {"The hash of the file does not match", start_over},
    {"Every mirror delivered wrong data", start_over},
    {"No mirror is left", start_over},
    {"The server sends something other than the file", look_at_page},
    {"redirects", look_at_page},
    {"The answer is not an HTTP response", look_at_page},
    {"Invalid URL", correct_address},
    {"The address names a folder", correct_address},
    {"The destination file exists", question},
    {"No peer", wait_for_peers},
    {"None of the known peers", wait_for_peers},
    {"comes from peers", wait_for_peers},
    {"The library for", install_again},
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

std::string advice_on(std::string_view english) {
    const auto fits = [english](const Help& one) {
        return english.find(one.words) != std::string_view::npos;
    };
    const auto found = std::ranges::find_if(helps, fits);
    return found != std::end(helps) ? tr(found->advice) : std::string();
}

}  // namespace vantlow
