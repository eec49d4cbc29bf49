#include "meta/playlist.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "meta/xml_simple.h"

namespace vantlow {
namespace {

constexpr auto none = std::string_view::npos;

constexpr std::array<std::string_view, 5> asx_schemes{"mms://", "mmst://", "rtsp://", "rtspt://", "http://"};
constexpr std::array<std::string_view, 11> smil_schemes{"rtsp://",  "rtspt://", "http://",  "pnm://",
                                                        "rtmp://",  "rtmpt://", "rtmpe://", "rtmpte://",
                                                        "rtmps://", "mms://",   "mmst://"};
// "textstream" before "text": tags are found by their beginnings.
constexpr std::array<std::string_view, 7> media_tags{"video", "audio", "img",      "textstream",
                                                     "text",  "ref",   "animation"};

std::string document_text(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string value_of(const XmlText& element, std::string_view attribute) {
    return decode_entities(
        trim_space(CXMLSimple::attribute(element, attribute).value_or(std::string_view{})));
}

// The address in a line of plain text; empty when there is none, or the line is markup.
std::string_view address_in(std::string_view line, std::span<const std::string_view> schemes) {
    const std::string lower = ascii_lower(line);
    for (const std::string_view scheme : schemes) {
        const auto at = lower.find(scheme);
        if (at == none) continue;
        const std::string_view rest = line.substr(at);
        const auto end = scheme == "http://" ? rest.find_first_of("\"<'(&") : none;
        const std::string_view behind = end == none ? rest : rest.substr(end);
        if (behind.find('"') != none || behind.find("/>") != none) return {};
        return trim_space(rest.substr(0, end));
    }
    return {};
}

Playlist read_lines(std::string_view text, std::span<const std::string_view> schemes) {
    Playlist list;
    while (!text.empty()) {
        const auto end = std::min(text.find_first_of("\r\n"), text.size());
        const std::string_view url = address_in(text.substr(0, end), schemes);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (url.empty()) continue;
        CMetafileNode clip;
        clip.url = url;
        list.clips.push_back(std::move(clip));
    }
    return list;
}

double time_in(const XmlText& entry, std::string_view tag) {
    const auto element = CXMLSimple::find_element(entry, tag);
    return element ? clock_seconds(CXMLSimple::attribute(element->all, "value").value_or(std::string_view{}))
                   : 0;
}

void read_entry(const XmlText& entry, Playlist& list) {
    CMetafileNode clip;
    clip.base = list.base;
    clip.start = time_in(entry, "starttime");
    clip.end = clip.start + time_in(entry, "duration");
    if (const auto title = CXMLSimple::find_element(entry, "title")) {
        clip.title = decode_entities(CXMLSimple::content(title->all));
    }
    XmlSiblings references(entry, "ref");
    while (const auto reference = references.next()) {
        clip.url = value_of(*reference, "href");
        const bool is_taken =
            std::any_of(asx_schemes.begin(), asx_schemes.end(),
                        [&](std::string_view scheme) { return istarts_with(clip.url, scheme); });
        if (is_taken) list.clips.push_back(clip);
    }
}

std::string smil_base(const XmlText& smil) {
    const auto head = CXMLSimple::find_element(smil, "head");
    if (!head) return {};
    XmlSiblings entries(head->all.inside(), "meta");
    while (const auto entry = entries.next()) {
        const auto name = CXMLSimple::attribute(*entry, "name");
        std::string base;
        if (!name) base = value_of(*entry, "base");
        if (name && iequals(*name, "base")) base = value_of(*entry, "content");
        if (!base.empty()) return base;
    }
    return {};
}

// SMIL 1.0 wrote "clip-begin".
double clip_time(const XmlText& element, std::string_view name, std::string_view old_name) {
    auto value = CXMLSimple::attribute(element, name);
    if (!value) value = CXMLSimple::attribute(element, old_name);
    return clock_seconds(value.value_or(std::string_view{}));
}

// Walks through the body's tags in their order. A tag that was not closed once is not closed later either,
// and the next ">" is the same for all tags in front of it: remembering both keeps the walk in one pass.
class MediaElements {
  public:
    explicit MediaElements(const XmlText& body) : left_(body) {}

    std::optional<XmlText> next() {
        for (auto at = left_.lower.find('<'); at != none; at = left_.lower.find('<')) {
            left_ = left_.from(at);
            const auto tag = tag_here();
            const auto element = tag ? CXMLSimple::find_element(left_, media_tags[*tag]) : std::nullopt;
            if (element) {
                left_ = left_.from(element->next);
                return element->all;
            }
            if (tag) unclosed_[*tag] = true;
            left_ = left_.from(1);
        }
        return std::nullopt;
    }

  private:
    // Whether the tag at the front is an element by itself.
    [[nodiscard]] bool is_alone() {
        const std::size_t left = left_.lower.size();
        if (left < from_end_) from_end_ = left - std::min(left_.lower.find('>'), left);
        return from_end_ != 0 && left_.lower[left - from_end_ - 1] == '/';
    }

    [[nodiscard]] std::optional<std::size_t> tag_here() {
        const std::string_view name = left_.lower.substr(1);
        for (std::size_t i = 0; i < media_tags.size(); ++i) {
            if (!name.starts_with(media_tags[i])) continue;
            return unclosed_[i] && !is_alone() ? std::nullopt : std::optional(i);
        }
        return std::nullopt;
    }

    XmlText left_;
    std::array<bool, media_tags.size()> unclosed_{};
    std::size_t from_end_ = none;  // characters from the next ">" on; 0: there is none
};

// Digits with an optional fraction, taken off the front.
struct Amount {
    double value = 0;
    bool whole = false;  // without a fraction
    bool there = false;
};

Amount take_amount(std::string_view& text) noexcept {
    const auto is_digit = [&] { return !text.empty() && text.front() >= '0' && text.front() <= '9'; };
    constexpr std::size_t longest = 15;  // digits; no recording lasts that long, and a double holds them
    Amount amount;
    amount.whole = true;
    std::size_t length = 0;
    for (; is_digit(); text.remove_prefix(1)) {
        amount.value = amount.value * 10 + (text.front() - '0');
        ++length;
    }
    amount.there = length > 0 && length <= longest;
    if (!amount.there || !text.starts_with('.')) return amount;
    text.remove_prefix(1);
    amount.whole = false;
    double scale = 1;
    double fraction = 0;
    for (int digits = 0; is_digit(); text.remove_prefix(1)) {
        if (++digits > 9) continue;  // finer than anybody measures
        fraction = fraction * 10 + (text.front() - '0');
        scale *= 10;
    }
    amount.value += fraction / scale;
    return amount;
}

double unit_seconds(std::string_view unit) noexcept {
    constexpr std::array<std::pair<std::string_view, double>, 5> units{
        {{"", 1}, {"s", 1}, {"ms", 0.001}, {"min", 60}, {"h", 3600}}};
    for (const auto& [name, seconds] : units) {
        if (iequals(unit, name)) return seconds;
    }
    return 0;
}

}  // namespace

double clock_seconds(std::string_view text) noexcept {
    text = trim_space(text);
    if (istarts_with(text, "npt=")) text.remove_prefix(4);
    double seconds = 0;
    constexpr int most_parts = 3;
    for (int part = 0; part < most_parts; ++part) {
        const Amount amount = take_amount(text);
        if (!amount.there) return part > 1 ? seconds : 0;
        seconds = seconds * 60 + amount.value;
        const bool goes_on = text.starts_with(':') && amount.whole && part + 1 < most_parts;
        if (!goes_on) return part > 0 ? seconds : seconds * unit_seconds(trim_space(text));
        text.remove_prefix(1);
    }
    return seconds;
}

Playlist CASXSimple::read(std::span<const std::byte> bytes) {
    const CXMLSimple xml(document_text(bytes));
    const auto asx = CXMLSimple::find_element(xml.document(), "asx");
    if (!asx) return read_lines(xml.document().text, asx_schemes);
    const XmlText inside = asx->all.inside();
    Playlist list;
    if (const auto base = CXMLSimple::find_element(inside, "base")) {
        list.base = value_of(base->all, "href");
        if (!list.base.empty() && !list.base.ends_with('/')) list.base += '/';
    }
    XmlSiblings entries(inside, "entry");
    while (const auto entry = entries.next()) read_entry(entry->inside(), list);
    return list;
}

Playlist CSMILSimple::read(std::span<const std::byte> bytes) {
    const CXMLSimple xml(document_text(bytes));
    const auto smil = CXMLSimple::find_element(xml.document(), "smil");
    if (!smil) return read_lines(xml.document().text, smil_schemes);
    const XmlText inside = smil->all.inside();
    Playlist list;
    list.base = smil_base(inside);
    const auto body = CXMLSimple::find_element(inside, "body");
    if (!body) return list;
    MediaElements elements(body->all.inside());
    while (const auto element = elements.next()) {
        CMetafileNode clip;
        clip.base = list.base;
        clip.url = value_of(*element, "src");
        clip.title = value_of(*element, "title");
        clip.start = clip_time(*element, "clipbegin", "clip-begin");
        clip.end = clip_time(*element, "clipend", "clip-end");
        if (!clip.url.empty()) list.clips.push_back(std::move(clip));
    }
    return list;
}

}  // namespace vantlow
