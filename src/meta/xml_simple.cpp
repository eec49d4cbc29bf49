#include "meta/xml_simple.h"

#include <array>
#include <utility>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr auto none = std::string_view::npos;
constexpr std::string_view white = " \t\r\n\f\v";

// The character that "#65" or "#x41" names, as UTF-8; empty when it names none.
std::string numeric_reference(std::string_view name) {
    name.remove_prefix(1);
    const bool hexadecimal = name.starts_with('x') || name.starts_with('X');
    const auto number = hexadecimal ? parse_hexadecimal(name.substr(1)) : parse_decimal(name);
    constexpr std::int64_t last = 0x10FFFF;
    if (!number || *number == 0 || *number > last) return {};
    if (*number >= 0xD800 && *number <= 0xDFFF) return {};
    std::u16string units;
    if (*number < 0x10000) {
        units += static_cast<char16_t>(*number);
    } else {
        units += static_cast<char16_t>(0xD800 + ((*number - 0x10000) >> 10));
        units += static_cast<char16_t>(0xDC00 + ((*number - 0x10000) & 0x3FF));
    }
    return to_utf8(units);
}

std::string entity_value(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 5> known{
        {{"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"apos", "'"}}};
    if (name.starts_with('#')) return numeric_reference(name);
    for (const auto& [entity, value] : known) {
        if (iequals(name, entity)) return std::string(value);
    }
    return {};
}

}  // namespace

CXMLSimple::CXMLSimple(std::string document) : text_(std::move(document)), lower_(ascii_lower(text_)) {}

std::optional<XmlElement> CXMLSimple::find_element(const XmlText& within, std::string_view tag) {
    const std::string opening = "<" + std::string(tag);
    const auto begin = within.lower.find(opening);
    if (begin == none) return std::nullopt;
    const auto tag_end = within.lower.find('>', begin);
    if (tag_end == none) return std::nullopt;
    std::size_t end = tag_end + 1;
    if (within.lower[tag_end - 1] != '/') {
        const std::string closing = "</" + std::string(tag) + ">";
        const auto close = within.lower.find(closing, begin);
        if (close == none) return std::nullopt;
        end = close + closing.size();
    }
    return XmlElement{within.part(begin, end - begin), end};
}

std::optional<std::string_view> CXMLSimple::attribute(const XmlText& element, std::string_view name) {
    const auto end = element.text.find('>');
    const XmlText tag = element.part(0, end);
    const auto at = tag.lower.find(name);
    const auto equals = at == none ? none : tag.text.find('=', at + name.size());
    if (equals == none) return std::nullopt;
    std::string_view value = tag.text.substr(equals + 1);
    value.remove_prefix(std::min(value.find_first_not_of(white), value.size()));
    if (value.starts_with('"') || value.starts_with('\'')) {
        const char quote = value.front();
        value.remove_prefix(1);
        return value.substr(0, value.find(quote));
    }
    if (value.ends_with('/')) value.remove_suffix(1);  // that of "/>"
    return value.substr(0, value.find_first_of(white));
}

std::string_view CXMLSimple::content(const XmlText& element) {
    constexpr std::string_view cdata = "<![CDATA[";
    constexpr std::string_view cdata_end = "]]>";
    const auto begin = element.text.find('>');
    const auto end = element.text.rfind('<');
    if (begin == none || end == none || end <= begin) return {};
    std::string_view text = trim_space(element.text.substr(begin + 1, end - begin - 1));
    if (text.starts_with(cdata) && text.ends_with(cdata_end)) {
        text = trim_space(text.substr(cdata.size(), text.size() - cdata.size() - cdata_end.size()));
    }
    return text;
}

std::string_view trim_space(std::string_view text) noexcept {
    const auto first = text.find_first_not_of(white);
    if (first == none) return {};
    return text.substr(first, text.find_last_not_of(white) - first + 1);
}

std::string decode_entities(std::string_view text) {
    constexpr std::size_t longest = 10;  // "#x0010FFFF"
    std::string decoded;
    for (auto mark = text.find('&'); mark != none; mark = text.find('&')) {
        decoded += text.substr(0, mark);
        text.remove_prefix(mark + 1);
        const auto end = text.substr(0, longest + 1).find(';');
        const std::string value = end == none ? std::string() : entity_value(text.substr(0, end));
        decoded += value.empty() ? "&" : value;
        if (!value.empty()) text.remove_prefix(end + 1);
    }
    return decoded.append(text);
}

}  // namespace vantlow
