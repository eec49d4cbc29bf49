#include "transfer/ftp/ftp_path.h"

#include "base/text.h"

namespace vantlow {
namespace {

// Takes ";type=x" off the end.
char take_type(std::string_view& path) {
    constexpr std::string_view mark = ";type=";
    if (path.size() < mark.size() + 1) return 'i';
    const std::string_view end = path.substr(path.size() - mark.size() - 1);
    if (!istarts_with(end, mark)) return 'i';
    path.remove_suffix(end.size());
    return ascii_lower(end.back());
}

bool fits_a_command(std::string_view text) noexcept {
    constexpr std::string_view breaking("\r\n\0", 3);
    return text.find_first_of(breaking) == std::string_view::npos;
}

}  // namespace

std::optional<FtpPath> parse_ftp_path(std::string_view path) {
    if (path.starts_with('/')) path.remove_prefix(1);
    FtpPath result;
    result.type = take_type(path);
    const auto slash = path.rfind('/');
    const std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
    std::string file = percent_decode(last);
    std::string folder;
    if (slash != std::string_view::npos) {
        bool first = true;
        for (const std::string_view part : split(path.substr(0, slash), '/')) {
            // A root that was written as %2F needs no further slash behind it.
            if (!first && (folder.empty() || folder.back() != '/')) folder += '/';
            folder += percent_decode(part);
            first = false;
        }
        // "ftp://host//dir/name": the empty first part is how many people write the root.
        if (folder.empty() && slash == 0) folder += '/';
    }
    // An escaped slash in the name belongs to the folder: "%2Fetc%2Fhosts".
    if (const auto inner = file.rfind('/'); inner != std::string::npos) {
        const std::string more = file.substr(0, inner == 0 ? 1 : inner);
        folder = folder.empty() || more.front() == '/' ? more : folder + "/" + more;
        file.erase(0, inner + 1);
    }
    if (!fits_a_command(file) || !fits_a_command(folder)) return std::nullopt;
    result.folder = std::move(folder);
    result.file = std::move(file);
    return result;
}

bool is_binary_name(std::string_view name, std::string_view extensions) noexcept {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos) return false;
    const std::string_view own = name.substr(dot);
    while (!extensions.empty()) {
        const auto end = extensions.find(';');
        if (iequals(trim(extensions.substr(0, end)), own)) return true;
        if (end == std::string_view::npos) break;
        extensions.remove_prefix(end + 1);
    }
    return false;
}

}  // namespace vantlow
