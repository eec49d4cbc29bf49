#include "rpc/option_words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <span>

#include "base/codes.h"
#include "base/digest.h"
#include "base/text.h"

namespace vantlow::rpc {
namespace {

constexpr std::int64_t most_connections = 64;
constexpr std::int64_t standard_connections = 5;
constexpr std::int64_t largest_rate = 1LL << 50;
constexpr double largest_fraction = 1e9;

/// One word: how its text is read into the options, and written from them. `read` is false for a value that
/// cannot be used, `write` gives none where nothing was asked for.
template <class Options>
struct Word {
    std::string_view name;
    bool (*read)(Options& options, const std::string& text);
    std::optional<std::string> (*write)(const Options& options);
};

bool is_plain(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return (c < 0 || c >= ' ') && c != '\x7F'; });
}

// Bytes with "K" or "M" (powers of 1024) behind them.
std::optional<std::int64_t> bytes_of(std::string_view text) {
    int shift = 0;
    if (text.ends_with('K') || text.ends_with('k')) shift = 10;
    if (text.ends_with('M') || text.ends_with('m')) shift = 20;
    if (shift > 0) text.remove_suffix(1);
    const auto number = parse_decimal(text);
    if (!number || *number > (largest_rate >> shift)) return std::nullopt;
    return *number << shift;
}

template <class Options, std::optional<std::string> Options::*Member>
constexpr Word<Options> text_word(std::string_view name) {
    return {name,
            [](Options& options, const std::string& text) {
                if (!is_plain(text)) return false;
                options.*Member = text;
                return true;
            },
            [](const Options& options) { return options.*Member; }};
}

template <class Options, std::optional<std::int64_t> Options::*Member>
constexpr Word<Options> bytes_word(std::string_view name) {
    return {name,
            [](Options& options, const std::string& text) {
                const auto bytes = bytes_of(text);
                if (bytes) options.*Member = bytes;
                return bytes.has_value();
            },
            [](const Options& options) {
                return options.*Member ? std::optional(std::to_string(*(options.*Member))) : std::nullopt;
            }};
}

template <class Options, std::optional<std::int64_t> Options::*Member, std::int64_t Largest>
constexpr Word<Options> count_word(std::string_view name) {
    return {name,
            [](Options& options, const std::string& text) {
                const auto count = parse_decimal(text);
                if (!count || *count < 1) return false;
                options.*Member = std::min(*count, Largest);
                return true;
            },
            [](const Options& options) {
                return options.*Member ? std::optional(std::to_string(*(options.*Member))) : std::nullopt;
            }};
}

template <std::optional<bool> JobOptions::*Member>
constexpr Word<JobOptions> flag_word(std::string_view name) {
    return {name,
            [](JobOptions& options, const std::string& text) {
                if (text != "true" && text != "false") return false;
                options.*Member = text == "true";
                return true;
            },
            [](const JobOptions& options) {
                return options.*Member ? std::optional<std::string>(*(options.*Member) ? "true" : "false")
                                       : std::nullopt;
            }};
}

// Another word for a member that is written under its first one.
template <class Options>
constexpr Word<Options> also(Word<Options> word) {
    word.write = [](const Options&) { return std::optional<std::string>(); };
    return word;
}

// "sha-256=HEX" here, "sha256:HEX" in the program.
bool read_hash(JobOptions& options, const std::string& text) {
    const auto equals = text.find('=');
    if (equals == std::string::npos) return false;
    const auto kind = digest_kind(text.substr(0, equals));
    const auto digest = from_hex(std::string_view(text).substr(equals + 1));
    if (!kind || !digest || digest->size() != digest_size(*kind)) return false;
    options.hash = text;
    (*options.hash)[equals] = ':';
    return true;
}

std::optional<std::string> write_hash(const JobOptions& options) {
    std::optional<std::string> text = options.hash;
    if (text) (*text)[text->find(':')] = '=';
    return text;
}

bool read_gid(JobOptions& options, const std::string& text) {
    if (text.size() != 16 || !from_hex(text)) return false;
    options.gid = ascii_lower(text);
    return true;
}

bool read_selection(JobOptions& options, const std::string& text) {
    if (text.find_first_not_of("0123456789,-") != std::string::npos) return false;
    options.select = text;
    return true;
}

// "head=SIZE,tail=SIZE": the sizes are this program's own, and both ends come first.
bool read_ends(JobOptions& options, const std::string& text) {
    options.ends_first = !text.empty();
    for (const std::string_view part : split(text, ',')) {
        const std::string_view end = part.substr(0, part.find('='));
        if (!part.empty() && end != "head" && end != "tail") return false;
    }
    return true;
}

// A number from 0 on, with or without a fraction.
std::optional<double> fraction_of(const std::string& text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && number >= 0 && number <= largest_fraction ? std::optional(number) : std::nullopt;
}

std::string text_of_fraction(double number) {
    std::array<char, 32> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), error == std::errc() ? end : text.data()};
}

bool read_seed_ratio(JobOptions& options, const std::string& text) {
    options.seed_ratio = fraction_of(text);
    return options.seed_ratio.has_value();
}

// Minutes there, seconds here.
bool read_seed_time(JobOptions& options, const std::string& text) {
    const auto minutes = fraction_of(text);
    if (minutes) options.seed_time = static_cast<std::int64_t>(std::ceil(*minutes * 60));
    return minutes.has_value();
}

// 0 is no bound there: as many as there can be here.
template <class Options>
constexpr Word<Options> peers_word() {
    return {"bt-max-peers",
            [](Options& options, const std::string& text) {
                constexpr std::int64_t most = 10000;
                const auto count = parse_decimal(text);
                if (!count || *count < 0) return false;
                options.most_peers = *count == 0 ? most : std::min(*count, most);
                return true;
            },
            [](const Options& options) {
                return options.most_peers ? std::optional(std::to_string(*options.most_peers)) : std::nullopt;
            }};
}

constexpr std::array job_words{
    text_word<JobOptions, &JobOptions::folder>("dir"),
    text_word<JobOptions, &JobOptions::name>("out"),
    text_word<JobOptions, &JobOptions::referer>("referer"),
    text_word<JobOptions, &JobOptions::agent>("user-agent"),
    text_word<JobOptions, &JobOptions::proxy>("all-proxy"),
    also(text_word<JobOptions, &JobOptions::user>("ftp-user")),
    also(text_word<JobOptions, &JobOptions::password>("ftp-passwd")),
    text_word<JobOptions, &JobOptions::user>("http-user"),
    text_word<JobOptions, &JobOptions::password>("http-passwd"),
    count_word<JobOptions, &JobOptions::connections, most_connections>("split"),
    count_word<JobOptions, &JobOptions::per_server, most_connections>("max-connection-per-server"),
    bytes_word<JobOptions, &JobOptions::down_limit>("max-download-limit"),
    bytes_word<JobOptions, &JobOptions::up_limit>("max-upload-limit"),
    Word<JobOptions>{"seed-ratio", read_seed_ratio,
                     [](const JobOptions& options) {
                         return options.seed_ratio ? std::optional(text_of_fraction(*options.seed_ratio))
                                                   : std::nullopt;
                     }},
    Word<JobOptions>{"seed-time", read_seed_time,
                     [](const JobOptions& options) {
                         return options.seed_time ? std::optional(text_of_fraction(
                                                        static_cast<double>(*options.seed_time) / 60))
                                                  : std::nullopt;
                     }},
    text_word<JobOptions, &JobOptions::trackers>("bt-tracker"),
    text_word<JobOptions, &JobOptions::not_trackers>("bt-exclude-tracker"),
    flag_word<&JobOptions::paused>("pause"),
    flag_word<&JobOptions::overwrites>("allow-overwrite"),
    Word<JobOptions>{"checksum", read_hash, write_hash},
    Word<JobOptions>{"select-file", read_selection, [](const JobOptions& options) { return options.select; }},
    Word<JobOptions>{"bt-prioritize-piece", read_ends,
                     [](const JobOptions& options) {
                         const bool asks = options.ends_first.value_or(false);
                         return asks ? std::optional<std::string>("head,tail") : std::nullopt;
                     }},
    peers_word<JobOptions>(),
    // A job that is added again is another one: its identity is read, but not given.
    Word<JobOptions>{"gid", read_gid, [](const JobOptions&) { return std::optional<std::string>(); }},
};

constexpr std::array global_words{
    count_word<GlobalOptions, &GlobalOptions::jobs_at_once, 1000>("max-concurrent-downloads"),
    bytes_word<GlobalOptions, &GlobalOptions::down_limit>("max-overall-download-limit"),
    bytes_word<GlobalOptions, &GlobalOptions::up_limit>("max-overall-upload-limit"),
    bytes_word<GlobalOptions, &GlobalOptions::split_size>("min-split-size"),
    peers_word<GlobalOptions>(),
};

Fault refuse(std::string_view word) {
    return {fault_code::failed, "The option " + std::string(word) + " cannot have this value."};
}

// Reads a login out of "Basic BASE64" (RFC 7617); false where it is none.
bool read_basic(JobOptions& options, std::string_view value) {
    constexpr std::string_view scheme = "Basic ";
    const auto bytes =
        istarts_with(value, scheme) ? from_base64(trim(value.substr(scheme.size()))) : std::nullopt;
    if (!bytes) return false;
    const std::string login(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    const auto colon = login.find(':');
    if (colon == std::string::npos || !is_plain(login)) return false;
    options.user = login.substr(0, colon);
    options.password = login.substr(colon + 1);
    return true;
}

// Reads one header line. Those that a job keeps are taken, the others passed over: a browser sends many.
// False for one that would be two lines.
bool read_header(JobOptions& options, std::string_view line) {
    while (line.ends_with('\r')) line.remove_suffix(1);
    if (!is_plain(line)) return false;
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return true;
    const std::string_view name = trim(line.substr(0, colon));
    const std::string value(trim(line.substr(colon + 1)));
    if (iequals(name, "User-Agent")) options.agent = value;
    if (iequals(name, "Referer")) options.referer = value;
    if (iequals(name, "Authorization")) static_cast<void>(read_basic(options, value));
    if (!iequals(name, "Cookie")) return true;
    if (value.starts_with('@')) return false;  // would name a file of this machine
    options.cookie = value;
    return true;
}

bool read_headers(JobOptions& options, const Json& value) {
    if (value.is_string()) {
        for (const std::string_view line : split(value.get_ref<const std::string&>(), '\n'))
            if (!read_header(options, line)) return false;
        return true;
    }
    if (!value.is_array()) return true;
    return std::ranges::all_of(value, [&options](const Json& line) {
        return !line.is_string() || read_header(options, line.get_ref<const std::string&>());
    });
}

template <class Options>
std::optional<Fault> read_words(std::span<const Word<Options>> words, const Json& object, Options& into) {
    for (const Word<Options>& word : words) {
        const auto at = object.find(word.name);
        if (at == object.end() || !at->is_string()) continue;
        if (!word.read(into, at->template get_ref<const std::string&>())) return refuse(word.name);
    }
    return std::nullopt;
}

template <class Options>
void write_words(std::span<const Word<Options>> words, const Options& options, Json& object) {
    for (const Word<Options>& word : words) {
        if (auto text = word.write(options)) object[std::string(word.name)] = std::move(*text);
    }
}

}  // namespace

std::optional<std::int64_t> JobOptions::connections_for(std::size_t addresses) const {
    if (!connections && !per_server) return std::nullopt;
    const std::int64_t most =
        per_server ? *per_server * static_cast<std::int64_t>(std::max<std::size_t>(addresses, 1))
                   : most_connections;
    return std::min({connections.value_or(standard_connections), most, most_connections});
}

void JobOptions::take(const JobOptions& other) {
    const auto take_one = [](auto& mine, const auto& others) {
        if (others) mine = others;
    };
    take_one(folder, other.folder);
    take_one(name, other.name);
    take_one(referer, other.referer);
    take_one(agent, other.agent);
    take_one(cookie, other.cookie);
    take_one(proxy, other.proxy);
    take_one(user, other.user);
    take_one(password, other.password);
    take_one(hash, other.hash);
    take_one(select, other.select);
    take_one(trackers, other.trackers);
    take_one(not_trackers, other.not_trackers);
    take_one(gid, other.gid);
    take_one(connections, other.connections);
    take_one(per_server, other.per_server);
    take_one(down_limit, other.down_limit);
    take_one(up_limit, other.up_limit);
    take_one(seed_ratio, other.seed_ratio);
    take_one(seed_time, other.seed_time);
    take_one(paused, other.paused);
    take_one(overwrites, other.overwrites);
    take_one(ends_first, other.ends_first);
    take_one(most_peers, other.most_peers);
}

std::optional<Fault> read_options(const Json& words, JobOptions& into) {
    if (!words.is_object()) return std::nullopt;
    // A header says less than the word of its own.
    if (const auto header = words.find("header"); header != words.end() && !read_headers(into, *header))
        return refuse("header");
    return read_words<JobOptions>(job_words, words, into);
}

std::optional<Fault> read_options(const Json& words, GlobalOptions& into) {
    if (!words.is_object()) return std::nullopt;
    if (auto fault = read_words<GlobalOptions>(global_words, words, into)) return fault;
    auto fault = read_options(words, into.job);
    into.job.most_peers.reset();  // the setting is every torrent's, also of those that are there already
    return fault;
}

Json write_options(const JobOptions& options) {
    Json object = Json::object();
    write_words<JobOptions>(job_words, options, object);
    if (options.cookie) object["header"] = {"Cookie: " + *options.cookie};
    return object;
}

Json write_options(const GlobalOptions& options) {
    Json object = write_options(options.job);
    write_words<GlobalOptions>(global_words, options, object);
    return object;
}

}  // namespace vantlow::rpc
