#include "engine/netrc.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "runtime/host_names.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_netrc = 256 * 1024;
struct Word {
    std::string text;
    bool quoted = false;

    [[nodiscard]] bool is(std::string_view keyword) const noexcept {
        return !quoted && iequals(text, keyword);
    }
};

class WordReader {
  public:
    explicit WordReader(std::string_view text) noexcept : rest_(text) {}

    /// The next word that may be a keyword; comments are skipped.
    std::optional<Word> next_keyword() { return next(true); }
    /// The word behind a keyword. On the keyword's line it may begin with '#', as passwords do.
    std::optional<Word> next_value() { return next(false); }
    /// Skips the rest of the line and all lines up to an empty one.
    void skip_macro() noexcept;

  private:
    std::optional<Word> next(bool comments);
    Word plain_word();
    Word quoted_word();
    void skip_to_line_end() noexcept { rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size())); }

    static constexpr std::string_view blanks{" \t\r\n\v\f"};
    std::string_view rest_;
};

std::optional<Word> WordReader::next(bool comments) {
    while (!rest_.empty()) {
        const char c = rest_.front();
        if (c == '\n') comments = true;
        if (comments && c == '#') {
            skip_to_line_end();
        } else if (blanks.find(c) != std::string_view::npos) {
            rest_.remove_prefix(1);
        } else {
            return c == '"' ? quoted_word() : plain_word();
        }
    }
    return std::nullopt;
}

Word WordReader::plain_word() {
    const std::string_view word = rest_.substr(0, rest_.find_first_of(blanks));
    rest_.remove_prefix(word.size());
    return {std::string(word), false};
}

// A quote that is never closed ends with its line.
Word WordReader::quoted_word() {
    Word word{{}, true};
    rest_.remove_prefix(1);
    while (!rest_.empty() && rest_.front() != '\n') {
        char c = rest_.front();
        rest_.remove_prefix(1);
        if (c == '"') break;
        if (c == '\\' && !rest_.empty() && rest_.front() != '\n') {
            c = rest_.front();
            rest_.remove_prefix(1);
            constexpr std::string_view letters = "nrt";
            constexpr std::string_view meanings = "\n\r\t";
            if (const auto at = letters.find(c); at != std::string_view::npos) c = meanings[at];
        }
        word.text += c;
    }
    return word;
}

void WordReader::skip_macro() noexcept {
    skip_to_line_end();
    while (!rest_.empty()) {
        rest_.remove_prefix(1);
        if (rest_.starts_with('\n') || rest_.starts_with("\r\n")) return;
        skip_to_line_end();
    }
}

std::string_view without_dot(std::string_view host) noexcept {
    return host.ends_with('.') ? host.substr(0, host.size() - 1) : host;
}

}  // namespace

Netrc parse_netrc(std::string_view text) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) text.remove_prefix(byte_order_mark.size());
    WordReader reader(text);
    Netrc entries;
    NetrcEntry before_all;  // entries in front of the first machine belong to none
    while (const auto word = reader.next_keyword()) {
        NetrcEntry& entry = entries.empty() ? before_all : entries.back();
        if (word->is("macdef")) {
            reader.skip_macro();
        } else if (word->is("machine") || word->is("default")) {
            if (entries.size() == most_netrc_entries) break;
            NetrcEntry next;
            next.is_default = word->is("default");
            if (!next.is_default) {
                auto machine = reader.next_value();
                if (!machine) break;
                next.machine = std::move(machine->text);
            }
            entries.push_back(std::move(next));
        } else if (word->is("login")) {
            if (auto login = reader.next_value()) entry.login = std::move(login->text);
        } else if (word->is("password")) {
            if (auto password = reader.next_value()) entry.password = std::move(password->text);
        } else if (word->is("account")) {
            static_cast<void>(reader.next_value());
        }
    }
    return entries;
}

std::optional<NetrcEntry> find_netrc(const Netrc& entries, std::string_view host, std::string_view login) {
    const auto fits = [host = without_dot(host), login](const NetrcEntry& entry) {
        const auto machine = ascii_host(without_dot(entry.machine));
        const bool for_host = entry.is_default || (machine && iequals(*machine, host));
        return for_host && (login.empty() || entry.login.empty() || entry.login == login);
    };
    const auto found = std::find_if(entries.begin(), entries.end(), fits);
    if (found == entries.end()) return std::nullopt;
    NetrcEntry answer = *found;
    if (!login.empty()) answer.login = login;
    return answer;
}

CredentialLookup netrc_lookup() {
    auto entries = std::make_shared<std::optional<Netrc>>();
    return [entries](const std::string& host, const std::string& login) -> std::optional<NetrcEntry> {
        if (!*entries) {
            std::vector<std::byte> bytes;
            const std::u16string path =
                join_path(home_folder(), path_separator() == u'\\' ? u"_netrc" : u".netrc");
            const bool there = read_file(path, largest_netrc, bytes).ok();
            *entries = parse_netrc(
                there ? std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size())
                      : std::string_view{});
        }
        return find_netrc(**entries, host, login);
    };
}

}  // namespace vantlow
