#include "app/window/model/links.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <optional>
#include <unordered_set>

#include "base/text.h"
#include "engine/category_rules.h"
#include "engine/kinds.h"
#include "store/address.h"
#include "transfer/http/head.h"

namespace vantlow {
namespace {

constexpr std::size_t most_links = 10000;
constexpr std::size_t longest_link = 16384;
constexpr std::size_t longest_text = std::size_t{16} << 20U;  ///< of a clipboard or a drop, bytes
constexpr std::size_t longest_pattern = 64;

/// Links in their order, each once.
class LinkList {
  public:
    void add(std::string link) {
        if (links_.size() < most_links && link.size() <= longest_link && is_fetchable(to_utf16(link)) &&
            seen_.insert(link).second)
            links_.push_back(std::move(link));
    }
    [[nodiscard]] bool is_full() const noexcept { return links_.size() >= most_links; }
    std::vector<std::string> take() { return std::move(links_); }

  private:
    std::vector<std::string> links_;
    std::unordered_set<std::string> seen_;
};

constexpr std::array schemes{"http://", "https://", "ftp://",   "ftps://",     "sftp://", "mms://",
                             "rtsp://", "rtmp://",  "magnet:?", "metalink://", "bt://"};

bool ends_link(unsigned char c) noexcept {
    return c <= ' ' || c == '<' || c == '>' || c == '"' || c == 0x7F;
}

// Punctuation of the sentence around a link is no part of it; a bracket is one where it has its partner.
std::string_view without_punctuation(std::string_view link) {
    constexpr std::string_view closing = ")]}";
    constexpr std::string_view opening = "([{";
    while (!link.empty()) {
        const char last = link.back();
        const auto bracket = closing.find(last);
        const bool lonely = bracket != std::string_view::npos &&
                            std::ranges::count(link, last) > std::ranges::count(link, opening[bracket]);
        if (!lonely && std::string_view(".,;:!?'*").find(last) == std::string_view::npos) break;
        link.remove_suffix(1);
    }
    return link;
}

// The end of a link within a text: blanks, quotation marks, and the punctuation of East Asian sentences.
std::size_t end_of_link(std::string_view text, std::size_t begin) noexcept {
    std::size_t end = begin;
    while (end < text.size() && !ends_link(static_cast<unsigned char>(text[end]))) {
        // U+3000 to U+303F, U+FF00 to U+FF3F
        const std::string_view rest = text.substr(end);
        if (rest.starts_with("\xE3\x80") || rest.starts_with("\xEF\xBC")) break;
        ++end;
    }
    return end;
}

bool is_word(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// ---- HTML, as far as links need it: tags, attributes, character references.

std::string unescape_html(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, char>, 5> named{
        {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};
    std::string made;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto end = text[i] == '&' ? text.substr(0, i + 12).find(';', i) : std::string_view::npos;
        if (end == std::string_view::npos) {
            made += text[i];
            continue;
        }
        const std::string_view name = text.substr(i + 1, end - i - 1);
        const auto* const known = std::ranges::find(named, name, &std::pair<std::string_view, char>::first);
        std::optional<std::int64_t> number;
        if (name.starts_with("#x") || name.starts_with("#X"))
            number = parse_hexadecimal(name.substr(2));
        else if (name.starts_with('#'))
            number = parse_decimal(name.substr(1));
        if (known != named.end()) {
            made += known->second;
        } else if (number && *number > 0 && *number < 0xD800) {
            made += to_utf8(std::u16string(1, static_cast<char16_t>(*number)));
        } else {
            made += text[i];
            continue;
        }
        i = end;
    }
    return made;
}

struct Attribute {
    std::string name;  ///< lower case
    std::string value;
};

// Reads a tag's attributes from behind its name; `at` moves behind the tag.
std::vector<Attribute> read_attributes(std::string_view html, std::size_t& at) {
    std::vector<Attribute> attributes;
    const auto is_blank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r') || c == '/'; };
    while (at < html.size() && html[at] != '>') {
        if (is_blank(html[at])) {
            ++at;
            continue;
        }
        const std::size_t begin = at;
        while (at < html.size() && !is_blank(html[at]) && html[at] != '=' && html[at] != '>') ++at;
        Attribute attribute{ascii_lower(html.substr(begin, at - begin)), {}};
        while (at < html.size() && is_blank(html[at]) && html[at] != '/') ++at;
        if (at < html.size() && html[at] == '=') {
            ++at;
            while (at < html.size() && is_blank(html[at]) && html[at] != '/') ++at;
            const char quote = at < html.size() && (html[at] == '"' || html[at] == '\'') ? html[at] : '\0';
            if (quote != '\0') ++at;
            const std::size_t value = at;
            while (at < html.size() &&
                   (quote != '\0' ? html[at] != quote
                                  : html[at] != '>' && (html[at] == '/' || !is_blank(html[at]))))
                ++at;
            attribute.value = unescape_html(trim(html.substr(value, at - value)));
            if (quote != '\0' && at < html.size()) ++at;
        } else if (at == begin) {
            ++at;  // a lonely sign
        }
        attributes.push_back(std::move(attribute));
    }
    if (at < html.size()) ++at;
    return attributes;
}

const std::string* find_value(const std::vector<Attribute>& attributes, std::string_view name) {
    const auto at = std::ranges::find(attributes, name, &Attribute::name);
    return at == attributes.end() ? nullptr : &at->value;
}

std::string joined(const std::string& link, std::string_view base) {
    const LinkKind kind = link.find(':') == std::string::npos ? LinkKind::unknown : link_kind(to_utf16(link));
    if (kind == LinkKind::torrent || kind == LinkKind::metafile) return link;
    const auto target = parse_target(to_utf16(base));
    const bool joins = target && (target->scheme == "http" || target->scheme == "https");
    if (!joins) return link;
    return resolve_redirect(link, {target->scheme, target->host_text(), target->port, target->path});
}

// The description that the clipboard's format gives of itself stands in lines before the page:
// "SourceURL:http://..."
std::string_view take_clipboard_head(std::string_view html, std::string& base) {
    if (!html.starts_with("Version:")) return html;
    const std::size_t end = std::min(html.find('<'), html.size());
    for (std::string_view line : split(html.substr(0, end), '\n')) {
        constexpr std::string_view key = "SourceURL:";
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.starts_with(key)) base = line.substr(key.size());
    }
    return html.substr(end);
}

// ---- Patterns

struct Pattern {
    std::size_t begin = 0;  ///< of "[" in the address
    std::size_t end = 0;    ///< behind "]"
    std::uint64_t first = 0;
    std::uint64_t count = 1;
    std::uint64_t step = 1;
    bool down = false;
    std::size_t width = 0;  ///< of numbers, with zeros in front
    bool letters = false;

    [[nodiscard]] std::string value(std::uint64_t index) const {
        const std::uint64_t number = down ? first - index * step : first + index * step;
        if (letters) return {static_cast<char>(number)};
        std::string text = std::to_string(number);
        return std::string(width > text.size() ? width - text.size() : 0, '0') + text;
    }
};

// Reads "1-20", "001-100", "0-100:10", "a-z"; false for anything else.
bool read_pattern(std::string_view text, Pattern& pattern) {
    if (const auto colon = text.rfind(':'); colon != std::string_view::npos) {
        const auto step = parse_decimal(text.substr(colon + 1));
        if (!step || *step < 1) return false;
        pattern.step = static_cast<std::uint64_t>(*step);
        text = text.substr(0, colon);
    }
    const auto dash = text.find('-');
    if (dash == std::string_view::npos) return false;
    const std::string_view from = text.substr(0, dash);
    const std::string_view to = text.substr(dash + 1);
    std::uint64_t last = 0;
    const auto is_letter = [](std::string_view one) {
        return one.size() == 1 && is_word(one[0]) && one[0] > '9';
    };
    if (is_letter(from) && is_letter(to)) {
        const auto case_of = [](char c) { return c >= 'a'; };
        if (case_of(from[0]) != case_of(to[0])) return false;
        pattern.letters = true;
        pattern.first = static_cast<unsigned char>(from[0]);
        last = static_cast<unsigned char>(to[0]);
    } else {
        const auto first_number = parse_decimal(from);
        const auto last_number = parse_decimal(to);
        if (!first_number || !last_number) return false;
        pattern.first = static_cast<std::uint64_t>(*first_number);
        last = static_cast<std::uint64_t>(*last_number);
        if (from.size() > 1 && from[0] == '0') pattern.width = from.size();
    }
    pattern.down = last < pattern.first;
    const std::uint64_t distance = pattern.down ? pattern.first - last : last - pattern.first;
    pattern.count = distance / pattern.step + 1;
    return true;
}

std::vector<Pattern> patterns_in(std::string_view address) {
    std::vector<Pattern> patterns;
    for (std::size_t at = address.find('['); at != std::string_view::npos; at = address.find('[', at + 1)) {
        const std::string_view inside = address.substr(at + 1, longest_pattern);
        const auto length = inside.find(']');
        Pattern pattern;
        if (length == std::string_view::npos || !read_pattern(inside.substr(0, length), pattern)) continue;
        pattern.begin = at;
        pattern.end = at + length + 2;
        patterns.push_back(pattern);
    }
    return patterns;
}

}  // namespace

std::vector<std::string> links_in_text(std::string_view text) {
    text = text.substr(0, longest_text);
    LinkList list;
    for (std::size_t at = 0; at < text.size() && !list.is_full();) {
        // Most letters of a text of megabytes stand within a word.
        const std::string_view rest = text.substr(at);
        const bool begins =
            (at == 0 || !is_word(text[at - 1])) &&
            std::ranges::any_of(schemes, [rest](const char* one) { return istarts_with(rest, one); });
        if (!begins) {
            ++at;
            continue;
        }
        const std::size_t end = end_of_link(text, at);
        list.add(std::string(without_punctuation(text.substr(at, end - at))));
        at = end;
    }
    return list.take();
}

std::vector<std::string> links_in_html(std::string_view html, std::string_view base) {
    LinkList list;
    std::string site(base);
    html = html.substr(0, longest_text);
    html = take_clipboard_head(html, site);
    for (std::size_t at = html.find('<'); at != std::string_view::npos && !list.is_full();
         at = html.find('<', at)) {
        if (html.substr(at).starts_with("<!--")) {
            const auto end = html.find("-->", at + 4);
            at = end == std::string_view::npos ? html.size() : end + 3;
            continue;
        }
        std::size_t behind = ++at;
        while (behind < html.size() && is_word(html[behind])) ++behind;
        if (behind == at) continue;  // an end, a declaration
        const std::string tag = ascii_lower(html.substr(at, behind - at));
        at = behind;
        const std::vector<Attribute> attributes = read_attributes(html, at);
        const bool is_media =
            tag == "video" || tag == "audio" || tag == "source" || tag == "embed" || tag == "track";
        const std::string* link = find_value(attributes, is_media ? "src" : "href");
        if (tag == "base" && link != nullptr && !link->empty()) site = joined(*link, site);
        if (tag == "script" || tag == "style") {
            const auto end = html.find("</", at);
            at = end == std::string_view::npos ? html.size() : end;
        }
        if (link == nullptr || link->empty() || !(is_media || tag == "a" || tag == "area")) continue;
        list.add(joined(*link, site));
    }
    return list.take();
}

std::vector<std::string> links_in_shortcut(std::string_view text) {
    constexpr std::string_view key = "URL=";
    LinkList list;
    for (std::string_view line : split(text.substr(0, longest_text), '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (istarts_with(line, key)) list.add(std::string(trim(line.substr(key.size()))));
    }
    return list.take();
}

std::vector<std::string> links_by_rule(std::vector<std::string> links, std::string_view rule) {
    const auto read = parse_category_rule(rule);
    if (!read || (read->endings.empty() && read->hosts.empty())) return links;
    std::erase_if(links, [rules = std::vector{*read}](const std::string& link) {
        return !category_by(rules, to_utf16(link), {}).has_value();
    });
    return links;
}

std::u16string_view scheme_of_server(std::u16string_view address) noexcept {
    constexpr std::u16string_view schemes[] = {u"http://", u"https://", u"ftp://", u"ftps://", u"sftp://"};
    for (const std::u16string_view scheme : schemes) {
        if (istarts_with(address, scheme)) return scheme;
    }
    return {};
}

PatternLinks expand_patterns(std::string_view address, std::size_t at_most) {
    const std::vector<Pattern> patterns = patterns_in(address);
    PatternLinks made;
    for (const Pattern& pattern : patterns) {
        const bool fits = made.count <= std::numeric_limits<std::uint64_t>::max() / pattern.count;
        made.count = fits ? made.count * pattern.count : std::numeric_limits<std::uint64_t>::max();
    }
    for (std::uint64_t i = 0; i < made.count && i < at_most; ++i) {
        std::uint64_t rest = i;
        std::string link(address);
        // From behind, so that the places of those in front stay.
        for (auto pattern = patterns.rbegin(); pattern != patterns.rend(); ++pattern) {
            link.replace(pattern->begin, pattern->end - pattern->begin,
                         pattern->value(rest % pattern->count));
            rest /= pattern->count;
        }
        made.links.push_back(std::move(link));
    }
    return made;
}

}  // namespace vantlow
