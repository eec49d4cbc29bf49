#include "app/rpc/page.h"

#include <algorithm>

namespace vantlow {
namespace {

struct Type {
    std::string_view ending;
    std::string_view name;
};
constexpr std::array types{
    Type{".html", "text/html; charset=utf-8"},     Type{".js", "text/javascript; charset=utf-8"},
    Type{".css", "text/css; charset=utf-8"},       Type{".svg", "image/svg+xml"},
    Type{".lng", "text/plain; charset=utf-8"},     Type{".txt", "text/plain; charset=utf-8"},
    Type{".LICENSE", "text/plain; charset=utf-8"},
};

std::string_view type_of(std::string_view path) noexcept {
    const auto* const found =
        std::ranges::find_if(types, [path](const Type& type) { return path.ends_with(type.ending); });
    return found == types.end() ? std::string_view("application/octet-stream") : found->name;
}

}  // namespace

std::optional<PageAnswer> find_page(std::string_view path, std::string_view if_none_match,
                                    std::span<const PageFile> files) noexcept {
    if (path == "/") path = "/index.html";
    const auto found = std::ranges::find(files, path, &PageFile::path);
    if (found == files.end()) return std::nullopt;
    const std::string_view type = type_of(path);
    // The header lists tags; a weak comparison is meant (RFC 9110, 13.1.2). No tag is part of another one.
    const bool is_there = if_none_match == "*" || if_none_match.find(found->tag) != std::string_view::npos;
    if (is_there) return PageAnswer{304, type, {}, found->tag};
    return PageAnswer{200, type, found->content, found->tag};
}

}  // namespace vantlow
