#include "app/cli/job_options.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <span>

#include "app/terminal/quantities.h"
#include "base/text.h"
#include "engine/selection.h"
#include "platform/console.h"
#include "platform/file.h"
#include "store/job.h"
#include "store/job_list.h"
#include "store/proxies.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_list = 256 * 1024 * 1024;

// Editors and shells of Windows write UTF-16; a line may end with CR alone, too.
void add_lines(std::string_view text, std::vector<std::string>& links) {
    std::string narrow;
    if (text.starts_with("\xFF\xFE")) text = narrow = to_utf8(list_text(std::as_bytes(std::span(text))));
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    for (const std::string_view lines : split(text, '\n')) {
        for (std::string_view line : split(lines, '\r')) {
            line = trim(line);
            if (!line.empty() && line.front() != '#') links.emplace_back(line);
        }
    }
}

// False where a path begins at the current folder.
bool begins_at_a_root(const std::u16string& path) {
    const bool names_drive = path_separator() == u'\\' && path.size() > 1 && path[1] == u':';
    return names_drive || path.starts_with(u'/') || path.starts_with(path_separator());
}

// The rules that stay with a job for good; null where the options have none.
std::shared_ptr<const JobRules> job_rules(const JobOptions& options) {
    JobRules rules;
    if (options.overwrite == "rename") rules.overwrite = 0;
    if (options.overwrite == "overwrite") rules.overwrite = 2;
    if (options.overwrite == "cancel") rules.overwrite = 1;
    rules.skip_existing = options.skip_existing;
    rules.insecure = options.insecure;
    rules.accept_host_key = options.accept_host_key;
    if (!options.ca_file.empty()) rules.ca_file = absolute_path(to_utf16(options.ca_file));
    if (!options.key_file.empty()) rules.key_file = absolute_path(to_utf16(options.key_file));
    if (options.limits_each) {
        rules.speed_limit = parse_rate(options.limit).value_or(0);
        rules.upload_limit = parse_rate(options.upload_limit).value_or(0);
    }
    rules.sequential = options.sequential;
    rules.ends_first = options.ends_first;
    return rules == JobRules{} ? nullptr : std::make_shared<const JobRules>(std::move(rules));
}

}  // namespace

void add_job_options(CLI::App& word, JobOptions& options) {
    word.add_option("LINK", options.links,
                    "The addresses to fetch: links, torrents, Metalinks and playlists");
    word.add_option("-d,--dir", options.folder, "The folder for the files (default: the current one)");
    word.add_option("-o,--output", options.output, "The name of the file, where there is one link only");
    word.add_option("-n,--connections", options.connections, "Connections for each job (default: 5)")
        ->check(CLI::Range(1, static_cast<int>(most_connections)));
    word.add_option("-i,--input", options.input_file,
                    "Take links from a file, one on each line (-: standard input)");
    word.add_option("--user", options.user, "The user name for the server");
    word.add_option("--password", options.password, "The password for the server");
    word.add_option("--referer", options.referer, "The address to send as Referer");
    word.add_option("--agent", options.agent, "The name of the program to send as User-Agent");
    word.add_option("--cookie", options.cookie,
                    "Cookies to send: \"name=value; name=value\", or @FILE, a cookies.txt");
    word.add_option("--proxy", options.proxy,
                    "The proxy: http://, connect:// (always tunnels), socks4:// or socks5:// and "
                    "[user:password@]host:port");
    word.add_option("--retries", options.retries,
                    "Attempts after a failure; -1: without limit (default: that of the settings, at first "
                    "without limit)")
        ->check(CLI::Range(-1, 100000));
    word.add_option("--retry-delay", options.retry_delay,
                    "Seconds between two attempts (default: longer each time, up to half a minute)")
        ->check(CLI::Range(0, 86400));
    word.add_option("--select", options.select,
                    "The files of a metafile to fetch: 1,3-5, or ask (default: all)");
    word.add_flag("--sequential", options.sequential,
                  "Fetch the pieces of a torrent in their order, to watch a film early");
    word.add_flag("--ends-first", options.ends_first,
                  "Fetch the beginnings and ends of a torrent's files before all else");
    word.add_option("--upload-limit", options.upload_limit,
                    "Bytes a second that the peers of torrents get (500K, 2M)");
    word.add_option("--hash", options.hash,
                    "ALGO:HEX (md5, sha1, sha256): the hash that the finished file must have");
    word.add_option("--key", options.key_file, "A file with the private key for SFTP");
    word.add_flag("--accept-host-key", options.accept_host_key,
                  "Trust SFTP servers that are not known yet, and remember them");
    word.add_option("--ca-file", options.ca_file,
                    "A file with the certificates to trust for TLS, in place of the system's");
    word.add_flag("--insecure", options.insecure, "Do not check certificates");
    word.add_option("--overwrite", options.overwrite,
                    "What to do where the target exists: rename, overwrite or cancel")
        ->check(CLI::IsMember({"rename", "overwrite", "cancel"}));
    word.add_flag("--skip-existing", options.skip_existing,
                  "Do not fetch a file that is there already, with the server's size and no older");
    word.add_flag("--no-resume", options.no_resume,
                  "Start anew even where an earlier run could be continued");
}

void add_seed_options(CLI::App& word, SeedOptions& options) {
    word.add_flag("--seed", options.seed, "Share a torrent after its end, until it is stopped");
    word.add_option("--seed-ratio", options.ratio,
                    "Share a torrent after its end until so many times its size was sent")
        ->check(CLI::NonNegativeNumber);
    word.add_option("--seed-time", options.time, "Share a torrent after its end for 90s, 5m, 2h, 1d");
}

Complaint check_seed_options(const SeedOptions& options) {
    if (options.time.empty() || parse_span(options.time)) return std::nullopt;
    return "--seed-time takes a span of time (90s, 5m, 2h, 1d), not \"" + options.time + "\".";
}

Complaint check_job_options(const JobOptions& options) {
    if (options.links.empty() && options.input_file.empty()) return "no link is named.";
    const bool one_link = options.links.size() == 1 && options.input_file.empty();
    if (!options.output.empty() && !one_link) return "--output names the file of one link.";
    if (!options.hash.empty() && !one_link) return "--hash is the hash of one link's file.";
    if (options.select != "ask" && !is_selection(options.select))
        return "--select takes numbers and ranges (1,3-5) or \"ask\", not \"" + options.select + "\".";
    return std::nullopt;
}

std::u16string target_folder(const JobOptions& options, const std::u16string& otherwise) {
    const std::u16string base = options.folder.empty() ? otherwise : to_utf16(options.folder);
    const std::u16string within = folder_of(to_utf16(options.output));
    if (begins_at_a_root(within)) return absolute_path(within);
    return absolute_path(within.empty() ? base : join_path(base, within));
}

Complaint check_named_files(const JobOptions& options) {
    for (const auto& [option, file] :
         {std::pair("--ca-file", &options.ca_file), std::pair("--key", &options.key_file)}) {
        if (!file->empty() && path_kind(absolute_path(to_utf16(*file))) != PathKind::file)
            return std::string(option) + ": there is no file " + *file + ".";
    }
    for (const auto& [option, rate] :
         {std::pair("--limit", &options.limit), std::pair("--upload-limit", &options.upload_limit)}) {
        if (!rate->empty() && !parse_rate(*rate))
            return std::string(option) + " takes bytes a second (500K, 2M), not \"" + *rate + "\".";
    }
    return std::nullopt;
}

Complaint check_draft(const JobOptions& options) {
    if (options.cookie.starts_with('@') &&
        path_kind(absolute_path(to_utf16(options.cookie.substr(1)))) != PathKind::file) {
        return "--cookie: there is no file " + options.cookie.substr(1) + ".";
    }
    if (!options.hash.empty() && !parse_hash(options.hash))
        return "--hash takes md5:, sha1: or sha256: and the digest in hexadecimal digits.";
    return check_proxy(options.proxy);
}

Complaint check_proxy(const std::string& proxy) {
    if (proxy.empty() || parse_proxy(to_utf16(proxy))) return std::nullopt;
    return "--proxy takes http://, connect://, socks4:// or socks5:// with [user:password@]host:port.";
}

JobDraft draft_of(const JobOptions& options, const std::u16string& folder) {
    JobDraft draft;
    draft.folder = target_folder(options, folder);
    draft.name = name_of(to_utf16(options.output));
    draft.rules = job_rules(options);
    draft.connections = options.connections.value_or(standard_connections);
    draft.user = to_utf16(options.user);
    draft.password = to_utf16(options.password);
    draft.referer = to_utf16(options.referer);
    draft.agent = to_utf16(options.agent);
    draft.cookie = to_utf16(options.cookie);
    if (draft.cookie.starts_with(u'@')) draft.cookie = u"@" + absolute_path(draft.cookie.substr(1));
    draft.proxy = to_utf16(options.proxy);
    if (options.retries) draft.retries = static_cast<std::int32_t>(*options.retries);
    if (options.retry_delay) draft.retry_delay = static_cast<std::int32_t>(*options.retry_delay);
    if (!options.hash.empty()) draft.hash = parse_hash(options.hash);
    draft.asks_which = options.select == "ask";
    if (!draft.asks_which) draft.select = options.select;
    draft.fresh = options.no_resume;
    return draft;
}

Complaint read_links(const JobOptions& options, std::vector<std::string>& links) {
    for (const std::string& link : options.links) {
        links.emplace_back(trim(link));
        if (links.back().empty()) return "A link is empty.";
    }
    if (options.input_file.empty()) return std::nullopt;
    if (options.input_file == "-") {
        add_lines(read_standard_input(largest_list), links);
        return std::nullopt;
    }
    std::vector<std::byte> bytes;
    const std::u16string path = absolute_path(to_utf16(options.input_file));
    if (const FileError error = read_file(path, largest_list, bytes); !error.ok()) {
        return options.input_file + ": " + error.text();
    }
    add_lines({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, links);
    return std::nullopt;
}

}  // namespace vantlow
