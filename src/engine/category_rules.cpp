#include "engine/category_rules.h"

#include <algorithm>

#include "base/text.h"
#include "bt/magnet.h"
#include "engine/kinds.h"
#include "store/address.h"

namespace vantlow {
namespace {

constexpr std::size_t longest_word = 253;  // of a host's name (RFC 1035)

bool is_between(char c) noexcept {
    return c == ' ' || c == '\t' || c == ',' || c == ';';
}

std::vector<std::string_view> words_of(std::string_view text) {
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const auto* const begin = std::ranges::find_if_not(text, is_between);
        const auto* const end = std::find_if(begin, text.end(), is_between);
        if (begin != end) words.emplace_back(begin, end);
        text = {end, text.end()};
    }
    return words;
}

// Returns the ending that is meant, with its dot; empty where the word is none.
std::string ending_in(std::string_view word) {
    if (word.starts_with("*.")) word.remove_prefix(1);
    if (word.size() < 2 || word[0] != '.' || word.find_first_of("/\\:*?\"<>|") != std::string_view::npos)
        return {};
    return ascii_lower(word);
}

// Returns the host in the form that addresses have it; empty where the word is none.
std::string host_in(std::string_view word) {
    if (word.starts_with('.') || word.find_first_of("/\\:@?#*") != std::string_view::npos) return {};
    const auto target = parse_target(u"http://" + to_utf16(word) + u"/");
    return target ? ascii_lower(target->host) : std::string();
}

// Returns the name that an address, or the path of a document, gives its file; lower case.
std::string name_in(std::u16string_view address, std::string_view path) {
    if (kind_of_address(address) == JobKind::torrent) {
        const auto magnet = parse_magnet(to_utf8(address), {});
        return magnet ? ascii_lower(percent_decode(magnet->name)) : std::string();
    }
    path = path.substr(0, path.find('?'));
    return ascii_lower(percent_decode(path.substr(path.find_last_of("/\\") + 1)));
}

bool is_at(std::string_view host, std::string_view rule) {
    return host.ends_with(rule) && (host.size() == rule.size() || host[host.size() - rule.size() - 1] == '.');
}

// A name that is nothing but the ending does not have it.
bool has_ending(std::string_view name, std::string_view ending) {
    return name.size() > ending.size() && name.ends_with(ending);
}

}  // namespace

std::optional<CategoryRule> parse_category_rule(std::string_view text, const Guid& category) {
    CategoryRule rule{category, {}, {}};
    for (const std::string_view word : words_of(text)) {
        if (word.size() > longest_word) return std::nullopt;
        std::string ending = ending_in(word);
        std::string host = ending.empty() ? host_in(word) : std::string();
        if (ending.empty() && host.empty()) return std::nullopt;
        std::vector<std::string>& list = ending.empty() ? rule.hosts : rule.endings;
        std::string& one = ending.empty() ? host : ending;
        if (std::ranges::find(list, one) == list.end()) list.push_back(std::move(one));
    }
    return rule;
}

std::string text_of(const CategoryRule& rule) {
    std::string text;
    for (const auto* list : {&rule.endings, &rule.hosts}) {
        for (const std::string& word : *list) text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

std::optional<Guid> category_by(const std::vector<CategoryRule>& rules, std::u16string_view address,
                                std::u16string_view name) {
    if (rules.empty()) return std::nullopt;
    const auto target = parse_target(address);
    const std::string host = target ? ascii_lower(target->host) : std::string();
    const std::string own = name.empty() ? name_in(address, target ? target->path : to_utf8(address))
                                         : ascii_lower(to_utf8(name));
    std::optional<Guid> found;
    std::size_t best = 0;
    const auto look = [&](bool fits, std::size_t length, const Guid& category) {
        if (!fits || length <= best) return;
        best = length;
        found = category;
    };
    for (const CategoryRule& rule : rules) {
        for (const std::string& ending : rule.endings)
            look(has_ending(own, ending), ending.size(), rule.category);
        // Every host goes before every ending.
        for (const std::string& one : rule.hosts)
            look(is_at(host, one), longest_word + one.size(), rule.category);
    }
    return found;
}

}  // namespace vantlow
