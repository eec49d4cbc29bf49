#include "app/program_proxies.h"

#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "platform/process.h"
#include "store/proxy_address.h"
#include "store/proxy_list.h"
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

Complaint take_setting(CFerrywellApp& app, const std::u16string& text, RunOptions& run) {
    const auto number = parse_decimal(to_utf8(text));
    if (!number) {
        const auto proxy = parse_proxy(text);
        if (!proxy) return "the setting Connection/Proxy names no proxy.";
        run.proxy = proxy_plan(*proxy);
        return std::nullopt;
    }
    std::vector<CProxyNode> list;
    std::string error;
    if (!load_proxies(app.data_folder(), list, error)) return error;
    if (*number < 1 || *number > static_cast<std::int64_t>(list.size()))
        return "the proxy list has no number " + std::to_string(*number) + ", which Connection/Proxy names.";
    run.proxy = proxy_plan(list[static_cast<std::size_t>(*number) - 1]);
    return std::nullopt;
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
        // Only what would go through it is not to be had; it goes nowhere without the proxy that is wanted.
        if (!plan.is_used()) {
            plan = {};
            plan.kind = ProxyPlan::http_tunnel;
            plan.trouble = std::string(name) + " in the environment names no proxy that can be used.";
        }
        rules->set(scheme, std::move(plan));
        any = true;
    }
    if (!any) return;
    rules->set_direct(to_utf8(variable("no_proxy").value_or(u"")));
    run.proxy_rules = std::move(rules);
}

}  // namespace

Complaint add_program_proxies(CFerrywellApp& app, RunOptions& run) {
    Complaint complaint;
    if (!run.proxy.is_used()) {
        const std::u16string text = app.settings().text(setting::proxy);
        if (text.empty()) {
            take_environment(run);
        } else if (!iequals(text, u"none")) {
            complaint = take_setting(app, text, run);
        }
    }
    return complaint;
}

}  // namespace vantlow
