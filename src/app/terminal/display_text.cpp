#include "app/terminal/display_text.h"

#include <algorithm>
#include <vector>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::string_view ellipsis = "\u2026";
// Real scripts put fewer marks on one character; without a bound a name could fill the screen with them.
constexpr int most_marks = 8;

// A character with the marks that stand on it. A text may be cut between two clusters only.
struct Cluster {
    std::u16string text;
    int columns = 1;
    int marks = 0;
};

bool is_surrogate(char32_t c) noexcept {
    return c >= 0xD800 && c <= 0xDFFF;
}

// Takes the character at `at` and moves on; a lone surrogate comes as it is.
char32_t next_character(std::u16string_view text, std::size_t& at) noexcept {
    const char32_t first = text[at++];
    if (first < 0xD800 || first > 0xDBFF || at >= text.size()) return first;
    const char32_t second = text[at];
    if (second < 0xDC00 || second > 0xDFFF) return first;
    ++at;
    return 0x10000 + ((first - 0xD800) << 10U) + (second - 0xDC00);
}

bool is_harmful(char32_t c) noexcept {
    const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
    const bool turns = c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
                       (c >= 0x2066 && c <= 0x2069);
    return control || turns || is_surrogate(c) || (c & 0xFFFEU) == 0xFFFE;
}

// True for the zero width joiner and skin tones behind an emoji, and for the variation selector that makes
// one.
bool is_emoji_part(char32_t c, int columns_before) noexcept {
    return c == 0xFE0F || (columns_before == 2 && (c == 0x200D || (c >= 0x1F3FB && c <= 0x1F3FF)));
}

std::vector<Cluster> clusters_of(std::string_view utf8) {
    const std::u16string text = to_utf16(utf8);
    std::vector<Cluster> clusters;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        const char32_t c = next_character(text, at);
        if (is_harmful(c)) {
            clusters.push_back({u"?"});
            continue;
        }
        if (is_emoji_part(c, clusters.empty() ? 0 : clusters.back().columns)) continue;
        const std::u16string character = text.substr(start, at - start);
        const int columns = columns_of(c);
        if (columns > 0) {
            clusters.push_back({character, columns});
        } else if (!clusters.empty() && clusters.back().marks < most_marks) {
            clusters.back().text += character;
            ++clusters.back().marks;
        }
    }
    return clusters;
}

std::string join(const std::vector<Cluster>& clusters, std::size_t from, std::size_t to) {
    std::u16string text;
    for (std::size_t i = from; i < to; ++i) text += clusters[i].text;
    return to_utf8(text);
}

int sum_columns(const std::vector<Cluster>& clusters) noexcept {
    int columns = 0;
    for (const Cluster& cluster : clusters) columns += cluster.columns;
    return columns;
}

}  // namespace

std::string printable(std::string_view text) {
    const auto clusters = clusters_of(text);
    return join(clusters, 0, clusters.size());
}

int display_width(std::string_view text) {
    return sum_columns(clusters_of(text));
}

std::string shorten(std::string_view text, int columns) {
    const auto clusters = clusters_of(text);
    if (sum_columns(clusters) <= columns) return join(clusters, 0, clusters.size());
    if (columns <= 0) return {};
    int room = columns - 1;  // without the ellipsis
    std::size_t tail = clusters.size();
    for (int tail_room = room / 2; tail > 0 && clusters[tail - 1].columns <= tail_room; --tail) {
        tail_room -= clusters[tail - 1].columns;
        room -= clusters[tail - 1].columns;
    }
    std::size_t head = 0;
    for (; head < tail && clusters[head].columns <= room; ++head) room -= clusters[head].columns;
    return join(clusters, 0, head) + std::string(ellipsis) + join(clusters, tail, clusters.size());
}

}  // namespace vantlow
