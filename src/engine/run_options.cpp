#include "engine/run_options.h"

#include <array>
#include <optional>
#include <utility>

#include "base/text.h"
#include "platform/process.h"
#include "store/proxies.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow {
namespace {

std::optional<std::u16string> variable(const std::string& name, bool upper_too = true) {
    if (auto value = environment(name); value && !value->empty()) return value;
    if (!upper_too) return std::nullopt;
    std::string upper = name;
    for (char& c : upper) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    auto value = environment(upper);
    return value && !value->empty() ? value : std::nullopt;
}

ProxyFault take_setting(const std::u16string& text, const std::u16string& data_folder, RunOptions& run) {
    const auto number = parse_decimal(to_utf8(text));
    if (!number) {
        const auto proxy = parse_proxy(text);
        if (!proxy) return {ProxyFault::Kind::setting};
        run.proxy = proxy_plan(*proxy);
        return {};
    }
    std::vector<CProxyNode> list;
    std::string error;
    if (!load_proxies(data_folder, list, error)) return {ProxyFault::Kind::list, 0, error};
    if (*number < 1 || *number > static_cast<std::int64_t>(list.size()))
        return {ProxyFault::Kind::number, *number};
    run.proxy = proxy_plan(list[static_cast<std::size_t>(*number) - 1]);
    return {};
}

void take_environment(RunOptions& run) {
    constexpr std::array<std::pair<const char*, const char*>, 4> variables{
        {{"http_proxy", "http"}, {"https_proxy", "https"}, {"ftp_proxy", "ftp"}, {"all_proxy", ""}}};
    auto rules = std::make_shared<ProxyRules>();
    bool any = false;
    for (const auto& [name, scheme] : variables) {
        const auto value = variable(name, scheme != std::string_view("http"));
        if (!value) continue;
        const auto proxy = parse_proxy(*value);
        ProxyPlan plan = proxy ? proxy_plan(*proxy) : ProxyPlan();
        // The fault concerns only connections that would use this proxy; without it they go nowhere.
        if (!plan.is_used()) {
            plan = {};
            plan.kind = ProxyPlan::http_tunnel;
            plan.trouble =
                std::string(name) + " in the environment is not the address of a proxy that can be used.";
        }
        rules->set(scheme, std::move(plan));
        any = true;
    }
    if (!any) return;
    rules->set_direct(to_utf8(variable("no_proxy").value_or(u"")));
    run.proxy_rules = std::move(rules);
}

}  // namespace

std::string ProxyFault::text_for_people() const {
    switch (kind) {
        case Kind::none:
            return {};
        case Kind::setting:
            return "the setting Connection/Proxy is not the address of a proxy.";
        case Kind::number:
            return "the proxy list has no number " + std::to_string(number) +
                   ", which the setting Connection/Proxy asks for.";
        case Kind::list:
            return text;
        case Kind::job:
            return "the job's own proxy is not the address of a proxy.";
    }
    return {};
}

ProxyFault add_program_proxies(const Settings& settings, const std::u16string& data_folder, RunOptions& run) {
    if (run.proxy.is_used()) return {};
    const std::u16string text = settings.text(setting::proxy);
    if (!text.empty()) return iequals(text, u"none") ? ProxyFault{} : take_setting(text, data_folder, run);
    take_environment(run);
    return {};
}

RunOptions run_options_of(const CJobNode& job, const Settings& settings, const std::u16string& data_folder,
                          ProxyFault& fault) {
    RunOptions run;
    fault = {};
    if (!job.proxy.empty()) {
        const auto proxy = parse_proxy(job.proxy);
        if (proxy) run.proxy = proxy_plan(*proxy);
        if (!proxy) fault.kind = ProxyFault::Kind::job;
    }
    if (fault.ok()) fault = add_program_proxies(settings, data_folder, run);
    if (!fault.ok()) {
        run.proxy.kind = ProxyPlan::http_tunnel;
        run.proxy.trouble = fault.text_for_people();
    }
    if (job.sources) run.hash = job.sources->whole;
    if (job.rules) run.ssh.key_file = job.rules->key_file;
    return run;
}

ProxyPlan torrent_proxy(const RunOptions& run) {
    // Most trackers are web servers, so a proxy for those is meant for them.
    if (run.proxy.kind != ProxyPlan::direct || !run.proxy_rules) return run.proxy;
    return run.proxy_rules->choose("http", {}, 0);
}

}  // namespace vantlow
