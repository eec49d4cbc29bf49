#include "app/cli/job_options.h"

#include "app/terminal/quantities.h"
#include "base/codes.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/file.h"
#include "store/proxy_address.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_list = 256 * 1024 * 1024;

// None where the text is none: "ALGO:HEX".
std::optional<ExpectedHash> parse_hash(const std::string& text) {
    const auto colon = text.find(':');
    const auto kind = digest_kind(std::string_view(text).substr(0, colon));
    const auto digest =
        colon == std::string::npos ? std::nullopt : from_hex(std::string_view(text).substr(colon + 1));
    if (!kind || !digest || digest->size() != digest_size(*kind)) return std::nullopt;
    return ExpectedHash{*kind, *digest};
}

void add_lines(std::string_view text, std::vector<std::string>& links) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    for (std::string_view line : split(text, '\n')) {
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        line = trim(line);
        if (!line.empty() && line.front() != '#') links.emplace_back(line);
    }
}

// Connections and jobs that are asked for by number are meant, also where all of them go to one server: its
// limit goes up to what was said, unless that was said for this run as well.
void raise_server_limit(Settings& settings, const GetOptions& options) {
    const NumberSetting& limit = setting::max_per_server;
    if (settings.is_overridden(limit)) return;
    const std::int64_t asked = std::int64_t{options.connections.value_or(1)} * options.jobs.value_or(1);
    const std::int64_t allowed = settings.number(limit);
    if (allowed == 0 || asked <= allowed) return;
    settings.override_value(limit.section, limit.key, to_utf16(std::to_string(asked)));
}

}  // namespace

Complaint override_settings(Settings& settings, const GetOptions& options) {
    const auto set = [&](const NumberSetting& setting, std::int64_t value) {
        settings.override_value(setting.section, setting.key, to_utf16(std::to_string(value)));
    };
    if (Complaint complaint = check_named_files(options)) return complaint;
    if (options.jobs) set(setting::max_jobs, *options.jobs);
    // The trackers of torrents go by the settings.
    if (options.insecure) set(setting::verify_peer, 0);
    if (!options.ca_file.empty()) {
        settings.override_value(setting::ca_file.section, setting::ca_file.key,
                                absolute_path(to_utf16(options.ca_file)));
    }
    if (!options.limit.empty()) {
        const std::int64_t rate = parse_rate(options.limit).value_or(0);
        set(setting::limit, rate > 0 ? 1 : 0);
        if (rate > 0) set(setting::speed_limit, rate);
    }
    raise_server_limit(settings, options);
    return std::nullopt;
}

std::u16string target_folder(const GetOptions& options, const std::u16string& otherwise) {
    const std::u16string base = options.folder.empty() ? otherwise : to_utf16(options.folder);
    const std::u16string within = folder_of(to_utf16(options.output));
    return absolute_path(within.empty() ? base : join_path(base, within));
}

Complaint check_named_files(const GetOptions& options) {
    for (const auto& [option, file] :
         {std::pair("--ca-file", &options.ca_file), std::pair("--key", &options.key_file)}) {
        if (!file->empty() && path_kind(absolute_path(to_utf16(*file))) != PathKind::file)
            return std::string(option) + ": there is no file " + *file + ".";
    }
    if (options.limit.empty() || parse_rate(options.limit)) return std::nullopt;
    return "--limit takes bytes a second (500K, 2M), not \"" + options.limit + "\".";
}

Complaint check_draft(const GetOptions& options) {
    if (options.cookie.starts_with('@') &&
        path_kind(absolute_path(to_utf16(options.cookie.substr(1)))) != PathKind::file) {
        return "--cookie: there is no file " + options.cookie.substr(1) + ".";
    }
    if (!options.hash.empty() && !parse_hash(options.hash))
        return "--hash takes md5:, sha1: or sha256: and the digest in hexadecimal digits.";
    if (!options.proxy.empty() && !parse_proxy(to_utf16(options.proxy)))
        return "--proxy takes http://, connect://, socks4:// or socks5:// with [user:password@]host:port.";
    return std::nullopt;
}

// What the options say that stays with a job; null where they say nothing of that.
static std::shared_ptr<const JobRules> job_rules(const GetOptions& options) {
    JobRules rules;
    if (options.overwrite == "rename") rules.overwrite = 0;
    if (options.overwrite == "overwrite") rules.overwrite = 2;
    if (options.overwrite == "cancel") rules.overwrite = 1;
    rules.skip_existing = options.skip_existing;
    rules.insecure = options.insecure;
    rules.accept_host_key = options.accept_host_key;
    if (!options.ca_file.empty()) rules.ca_file = absolute_path(to_utf16(options.ca_file));
    if (!options.key_file.empty()) rules.key_file = absolute_path(to_utf16(options.key_file));
    if (options.limits_each) rules.speed_limit = parse_rate(options.limit).value_or(0);
    return rules == JobRules{} ? nullptr : std::make_shared<const JobRules>(std::move(rules));
}

JobDraft draft_of(const GetOptions& options, const std::u16string& folder) {
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
    draft.select = options.select;
    draft.fresh = options.no_resume;
    return draft;
}

Complaint read_links(const GetOptions& options, std::vector<std::string>& links) {
    links = options.links;
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
