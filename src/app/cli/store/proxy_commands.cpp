// `vantlow proxy ...`.
#include <nlohmann/json.hpp>

#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/store_command.h"
#include "app/process/ending.h"
#include "app/terminal/display_text.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/file.h"
#include "store/proxies.h"
#include "transfer/http/validate.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

struct ProxyOptions {
    std::string which;   ///< a number of the list, or an address
    std::string target;  ///< the address that is fetched through the proxies
};

constexpr const char* standard_target = "http://www.example.com/";

ordered_json to_json(const CProxyNode& proxy) {
    return {{"address", to_utf8(proxy_text(proxy))},
            {"kind", proxy.kind},
            {"host", to_utf8(proxy.host)},
            {"port", proxy.port},
            {"user", to_utf8(proxy.user)}};
}

bool load(CFerrywellApp& app, std::vector<CProxyNode>& proxies) {
    std::string error;
    if (load_proxies(app.data_folder(), proxies, error)) return true;
    complain(error);
    return false;
}

bool save(CFerrywellApp& app, const std::vector<CProxyNode>& proxies) {
    std::string error;
    if (save_proxies(app.data_folder(), proxies, error)) return true;
    complain(error);
    return false;
}

Exit run_list(CFerrywellApp& app, const GlobalOptions& global) {
    std::vector<CProxyNode> proxies;
    if (!load(app, proxies)) return Exit::failed;
    std::string text;
    ordered_json json = ordered_json::array();
    for (std::size_t i = 0; i < proxies.size(); ++i) {
        ordered_json one = {{"number", i + 1}};
        one.update(to_json(proxies[i]));
        json.push_back(std::move(one));
        text += std::to_string(i + 1) + "  " + printable(to_utf8(proxy_text(proxies[i]))) + "\n";
    }
    print_answer(global, json, text);
    return Exit::done;
}

Exit run_add(CFerrywellApp& app, const GlobalOptions& global, const ProxyOptions& options) {
    std::vector<CProxyNode> proxies;
    if (!load(app, proxies)) return Exit::failed;
    if (proxies.size() >= most_proxies) return complain("The proxy list is full.");
    proxies.push_back(*parse_proxy(to_utf16(options.which)));
    if (!save(app, proxies)) return Exit::failed;
    const std::string number = std::to_string(proxies.size());
    if (!global.quiet) print_answer(global, {{"number", proxies.size()}}, number + "\n");
    return Exit::done;
}

// Finds the proxy of this number; none, with a complaint, when there is none.
std::optional<std::size_t> index_of(const std::string& text, const std::vector<CProxyNode>& proxies) {
    const auto number = parse_decimal(text);
    if (number && *number >= 1 && *number <= static_cast<std::int64_t>(proxies.size()))
        return static_cast<std::size_t>(*number) - 1;
    complain("The proxy list has no number " + text + ".");
    return std::nullopt;
}

Exit run_remove(CFerrywellApp& app, const GlobalOptions& /*global*/, const ProxyOptions& options) {
    std::vector<CProxyNode> proxies;
    if (!load(app, proxies)) return Exit::failed;
    const auto index = index_of(options.which, proxies);
    if (!index) return Exit::failed;
    proxies.erase(proxies.begin() + static_cast<std::ptrdiff_t>(*index));
    return save(app, proxies) ? Exit::done : Exit::failed;
}

// Chooses the proxies to test: all of the list, one of them, or one that is in no list.
bool chosen(CFerrywellApp& app, const ProxyOptions& options, std::vector<CProxyNode>& proxies) {
    const bool is_number = !options.which.empty() && parse_decimal(options.which).has_value();
    if (!options.which.empty() && !is_number) {
        proxies.push_back(*parse_proxy(to_utf16(options.which)));
        return true;
    }
    if (!load(app, proxies)) return false;
    if (!is_number) return true;
    const auto index = index_of(options.which, proxies);
    if (!index) return false;
    proxies = {proxies[*index]};
    return true;
}

Exit run_test(CFerrywellApp& app, const GlobalOptions& global, const ProxyOptions& options) {
    std::vector<CProxyNode> proxies;
    if (!chosen(app, options, proxies)) return Exit::failed;
    if (proxies.empty()) return complain("The proxy list is empty.");
    ValidatePlan plan;
    for (const CProxyNode& proxy : proxies) plan.proxies.push_back(proxy_plan(proxy));
    plan.address = options.target.empty() ? standard_target : options.target;
    plan.timeout = std::chrono::seconds(app.settings().number(setting::connect_timeout));
    bool all_ok = true;
    ordered_json json = ordered_json::array();
    const auto tested = [&](std::size_t index, const ProxyTest& test) {
        all_ok = all_ok && test.ok;
        ordered_json one = to_json(proxies[index]);
        one.update({{"ok", test.ok},
                    {"elapsed", test.elapsed.count()},
                    {"status", test.status},
                    {"result", static_cast<int>(test.result.code)},
                    {"message", test.text}});
        json.push_back(std::move(one));
        if (!global.json)
            write_stream(Stream::output,
                         printable(to_utf8(proxy_text(proxies[index])) + "  " + test.text) + "\n");
    };
    ConsoleLog log({}, global.verbose);
    ConnectionServices connections;
    const InterruptWatch watch(stop_at_interrupt, &app.stop());
    CValidateThread thread(connections, log, app.stop(), std::move(plan), tested);
    if (const Result started = thread.start(); !started.ok()) return complain(started.message());
    thread.join();
    if (global.json) print_answer(global, json, {});
    const Exit status = all_ok ? Exit::done : Exit::failed;
    return leave(connections.resolver, app.stop().requested() ? Exit::interrupted : status);
}

Complaint check_address(const ProxyOptions& options) {
    if (parse_proxy(to_utf16(options.which))) return std::nullopt;
    return "a proxy is http://, connect://, socks4:// or socks5:// with [user:password@]host:port.";
}

Complaint check_test(const ProxyOptions& options) {
    if (options.which.empty() || parse_decimal(options.which)) return std::nullopt;
    return check_address(options);
}

}  // namespace

void add_proxy_commands(CommandSet& commands) {
    const auto options = std::make_shared<ProxyOptions>();
    const auto run = [options](Exit (*command)(CFerrywellApp&, const GlobalOptions&, const ProxyOptions&)) {
        return [options, command](CFerrywellApp& app, const GlobalOptions& global) {
            return command(app, global, *options);
        };
    };
    CLI::App& group = commands.add_group("proxy", "Manage the proxy list, and test proxies");
    commands.add_on_data_folder(group, "list", "List the proxies with their numbers", run_list);
    commands
        .add_on_data_folder(group, "add", "Add a proxy, and print its number", run(run_add),
                            [options] { return check_address(*options); })
        .add_option("URL", options->which,
                    "http://, connect://, socks4:// or socks5:// and [user:password@]host:port")
        ->required();
    commands.add_on_data_folder(group, "remove", "Remove a proxy", run(run_remove))
        .add_option("N", options->which, "The number of the proxy")
        ->required();
    CLI::App& test = commands.add_below(
        group, "test", "Test one proxy, or all of the list, by fetching an address through it", run(run_test),
        [options] { return check_test(*options); });
    test.add_option("PROXY", options->which, "The number of a proxy in the list, or an address");
    test.add_option("--target", options->target, "The address to fetch (default: http://www.example.com/)");
}

}  // namespace vantlow
