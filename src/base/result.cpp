#include "base/result.h"

#include <array>

namespace vantlow {
namespace {

struct Row {
    Code code;
    Kind kind;
    std::string_view text;
};

// The one table that says what a code means; whoever decides reads kinds, not codes.
constexpr std::array rows{
    Row{Code::ok, Kind::done, "Done."},
    Row{Code::finished_empty, Kind::done, "The file is empty."},
    Row{Code::cancelled, Kind::ask_user, "The destination file exists."},
    Row{Code::cannot_resume, Kind::final,
        "The server cannot resume, and resuming by restart is switched off."},
    Row{Code::server_error, Kind::final, "HTTP server error."},
    Row{Code::not_resolved, Kind::final, "Host name not resolved."},
    Row{Code::invalid_url, Kind::final, "Invalid URL."},
    Row{Code::too_many_redirects, Kind::final, "Too many redirects."},
    Row{Code::unsupported, Kind::final, "Not supported."},
    Row{Code::keeps_changing, Kind::final, "The file on the server keeps changing."},
    Row{Code::size_differs, Kind::restart, "The size of the file on the server has changed."},
    Row{Code::resource_changed, Kind::restart, "The file on the server has changed."},
    Row{Code::other_content, Kind::final, "The server sends something other than the file."},
    Row{Code::credentials_refused, Kind::ask_user, "The server refused the credentials."},
    Row{Code::not_trusted, Kind::ask_user, "The certificate of the server is not trusted."},
    Row{Code::hash_differs, Kind::final, "The hash of the file does not match."},
    Row{Code::transient, Kind::retry_later, "The connection was broken."},
    Row{Code::busy, Kind::retry_later, "The server is busy."},
    Row{Code::range_ignored, Kind::retry_later,
        "The server does NOT fulfill the partial GET request for the resource."},
    Row{Code::joint_unsure, Kind::retry_later, "The version on the server must be compared."},
    Row{Code::moved, Kind::final, "The server redirects too often."},
    Row{Code::stopped, Kind::stopped, "Stopped."},
    Row{Code::handed_over, Kind::stopped, "Handed over to another connection."},
    Row{Code::local_file, Kind::ask_user, "Writing to file error."},
    Row{Code::tunnel_refused, Kind::next_mirror, "The proxy refused the connection."},
    Row{Code::proxy_refused, Kind::next_mirror, "The proxy refused the connection."},
};

const Row* find(Code code) noexcept {
    for (const Row& row : rows) {
        if (row.code == code) return &row;
    }
    return nullptr;
}

}  // namespace

Kind kind_of(Code code) noexcept {
    const Row* row = find(code);
    return row != nullptr ? row->kind : Kind::final;
}

std::string_view describe(Code code) noexcept {
    const Row* row = find(code);
    return row != nullptr ? row->text : "Unknown error.";
}

}  // namespace vantlow
