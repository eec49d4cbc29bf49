// Links out of texts, pages and patterns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// The links in a text, each once, in their order: one a line or between blanks, with trailing punctuation
/// taken off; of HTML, the addresses of links. Only links that the program can fetch (is_fetchable(),
/// engine/kinds.h). At most 10,000, out of the first 16 MiB.
std::vector<std::string> links_in_text(std::string_view text);
/// The links of an HTML document or fragment ("href", "src" of media), relative ones joined to `base` where
/// it is not empty. The header of the Windows clipboard format "HTML Format" is read for its base.
std::vector<std::string> links_in_html(std::string_view html, std::string_view base = {});

/// The link of a file that is nothing but one: an internet shortcut of Windows (".url"), or a desktop entry
/// of the type Link (Desktop Entry Specification 1.5). Empty where it holds none that can be fetched.
std::vector<std::string> links_in_shortcut(std::string_view text);
/// The links that have one of these endings or servers (parse_category_rule(), engine/category_rules.h); all
/// of them where the rule is empty or cannot be read.
std::vector<std::string> links_by_rule(std::vector<std::string> links, std::string_view rule);

/// The scheme of an address, with its "://", where a server of HTTP, FTP, SFTP or their secured forms is
/// named by it; else empty.
std::u16string_view scheme_of_server(std::u16string_view address) noexcept;

/// An address with patterns: "[1-20]", "[001-100]" (leading zeros are kept), "[0-100:10]" (a step),
/// "[a-z]", "[A-Z]". Several patterns make all combinations, the last one counting fastest. Brackets that
/// are no pattern, as of IPv6 addresses, stay as they are.
struct PatternLinks {
    std::vector<std::string> links;  ///< the first ones, `at_most`
    std::uint64_t count = 1;         ///< of all of them; the largest number where there are more
};
PatternLinks expand_patterns(std::string_view address, std::size_t at_most);
inline constexpr std::uint64_t most_pattern_links = 10000;  ///< more are refused

}  // namespace vantlow
