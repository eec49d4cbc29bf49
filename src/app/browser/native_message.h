// Messages of native messaging, between a browser's extension and this program: bytes in, requests out;
// answers in, bytes out. Nothing that is read here is trusted, and nothing here touches a stream or a job.
//
// A message is JSON (UTF-8) behind its length, four bytes in the order of the machine. Each request has
// "version", "id" (a number that its answer repeats) and "type":
//
//   {"type":"hello"}    -> {"ok":true,"program":"Vantlow 2.95"}
//   {"type":"status"}   -> {"ok":true,"resident":true,"running":2,"waiting":1}
//   {"type":"add","start":"now"|"ask","downloads":[{"address","first","referer","agent","cookies","name","user",
//     "password","formType","form"}, ...]}  ->
//     {"ok":true,"results":[{"ok":true,"jobs":["ID"]},{"ok":false,"reason":TEXT}]}
//
// A request that cannot be answered so gets {"ok":false,"code":CODE,"reason":TEXT}; whoever sent it goes on
// as if the program were not there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vantlow {

/// The version of requests and answers. One with another number is refused, not guessed at.
inline constexpr std::int64_t native_version = 1;
/// The longest message that is taken from a browser, and the longest that a browser takes.
inline constexpr std::size_t longest_request = 4U << 20U;
inline constexpr std::size_t longest_answer = 1U << 20U;
inline constexpr std::size_t most_downloads = 200;  ///< in one request

/// A download as the browser would have made it. Every text is UTF-8 in one line; an empty one asks for
/// nothing.
struct BrowserDownload {
    std::string address;  ///< a link that answered last, behind all redirects; never a path of this machine
    std::string first;    ///< the link that was followed, where that is another one
    std::string referer;
    std::string agent;
    std::string cookies;  ///< "name=value; name=value", for the address's host alone
    std::string name;     ///< not made safe yet
    std::string user;
    std::string password;
    std::string
        form_type;     ///< media type of the form that was sent by POST; empty: the address was asked by GET
    std::string form;  ///< its bytes, in base64
};

/// A request that was read.
struct BrowserRequest {
    enum class Kind { hello, status, add };
    Kind kind = Kind::hello;
    std::int64_t id = 0;
    bool starts = true;  ///< the downloads begin at once; else the person decides in the program
    std::vector<BrowserDownload> downloads;
};

/// The reason why a request gets nothing.
struct Refusal {
    enum class Code {
        invalid,        ///< it is no request, or breaks a rule of theirs
        other_version,  ///< it is of another version than native_version
        not_running,    ///< the program that keeps the jobs does not run and cannot be started
        failed,         ///< that program could not do it
    };
    Code code = Code::invalid;
    std::int64_t id = 0;  ///< of the request, as far as it could be read
    std::string text;     ///< a sentence for the person
};

/// Reads one message.
std::variant<BrowserRequest, Refusal> read_request(std::string_view json);

/// The fate of one download of a request.
struct AddedDownload {
    std::vector<std::string> jobs;  ///< ids
    std::string reason;             ///< why there is none; a sentence
};

// The answers, as JSON without a line end.
std::string hello_answer(std::int64_t id, std::string_view program);
std::string status_answer(std::int64_t id, bool resident, std::size_t running, std::size_t waiting);
std::string add_answer(std::int64_t id, const std::vector<AddedDownload>& downloads);
std::string refusal_answer(const Refusal& refusal);

/// Puts the length in front of an answer. One that is longer than a browser takes becomes a refusal.
std::string framed(std::string_view answer);

/// Cuts what comes from the browser into messages.
class NativeInput {
  public:
    /// Takes the next bytes, in pieces of any size.
    void add(std::string_view bytes) { bytes_ += bytes; }
    /// Takes the next whole message out; none until more bytes have come, and for good once is_broken().
    std::optional<std::string> next();
    /// A message was announced that is longer than any may be: where the next one begins is not known.
    [[nodiscard]] bool is_broken() const noexcept { return is_broken_; }

  private:
    std::string bytes_;
    bool is_broken_ = false;
};

}  // namespace vantlow
