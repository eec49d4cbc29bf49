// The plans of a connection and of the file, made of the job, the run's wishes and the settings as they are
// now.
#include <algorithm>

#include "platform/process.h"
#include "store/address.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/job/main_thread.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow {

SourcePlan CTransferMainThread::plan(Worker& asker) {
    const Settings& settings = services_.settings;
    SourcePlan plan;
    {
        const MutexLock guard(lock_);
        // Somebody else was faster: the failure to come looks for the next chance.
        if (!policy_.choose_mirror(asker, now())) return plan;
        const Mirror& mirror = policy_.mirrors().at(asker.mirror);
        plan.origin = mirror.address;
        plan.address = mirror.effective.empty() ? mirror.address : mirror.effective;
        if (mirror.own_server) {
            plan.user = job_.user;
            plan.password = job_.password;
            plan.http.cookie = job_.cookie;
            plan.http.referer = job_.referer;
        }
        plan.http.agent = job_.agent.empty() ? options_.default_agent : job_.agent;
        plan.http.automatic_referer = job_.automatic_referer != 0;
        plan.utf8 = job_.utf8 != 0;
        plan.silence = std::chrono::seconds(std::max(job_.silence_limit, 1));
        plan.limits.further = mirror.answered;
    }
    plan.limits.awaited = &awaiting_place_;
    plan.timeout = std::chrono::seconds(settings.number(setting::connect_timeout));
    plan.trust.verify = settings.flag(setting::verify_peer);
    plan.trust.ca_file = settings.text(setting::ca_file);
    plan.limits.most = settings.number(setting::max_per_server);
    plan.limits.interval = std::chrono::milliseconds(settings.number(setting::connect_interval));
    plan.receive_buffer = static_cast<std::size_t>(settings.number(setting::connection_buffer)) * 1024;
    plan.ftp = ftp_rules();
    plan.ssh = options_.ssh;
    plan.ssh_buffer = static_cast<std::size_t>(settings.number(setting::ssh_buffer)) * 1024;
    plan.http.system_cookies = settings.flag(setting::get_cookie);
    plan.http.cookie_file = settings.text(setting::cookie_file);
    if (job_.rules) {
        plan.trust.verify = plan.trust.verify && !job_.rules->insecure;
        if (!job_.rules->ca_file.empty()) plan.trust.ca_file = job_.rules->ca_file;
    }
    if (plan.http.cookie.starts_with(u'@')) {
        plan.http.cookie_file = plan.http.cookie.substr(1);
        plan.http.cookie.clear();
    }
    choose_proxy(plan);
    return plan;
}

void CTransferMainThread::choose_proxy(SourcePlan& plan) const {
    plan.proxy = options_.proxy;
    plan.proxy_rules = options_.proxy_rules;
    if (options_.proxy_rules) {
        const auto target = parse_target(plan.address, plan.utf8);
        if (target) plan.proxy = options_.proxy_rules->choose(target->scheme, target->host, target->port);
    }
    plan.proxy.resolve_here = !services_.settings.flag(setting::proxy_resolves);
    if (!plan.proxy.user.empty())
        add_login(plan.proxy, services_.libraries, &services_.connections.memory.of<LoginMemory>());
}

FtpRules CTransferMainThread::ftp_rules() const {
    const Settings& settings = services_.settings;
    FtpRules rules;
    rules.features = settings.flag(setting::enable_feat);
    rules.passive = settings.flag(setting::ftp_passive);
    rules.trace_listings = settings.flag(setting::trace_list);
    if (settings.flag(setting::nat_in_port)) rules.mapped_address = settings.text(setting::nat_address);
    rules.binary_types = settings.text(setting::binary_types);
    rules.client_version = product_version();
    return rules;
}

FileRules CTransferMainThread::file_rules() const {
    const Settings& settings = services_.settings;
    FileRules rules;
    rules.overwrite = settings.number(setting::overwrite_rule);
    if (job_.rules) {
        rules.overwrite = job_.rules->overwrite.value_or(rules.overwrite);
        rules.skip_existing = job_.rules->skip_existing;
    }
    rules.allocate = settings.flag(setting::allocate_space);
    rules.disk_buffer = static_cast<std::size_t>(settings.number(setting::disk_buffer)) * 1024;
    rules.data_buffer = static_cast<std::size_t>(settings.number(setting::data_buffer)) * 1024;
    return rules;
}

}  // namespace vantlow
