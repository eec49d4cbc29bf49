// The page that the control API's endpoint serves at "/": files that are inside the program (web/,
// languages/).
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>

namespace vantlow {

/// One file. Its text lives as long as the program.
struct PageFile {
    std::string_view path;     ///< "/app.js"
    std::string_view content;  ///< bytes
    std::string_view tag;  ///< an entity tag (RFC 9110, 8.8.3), with its quotes: another one for other bytes
};

/// All files. The build makes this table (cmake/EmbedPage.cmake).
std::span<const PageFile> page_files() noexcept;

/// An answer to GET.
struct PageAnswer {
    unsigned status = 200;  ///< or 304: the client has the file already, and no body is sent
    std::string_view type;  ///< media type, with its character set
    std::string_view body;
    std::string_view tag;
};

/// The answer for a path without its query; none where no file has it. `if_none_match`: that header, empty
/// without one. Any thread.
std::optional<PageAnswer> find_page(std::string_view path, std::string_view if_none_match,
                                    std::span<const PageFile> files = page_files()) noexcept;

struct PageHeader {
    std::string_view name;
    std::string_view value;
};
/// The headers of every answer. Nothing comes from elsewhere, no script or style stands in a document, no
/// other page can frame this one. It is asked for anew each time, which costs little where it is the same.
inline constexpr std::array page_headers{
    PageHeader{"Content-Security-Policy",
               "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
               "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    PageHeader{"Cross-Origin-Opener-Policy", "same-origin"},
    PageHeader{"Cross-Origin-Resource-Policy", "same-origin"},
    PageHeader{"Referrer-Policy", "no-referrer"},
    PageHeader{"X-Content-Type-Options", "nosniff"},
    PageHeader{"Cache-Control", "no-cache"},
};

}  // namespace vantlow
