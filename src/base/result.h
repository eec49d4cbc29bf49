// The results of the transfer code: one code, one intrinsic kind, one sentence for the person.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vantlow {

/// The codes that travel up from sockets, servers and files to the thread that decides what comes next.
/// Zero and above are successes, negative values failures. The values are stable: they are printed by
/// `--json` and stored with a job.
enum class Code : std::int32_t {
    ok = 0,
    finished_empty = 2,         ///< the resource has no bytes: the job is done at once
    cancelled = -1,             ///< the overwrite rule cancelled the job
    cannot_resume = -5,         ///< the server sent the whole file for a range and resuming is switched off
    server_error = -6,          ///< an answer that a repetition will not mend (404, 410, ...)
    not_resolved = -7,          ///< the name has no address
    invalid_url = -8,           ///< the address cannot be read
    too_many_redirects = -9,    ///< more than 20 in a row
    unsupported = -10,          ///< a scheme, an encoding or a library that is not there
    keeps_changing = -13,       ///< the resource changed again each time the job started over
    size_differs = -14,         ///< the total size is not the one that the job recorded
    resource_changed = -15,     ///< a validator or the bytes at a joint say that this is another version
    other_content = -16,        ///< something else than the file, such as a page that asks for a login
    credentials_refused = -20,  ///< the server wants other credentials
    not_trusted = -21,          ///< the certificate of the server was not trusted
    hash_differs = -22,         ///< the finished file is not the one that was asked for
    transient = -30,            ///< the connection broke, was closed or timed out
    busy = -31,                 ///< the server asked to come back later (408, 429, 5xx)
    range_ignored = -32,        ///< the server does not fulfil the range that was asked for
    joint_unsure = -33,         ///< ask again with an overlap: the validators cannot tell the versions apart
    moved = -34,                ///< redirected to an address of another protocol, which is asked next
    stopped = -50,              ///< the job was stopped while it waited or received
    handed_over = -51,          ///< the segment was given to another connection
    local_file = -60,           ///< the local file could not be created, written or extended
    tunnel_refused = -80,       ///< the proxy refused, and will refuse again
    proxy_refused = -91,        ///< the proxy refused for another reason
};

/// The next step that a code asks of its reader, whoever it is.
enum class Kind {
    done,         ///< nothing is left to do
    retry_later,  ///< the same again, after a pause
    next_mirror,  ///< this source is of no use, another may be
    restart,      ///< what was received is of another version: begin at zero
    ask_user,     ///< a decision, a password or some room on the disk is needed
    final,        ///< trying again will give the same answer
    stopped,      ///< the person stopped it
};

/// The kind of a code. Every code has exactly one; codes that are not listed count as final.
Kind kind_of(Code code) noexcept;

/// A short English sentence for a code, for messages that have nothing better to say.
std::string_view describe(Code code) noexcept;

/// A code with what is known beside it. Cheap to pass while all is well: no memory is held then.
struct [[nodiscard]] Result {
    Code code = Code::ok;
    int system_error = 0;            ///< the operating system's number, 0 where none belongs to the failure
    std::string detail;              ///< UTF-8 sentence for the person; empty: describe(code) serves
    bool about_credentials = false;  ///< a refusal for want of the right user name and password

    Result() = default;
    Result(Code c) : code(c) {}  // NOLINT(google-explicit-constructor): codes are results
    Result(Code c, std::string text, int error = 0) : code(c), system_error(error), detail(std::move(text)) {}

    [[nodiscard]] bool ok() const noexcept { return code >= Code::ok; }
    [[nodiscard]] Kind kind() const noexcept { return kind_of(code); }
    [[nodiscard]] std::string message() const {
        return detail.empty() ? std::string(describe(code)) : detail;
    }
};

/// Either a value or the result that says why there is none.
template <class T>
class [[nodiscard]] Outcome {
  public:
    Outcome(T value) : value_(std::move(value)) {}             // NOLINT(google-explicit-constructor)
    Outcome(Result failure) : failure_(std::move(failure)) {}  // NOLINT(google-explicit-constructor)
    Outcome(Code failure) : failure_(failure) {}               // NOLINT(google-explicit-constructor)

    [[nodiscard]] bool ok() const noexcept { return value_.has_value(); }
    explicit operator bool() const noexcept { return ok(); }
    T& operator*() & { return *value_; }
    const T& operator*() const& { return *value_; }
    T&& operator*() && { return *std::move(value_); }
    T* operator->() { return &*value_; }
    const T* operator->() const { return &*value_; }
    /// The failure; meaningful only where ok() is false.
    [[nodiscard]] const Result& failure() const noexcept { return failure_; }

  private:
    std::optional<T> value_;
    Result failure_;
};

}  // namespace vantlow
