#include "transfer/http/field_value.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "base/text.h"

namespace vantlow {
namespace {

// Takes the next piece off, up to a comma that stands in no quotes.
std::string_view next_piece(std::string_view& rest) {
    bool quoted = false;
    std::size_t at = 0;
    for (; at < rest.size(); ++at) {
        if (quoted && rest[at] == '\\') {
            ++at;
        } else if (rest[at] == '"') {
            quoted = !quoted;
        } else if (rest[at] == ',' && !quoted) {
            break;
        }
    }
    const std::string_view piece = rest.substr(0, std::min(at, rest.size()));
    rest.remove_prefix(std::min(at + 1, rest.size()));
    return piece;
}

}  // namespace

std::optional<Parameter> next_parameter(std::string_view& rest) {
    while (!rest.empty() && (rest.front() == ';' || rest.front() == ' ' || rest.front() == '\t'))
        rest.remove_prefix(1);
    if (rest.empty()) return std::nullopt;
    Parameter parameter;
    const auto end = std::min(rest.find_first_of("=;"), rest.size());
    parameter.name = ascii_lower(trim(rest.substr(0, end)));
    rest.remove_prefix(end);
    if (rest.empty() || rest.front() == ';') return parameter;
    rest.remove_prefix(1);
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    if (rest.empty() || rest.front() != '"') {
        const auto stop = std::min(rest.find(';'), rest.size());
        parameter.value = std::string(trim(rest.substr(0, stop)));
        rest.remove_prefix(stop);
        return parameter;
    }
    std::size_t at = 1;
    for (; at < rest.size() && rest[at] != '"'; ++at) {
        // Some servers send a Windows path unescaped: a backslash counts as an escape before a quote or
        // itself only.
        const bool escape =
            rest[at] == '\\' && at + 1 < rest.size() && (rest[at + 1] == '"' || rest[at + 1] == '\\');
        if (escape) ++at;
        parameter.value.push_back(rest[at]);
    }
    rest.remove_prefix(std::min(at + 1, rest.size()));
    return parameter;
}

std::vector<AuthChallenge> read_challenges(std::string_view value) {
    constexpr std::array known{"negotiate", "ntlm", "digest", "basic"};
    std::vector<AuthChallenge> found;
    bool skipping = true;  // the parameters of a scheme that is not known
    while (!value.empty()) {
        const std::string_view piece = trim(next_piece(value));
        const auto blank = std::min(piece.find_first_of(" \t"), piece.size());
        const std::string word = ascii_lower(piece.substr(0, blank));
        // "name=value" goes on with the challenge before; a word alone or before a blank begins one.
        if (word.empty() || word.find('=') != std::string::npos) {
            if (!skipping && !piece.empty())
                found.back().text += (found.back().text.empty() ? "" : ", ") + std::string(piece);
            continue;
        }
        const std::string_view behind = trim(piece.substr(blank));
        if (behind.starts_with('=')) {  // "name = value", as a few write it
            if (!skipping) found.back().text += ", " + word + std::string(behind);
            continue;
        }
        skipping = std::find(known.begin(), known.end(), word) == known.end();
        if (!skipping) found.push_back({word, std::string(behind)});
    }
    return found;
}

std::vector<AuthChallenge> read_challenges(const std::vector<std::string>& values) {
    std::vector<AuthChallenge> all;
    for (const std::string& value : values) {
        auto some = read_challenges(value);
        std::move(some.begin(), some.end(), std::back_inserter(all));
    }
    return all;
}

}  // namespace vantlow
