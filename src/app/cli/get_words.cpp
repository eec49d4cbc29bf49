#include "app/cli/get/get_command.h"

#include <memory>

#include "app/terminal/quantities.h"
#include "engine/selection.h"
#include "store/job.h"

namespace vantlow {

void add_job_options(CLI::App& word, GetOptions& options) {
    word.add_option("LINK", options.links, "Addresses to fetch");
    word.add_option("-d,--dir", options.folder, "Folder (default: the current one)");
    word.add_option("-o,--output", options.output, "File name, for one link");
    word.add_option("-n,--connections", options.connections, "Connections for each job (default 5)")
        ->check(CLI::Range(1, static_cast<int>(most_connections)));
    word.add_option("-i,--input", options.input_file, "Links from a file, one a line (-: standard input)");
    word.add_option("--user", options.user, "User name");
    word.add_option("--password", options.password, "Password");
    word.add_option("--referer", options.referer, "Referer");
    word.add_option("--agent", options.agent, "User agent");
    word.add_option("--cookie", options.cookie,
                    "Cookies, \"name=value; name=value\", or @FILE, a cookies.txt");
    word.add_option(
        "--proxy", options.proxy,
        "http://, connect:// (always tunnels), socks4:// or socks5://, [user:password@]host:port");
    word.add_option("--retries", options.retries,
                    "Retry limit; -1: without limit (default: as the settings say, which is without limit)")
        ->check(CLI::Range(-1, 100000));
    word.add_option("--retry-delay", options.retry_delay,
                    "Seconds between attempts (default: longer and longer, up to half a minute)")
        ->check(CLI::Range(0, 86400));
    word.add_option("--select", options.select, "Which files of a metafile: 1,3-5 (default: all)");
    word.add_option("--hash", options.hash, "ALGO:HEX (md5, sha1, sha256): checked at the end");
    word.add_option("--key", options.key_file, "Private key for SFTP");
    word.add_flag("--accept-host-key", options.accept_host_key,
                  "Trust SFTP servers that are not known yet, and remember them");
    word.add_option("--ca-file", options.ca_file, "Trusted certificates for TLS");
    word.add_flag("--insecure", options.insecure, "Do not check certificates");
    word.add_option("--overwrite", options.overwrite, "When the target exists: rename, overwrite or cancel")
        ->check(CLI::IsMember({"rename", "overwrite", "cancel"}));
    word.add_flag("--skip-existing", options.skip_existing,
                  "Do not fetch a file again that is there with the server's size and no older");
    word.add_flag("--no-resume", options.no_resume, "Start anew even where an earlier run can be continued");
}

Complaint check_job_options(const GetOptions& options) {
    if (options.links.empty() && options.input_file.empty()) return "no link is named.";
    const bool one_link = options.links.size() == 1 && options.input_file.empty();
    if (!options.give_up_after.empty() && !parse_span(options.give_up_after))
        return "--give-up-after takes a span of time (90s, 5m, 2h, 1d), not \"" + options.give_up_after +
               "\".";
    if (!options.output.empty() && !one_link) return "--output names the file of one link.";
    if (!options.hash.empty() && !one_link) return "--hash is the hash of one link's file.";
    if (!is_selection(options.select))
        return "--select takes numbers and ranges (1,3-5), not \"" + options.select + "\".";
    return std::nullopt;
}

void add_get_command(CommandSet& commands) {
    const auto options = std::make_shared<GetOptions>();
    CLI::App& get = commands.add(
        "get", "Fetch now, in this terminal, and end",
        [options](CFerrywellApp& app, const GlobalOptions& global) { return run_get(app, global, *options); },
        [options] { return check_job_options(*options); });
    add_job_options(get, *options);
    get.add_option("-j,--jobs", options->jobs, "Jobs at once (default 3)")->check(CLI::Range(1, 1000));
    get.add_option("--limit", options->limit, "Bytes a second for all connections together (500K, 2M)");
    get.add_option(
        "--give-up-after", options->give_up_after,
        "How long a job tries without a byte: 90s, 5m, 2h, 1d; 0: without end (default: without end "
        "in a terminal and with --retries, else 1d)");
}

}  // namespace vantlow
