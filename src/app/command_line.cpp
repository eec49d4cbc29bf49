#include "app/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

void add_global_options(CLI::App& app, GlobalOptions& global, std::string& data_folder,
                        std::string& settings_file) {
    app.add_option("--data-dir", data_folder, "The data folder")->envname("VANTLOW_DATA_DIR");
    app.add_option("--settings", settings_file, "A settings file in place of the user's settings")
        ->envname("VANTLOW_SETTINGS");
    app.add_option("--set", global.set, "Section/Key=Value: one setting for this run; repeatable")
        ->allow_extra_args(false);
    app.add_flag("--json", global.json, "Machine output");
    app.add_flag("-q,--quiet", global.quiet, "Errors only");
    app.add_flag("-v,--verbose", global.verbose, "The job log, line by line, to stderr");
}

void add_get_options(CLI::App& get, GetOptions& options) {
    get.add_option("LINK", options.links, "Addresses to fetch");
    get.add_option("-d,--dir", options.folder, "Folder (default: the current one)");
    get.add_option("-o,--output", options.output, "File name, for one link");
    get.add_option("-n,--connections", options.connections, "Connections for each job (default 5)")
        ->check(CLI::Range(1, 64));
    get.add_option("-j,--jobs", options.jobs, "Jobs at once (default 3)")->check(CLI::Range(1, 1000));
    get.add_option("-i,--input", options.input_file, "Links from a file, one a line (-: standard input)");
    get.add_option("--user", options.user, "User name");
    get.add_option("--password", options.password, "Password");
    get.add_option("--referer", options.referer, "Referer");
    get.add_option("--agent", options.agent, "User agent");
    get.add_option("--cookie", options.cookie, "Cookies, \"name=value; name=value\"");
    get.add_option("--proxy", options.proxy, "http://[user:password@]host:port");
    get.add_option("--limit", options.limit, "Bytes a second for all connections together (500K, 2M)");
    get.add_option("--retries", options.retries, "Retry limit")->check(CLI::Range(0, 100000));
    get.add_option("--retry-delay", options.retry_delay, "Seconds between attempts")
        ->check(CLI::Range(0, 86400));
    get.add_option("--ca-file", options.ca_file, "Trusted certificates for TLS");
    get.add_flag("--insecure", options.insecure, "Do not check certificates");
    get.add_option("--hash", options.hash, "ALGO:HEX (md5, sha1, sha256): checked at the end");
    get.add_option("--overwrite", options.overwrite, "When the target exists: rename, overwrite or cancel")
        ->check(CLI::IsMember({"rename", "overwrite", "cancel"}));
    get.add_flag("--no-resume", options.no_resume, "Start anew even where an earlier run can be continued");
}

Command complain(std::string text) {
    Command command;
    command.text = "vantlow: " + std::move(text) + "\nTry 'vantlow --help'.\n";
    command.status = Exit::usage;
    return command;
}

}  // namespace

Command parse_command_line(const std::vector<std::string>& words) {
    Command command;
    CLI::App app{"Vantlow fetches files: over several connections at once, across bad networks, never wrong.",
                 "vantlow"};
    bool version = false;
    std::string data_folder;
    std::string settings_file;
    app.set_help_flag("-h,--help", "This text");
    app.add_flag("--version", version, "Version, platform and run-time libraries");
    add_global_options(app, command.global, data_folder, settings_file);
    CLI::App* get = app.add_subcommand("get", "Fetch now, in this terminal, and end");
    get->fallthrough();  // global options stand before or after the word
    add_get_options(*get, command.get);
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend());
        app.parse(std::move(reversed));
    } catch (const CLI::CallForHelp&) {
        command.text = get->parsed() ? get->help() : app.help();
        return command;
    } catch (const CLI::ParseError& error) {
        return complain(error.what());
    }
    command.global.data_folder = to_utf16(data_folder);
    command.global.settings_file = to_utf16(settings_file);
    if (version) {
        command.kind = Command::Kind::version;
        return command;
    }
    if (!get->parsed()) return complain("what shall be done? Say 'vantlow get LINK'.");
    if (command.get.links.empty() && command.get.input_file.empty())
        return complain("get: no link is named.");
    if (!command.get.output.empty() && (command.get.links.size() != 1 || !command.get.input_file.empty())) {
        return complain("get: --output names the file of one link.");
    }
    if (!command.get.hash.empty() && (command.get.links.size() != 1 || !command.get.input_file.empty())) {
        return complain("get: --hash is the hash of one link's file.");
    }
    command.kind = Command::Kind::get;
    return command;
}

}  // namespace vantlow
